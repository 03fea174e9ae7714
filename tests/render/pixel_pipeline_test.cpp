// The program's own colour pipeline, against values computed by hand from the curves.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "render/pixel_pipeline.h"
#include "program/render_settings.h"

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
      {"exposure doubles", 2.0f, "", "", 0.25f, 127},
      {"exposure past one saturates", 2.0f, "", "", 0.6f, 255},
      {"negative without gamma is black", 2.0f, "", "", -0.1f, 0},
      {"aces mid grey", 1.0f, "ACESFilmApprox", "", 0.5f, 157},
      {"aces of two", 1.0f, "ACESFilmApprox", "", 2.0f, 233},
      {"aces clamps negatives", 1.0f, "ACESFilmApprox", "", -1.0f, 0},
      {"aces saturates huge", 1.0f, "ACESFilmApprox", "", 100.0f, 255},
      {"unknown tonemap ignored", 1.0f, "Reinhard", "", 0.5f, 127},
      {"srgb curve", 1.0f, "", "LinearTosRGB", 0.5f, 187},
      {"srgb linear toe", 1.0f, "", "LinearTosRGB", 0.002f, 6},
      // In float, 1.055f - 0.055f falls just short of 1, so even the top of the curve truncates to 254.
      {"srgb above one is the value for one", 1.0f, "", "LinearTosRGB", 2.0f, 254},
      {"srgb of one", 1.0f, "", "LinearTosRGB", 1.0f, 254},
      {"srgb negative stays negative", 1.0f, "", "LinearTosRGB", -0.5f, 0},
      {"aces then srgb", 1.0f, "ACESFilmApprox", "LinearTosRGB", 0.5f, 205},
      {"exposure then srgb", 2.0f, "", "LinearTosRGB", 0.1f, 123},
      {"gamma 2.2", 1.0f, "", "2.2", 0.5f, 186},
      {"gamma 2.2 clamps above", 1.0f, "", "2.2", 1.5f, 255},
      {"gamma 2.2 clamps below", 1.0f, "", "2.2", -0.2f, 0},
      {"gamma text not a number: no step, no clamp", 1.0f, "", "abc", 0.5f, 127},
      {"gamma 0 is no gamma", 1.0f, "", "0", 0.5f, 127},
      {"gamma 0.0 is no gamma", 1.0f, "", "0.0", 0.5f, 127},
      {"gamma -1 inverts", 1.0f, "", "-1", 0.5f, 255},
      {"gamma -1 of zero is infinity, black", 1.0f, "", "-1", 0.0f, 0},
      {"infinity reaching quantisation", 1.0f, "", "", kInf, 0},
      {"NaN reaching quantisation", 1.0f, "", "", kNaN, 0},
      {"too large for an integer", 1.0f, "", "", 1e10f, 0},
      {"0.999 truncates", 1.0f, "", "", 0.999f, 254},
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

TEST(PlainPipeline, ChannelsAreIndependent) {
  RenderSettings settings;
  settings.postGammaCorrection = "LinearTosRGB";
  float rgb[3] = {0.5f, 0.002f, -1.0f};
  applyPlainPipeline(makePlainPipeline(settings, 0.0f), rgb);
  EXPECT_EQ(quantiseChannel(rgb[0]), 187);
  EXPECT_EQ(quantiseChannel(rgb[1]), 6);
  EXPECT_EQ(quantiseChannel(rgb[2]), 0);
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
}

TEST(GammaText, NumberOutOfDoubleRangeThrows) {
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
      {"all neutral", 1.0f, "", "", 0, false},
      {"exposure", 2.0f, "", "", 0, true},
      {"NaN exposure", kNaN, "", "", 0, true},
      {"tonemap", 1.0f, "Reinhard", "", 0, true},
      {"gamma text", 1.0f, "", "abc", 0, true},
      {"ocio on", 1.0f, "", "", 1, true},
      {"ocio 2 is off", 1.0f, "", "", 2, false},
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

}  // namespace
