// The OpenColorIO road with a real configuration written here, its silent fallback, and the PNG
// stream written whatever the file's extension.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#define STB_IMAGE_IMPLEMENTATION
#include <stb/stb_image.h>

#include "render/image_conversion.h"
#include "render/ocio_display.h"
#include "render/png_writer.h"
#include "program/render_settings.h"

using namespace zvrs;

namespace {

// A scene-linear space and a display space that takes the square root, under one view.
const char* kConfig = R"(ocio_profile_version: 2

roles:
  default: linear
  scene_linear: linear

displays:
  sRGB:
    - !<View> {name: Root, colorspace: rootspace}

colorspaces:
  - !<ColorSpace>
    name: linear
    isdata: false

  - !<ColorSpace>
    name: rootspace
    isdata: false
    from_scene_reference: !<ExponentTransform> {value: [0.5, 0.5, 0.5, 1]}
)";

class OcioRoad : public ::testing::Test {
 protected:
  void SetUp() override {
    directory_ = testing::TempDir() + "ocio_road_" + std::to_string(getpid());
    ASSERT_EQ(system(("mkdir -p '" + directory_ + "'").c_str()), 0);
    configPath_ = directory_ + "/config.ocio";
    std::ofstream(configPath_) << kConfig;
    settings_.postOcioEnable = 1;
    settings_.postOcioSrc = "linear";
    settings_.postOcioDisplay = "sRGB";
    settings_.postOcioView = "Root";
  }
  void TearDown() override { system(("rm -rf '" + directory_ + "'").c_str()); }

  std::string directory_;
  std::string configPath_;
  RenderSettings settings_;
};

TEST_F(OcioRoad, ProcessorAppliesExposureViewAndGamma) {
  const struct {
    const char* label;
    float exposure;
    float gamma;
    float input;
    float expected;
  } cases[] = {
      {"view alone", 1.0f, 0.0f, 0.25f, 0.5f},
      {"exposure before the view", 2.0f, 0.0f, 0.125f, 0.5f},
      {"display gamma after the view", 2.0f, 2.0f, 0.125f, std::sqrt(0.5f)},
      {"negative clamped by the exponent", 1.0f, 0.0f, -0.25f, 0.0f},
  };
  for (const auto& c : cases) {
    settings_.postExposure = c.exposure;
    OCIO_NAMESPACE::ConstCPUProcessorRcPtr processor = buildOcioProcessor(configPath_, settings_, c.gamma);
    ASSERT_TRUE(processor) << c.label;
    float rgb[3] = {c.input, c.input, c.input};
    processor->applyRGB(rgb);
    for (float value : rgb) EXPECT_NEAR(value, c.expected, 1e-4f) << c.label;
  }
}

TEST_F(OcioRoad, BytesOfTheWholeConversion) {
  settings_.postExposure = 2.0f;
  settings_.postGammaCorrection = "2";
  const float pixels[8] = {0.125f, 0.125f, 0.125f, 1.0f, 0.5f, 0.0f, 0.02f, 1.0f};
  const std::vector<uint8_t> bytes = convertPixelsForSettings(pixels, 2, settings_, 2.0f, configPath_);
  // 0.125 * 2 -> sqrt -> sqrt = 0.7071 -> 180; 0.5 * 2 = 1 -> 255; 0.04 -> 0.2 -> 0.4472 -> 114.
  const std::vector<uint8_t> expected = {180, 180, 180, 255, 0, 114};
  EXPECT_EQ(bytes, expected);
}

TEST_F(OcioRoad, FailuresFallBackToThePlainPipelineSilently) {
  const struct {
    const char* label;
    std::string path;
    const char* view;
  } cases[] = {
      {"missing file", "/nonexistent/config.ocio", "Root"},
      {"empty path", "", "Root"},
      {"unknown view", "", "NoSuchView"},
  };
  settings_.postExposure = 2.0f;
  settings_.postGammaCorrection = "2.2";
  const float pixels[8] = {0.125f, 0.25f, 0.6f, 1.0f, -1.0f, 0.0f, 0.5f, 1.0f};
  RenderSettings plainSettings = settings_;
  plainSettings.postOcioEnable = 0;
  const std::vector<uint8_t> plain = convertPixelsForSettings(pixels, 2, plainSettings, 2.2f, "");
  // 0.25^(1/2.2) = 0.5325 -> 135; 0.5 -> 186; 1.2 -> 255; negative -> 0; 0 -> 0; 1 -> 255.
  EXPECT_EQ(plain, (std::vector<uint8_t>{135, 186, 255, 0, 0, 255}));
  for (const auto& c : cases) {
    settings_.postOcioView = c.view;
    const std::string path = c.path.empty() && std::string(c.view) != "Root" ? configPath_ : c.path;
    EXPECT_FALSE(buildOcioProcessor(path, settings_, 2.2f)) << c.label;
    EXPECT_EQ(convertPixelsForSettings(pixels, 2, settings_, 2.2f, path), plain) << c.label;
  }
}

TEST(PngWriter, RgbEightBitWhateverTheExtension) {
  const std::string path = testing::TempDir() + "png_writer_" + std::to_string(getpid()) + ".jpg";
  const uint8_t rgb[2 * 2 * 3] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30};
  ASSERT_TRUE(writePngRgb8(path.c_str(), 2, 2, rgb));

  unsigned char signature[8] = {0};
  FILE* file = std::fopen(path.c_str(), "rb");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(std::fread(signature, 1, 8, file), 8u);
  std::fclose(file);
  const unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  EXPECT_EQ(std::memcmp(signature, png, 8), 0);
  // Colour type 2 (RGB) and depth 8 stand in the header chunk.
  file = std::fopen(path.c_str(), "rb");
  unsigned char header[26] = {0};
  ASSERT_EQ(std::fread(header, 1, 26, file), 26u);
  std::fclose(file);
  EXPECT_EQ(header[24], 8);
  EXPECT_EQ(header[25], 2);

  int width = 0, height = 0, components = 0;
  unsigned char* pixels = stbi_load(path.c_str(), &width, &height, &components, 0);
  ASSERT_NE(pixels, nullptr);
  EXPECT_EQ(width, 2);
  EXPECT_EQ(height, 2);
  EXPECT_EQ(components, 3);
  EXPECT_EQ(std::memcmp(pixels, rgb, sizeof(rgb)), 0);
  stbi_image_free(pixels);
  std::remove(path.c_str());
}

TEST(PngWriter, UnwritablePathReportsFalse) {
  const uint8_t rgb[3] = {1, 2, 3};
  EXPECT_FALSE(writePngRgb8("/nonexistent-folder/x.png", 1, 1, rgb));
}

}  // namespace
