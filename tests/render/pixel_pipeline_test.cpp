// The program's own colour pipeline against values computed by hand from the curves, the OpenColorIO
// road with a real configuration written here, and the id colour table.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

#include "program/render_settings.h"
#include "render/index_colors.h"
#include "render/ocio_display.h"
#include "render/pixel_pipeline.h"
#include "tests/support/program_run.h"

using namespace zvrs;

namespace {

const float kInf = std::numeric_limits<float>::infinity();
const float kNaN = std::numeric_limits<float>::quiet_NaN();

struct PipelineCase {
  const char* label;
  float exposure;
  const char* tonemap;
  const char* gamma;
  float input;
  uint8_t expected;
};

TEST(PlainPipeline, ChannelBytes) {
  const PipelineCase cases[] = {
      {"exposure doubles", 2.0f, "", "", 0.25f, 127}, {"exposure past one saturates", 2.0f, "", "", 0.6f, 255},
      {"negative without gamma is black", 2.0f, "", "", -0.1f, 0},
      {"aces mid grey", 1.0f, "ACESFilmApprox", "", 0.5f, 157},
      {"aces of two", 1.0f, "ACESFilmApprox", "", 2.0f, 233},
      {"aces clamps negatives", 1.0f, "ACESFilmApprox", "", -1.0f, 0},
      {"aces saturates huge", 1.0f, "ACESFilmApprox", "", 100.0f, 255},
      {"unknown tonemap ignored", 1.0f, "Reinhard", "", 0.5f, 127},
      {"srgb curve", 1.0f, "", "LinearTosRGB", 0.5f, 187}, {"srgb linear toe", 1.0f, "", "LinearTosRGB", 0.002f, 6},
      // In float, 1.055f - 0.055f falls just short of 1, so even the top of the curve truncates to 254.
      {"srgb above one is the value for one", 1.0f, "", "LinearTosRGB", 2.0f, 254},
      {"srgb of one", 1.0f, "", "LinearTosRGB", 1.0f, 254},
      {"srgb negative stays negative", 1.0f, "", "LinearTosRGB", -0.5f, 0},
      {"aces then srgb", 1.0f, "ACESFilmApprox", "LinearTosRGB", 0.5f, 205},
      {"exposure then srgb", 2.0f, "", "LinearTosRGB", 0.1f, 123}, {"gamma 2.2", 1.0f, "", "2.2", 0.5f, 186},
      {"gamma 2.2 clamps above", 1.0f, "", "2.2", 1.5f, 255}, {"gamma 2.2 clamps below", 1.0f, "", "2.2", -0.2f, 0},
      {"gamma text not a number: no step, no clamp", 1.0f, "", "abc", 0.5f, 127},
      {"gamma 0 is no gamma", 1.0f, "", "0", 0.5f, 127}, {"gamma 0.0 is no gamma", 1.0f, "", "0.0", 0.5f, 127},
      {"gamma -1 inverts", 1.0f, "", "-1", 0.5f, 255},
      {"gamma -1 of zero is infinity, black", 1.0f, "", "-1", 0.0f, 0},
      {"infinity reaching quantisation", 1.0f, "", "", kInf, 0}, {"NaN reaching quantisation", 1.0f, "", "", kNaN, 0},
      {"too large for an integer", 1.0f, "", "", 1e10f, 0}, {"0.999 truncates", 1.0f, "", "", 0.999f, 254},
      {"exactly one", 1.0f, "", "", 1.0f, 255},
  };
  for (const PipelineCase& c : cases) {
    RenderSettings settings;
    settings.postExposure = c.exposure;
    settings.postTonemap = c.tonemap;
    settings.postGammaCorrection = c.gamma;
    const PlainPipeline pipeline = makePlainPipeline(settings, parseGammaText(settings.postGammaCorrection));
    float rgb[3] = {c.input, c.input, c.input};
    applyPlainPipeline(pipeline, rgb);
    for (int channel = 0; channel < 3; ++channel) {
      EXPECT_EQ(quantiseChannel(rgb[channel]), c.expected) << c.label << " channel " << channel;
    }
  }
}

TEST(GammaText, NumberPattern) {
  const struct {
    const char* text;
    float expected;
  } cases[] = {
      {"2.2", 2.2f}, {"+2", 2.0f}, {"-1", -1.0f}, {"2.", 2.0f},  {"0", 0.0f},        {".5", 0.0f},
      {"1e3", 0.0f}, {" 2.2", 0.0f}, {"2.2 ", 0.0f}, {"", 0.0f}, {"LinearTosRGB", 0.0f}, {"abc", 0.0f},
  };
  for (const auto& c : cases) EXPECT_EQ(parseGammaText(c.text), c.expected) << '"' << c.text << '"';
  EXPECT_THROW(parseGammaText("1" + std::string(400, '0')), std::out_of_range);
}

TEST(PostProcessingChoice, AnyNonNeutralSettingSelectsIt) {
  const struct {
    const char* label;
    float exposure;
    const char* tonemap;
    const char* gamma;
    int32_t ocio;
    bool expected;
  } cases[] = {
      {"all neutral", 1.0f, "", "", 0, false}, {"exposure", 2.0f, "", "", 0, true}, {"NaN exposure", kNaN, "", "", 0, true},
      {"tonemap", 1.0f, "Reinhard", "", 0, true}, {"gamma text", 1.0f, "", "abc", 0, true},
      {"ocio on", 1.0f, "", "", 1, true}, {"ocio 2 is off", 1.0f, "", "", 2, false},
  };
  for (const auto& c : cases) {
    RenderSettings settings;
    settings.postExposure = c.exposure;
    settings.postTonemap = c.tonemap;
    settings.postGammaCorrection = c.gamma;
    settings.postOcioEnable = c.ocio;
    EXPECT_EQ(wantsPostProcessing(settings), c.expected) << c.label;
  }
}

// A scene-linear space and a display space that takes the square root, under one view.
const char* kOcioConfig = R"(ocio_profile_version: 2
roles: {default: linear, scene_linear: linear}
displays:
  sRGB:
    - !<View> {name: Root, colorspace: rootspace}
colorspaces:
  - !<ColorSpace> {name: linear}
  - !<ColorSpace>
    name: rootspace
    from_scene_reference: !<ExponentTransform> {value: [0.5, 0.5, 0.5, 1]}
)";

TEST(OcioRoad, ProcessorAppliesExposureViewAndGammaOrIsNotMade) {
  const RunFolder folder("ocio");
  std::ofstream(folder / "config.ocio") << kOcioConfig;
  const struct {
    const char* label;
    std::string path;
    const char* view;
    float exposure, gamma, input, expected;  // expected < 0: no processor
  } cases[] = {
      {"exposure before the view", folder / "config.ocio", "Root", 2.0f, 0.0f, 0.125f, 0.5f},
      {"display gamma after the view", folder / "config.ocio", "Root", 2.0f, 2.0f, 0.125f, std::sqrt(0.5f)},
      {"negative clamped by the exponent", folder / "config.ocio", "Root", 1.0f, 0.0f, -0.25f, 0.0f},
      {"missing file", "/nonexistent/config.ocio", "Root", 1.0f, 0.0f, 0.0f, -1.0f},
      {"empty path", "", "Root", 1.0f, 0.0f, 0.0f, -1.0f},
      {"unknown view", folder / "config.ocio", "NoSuchView", 1.0f, 0.0f, 0.0f, -1.0f},
  };
  for (const auto& c : cases) {
    RenderSettings settings;
    settings.postOcioEnable = 1;
    settings.postOcioSrc = "linear";
    settings.postOcioDisplay = "sRGB";
    settings.postOcioView = c.view;
    settings.postExposure = c.exposure;
    OCIO_NAMESPACE::ConstCPUProcessorRcPtr processor = buildOcioProcessor(c.path, settings, c.gamma);
    ASSERT_EQ(bool(processor), c.expected >= 0) << c.label;
    if (!processor) continue;
    float rgb[3] = {c.input, c.input, c.input};
    processor->applyRGB(rgb);
    for (float value : rgb) EXPECT_NEAR(value, c.expected, 1e-4f) << c.label;
  }
}

// The id colour table, against TEA results worked out separately for a few indices.
TEST(IndexColors, RecordsMatchIndependentHash) {
  const struct {
    uint32_t index;
    uint32_t first;
    uint32_t second;
  } cases[] = {
      {1, 0xea2b7bd9u, 0xfb1f1ea3u},
      {2, 0xc1f066d6u, 0x222a936eu},
      {1000, 0x12898c2cu, 0xa55f30bcu},
      {65536, 0x6cb3e31au, 0xd3005e27u},
  };
  const std::vector<float> table = makeIndexColorTable();
  ASSERT_EQ(table.size(), 65536u * 4u);
  for (const auto& c : cases) {
    uint32_t first = 0;
    uint32_t second = 0;
    indexColorHash(c.index, first, second);
    EXPECT_EQ(first, c.first) << c.index;
    EXPECT_EQ(second, c.second) << c.index;
    const float* record = &table[(c.index - 1) * 4];
    EXPECT_FLOAT_EQ(record[0], (c.first & 0xFFFFu) / 65536.0f) << c.index;
    EXPECT_FLOAT_EQ(record[1], (c.first >> 16) / 65536.0f) << c.index;
    EXPECT_FLOAT_EQ(record[2], (c.second & 0xFFFFu) / 65536.0f) << c.index;
    EXPECT_EQ(record[3], 0.0f) << c.index;
  }
}

}  // namespace
