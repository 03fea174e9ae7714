// Saving a really rendered framebuffer: which road an image takes, and the bytes of the
// program's own road. The scene is a constant environment, so every pixel is known.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#define STB_IMAGE_IMPLEMENTATION
#include <stb/stb_image.h>

#include "tests/render/engine_fixture.h"
#include "render/output_elements.h"
#include "render/save_image.h"

using namespace zvrs;

namespace {

ZvrFrameBuffer newFramebuffer(ZvrContext context, const FramebufferFormat& format, const FramebufferDesc& desc) {
  ZvrFrameBuffer framebuffer = nullptr;
  EXPECT_EQ(createFramebuffer(context, format, desc, &framebuffer), 0);
  return framebuffer;
}

const float kRadiance[3] = {0.201f, 0.101f, 0.0515f};

class SaveImage : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    ASSERT_NE(context_, nullptr);
    makeEnvironmentScene(kRadiance[0], kRadiance[1], kRadiance[2]);

    const FramebufferFormat format;
    const FramebufferDesc desc = {4, 2};
    ZvrFrameBuffer raw = newFramebuffer(context_, format, desc);
    ASSERT_EQ(zvrContextSetAOV(context_, 0, raw), 0);
    ASSERT_EQ(zvrContextSetParameterByKey1u(context_, ZVR_CONTEXT_ITERATIONS, 2), 0);
    ASSERT_EQ(zvrContextRender(context_), 0);
    resolved_ = newFramebuffer(context_, format, desc);
    ASSERT_EQ(zvrContextResolveFrameBuffer(context_, raw, resolved_, 0), 0);
  }

  ZvrFrameBuffer resolved_ = nullptr;
};

std::string magicOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  char bytes[4] = {0, 0, 0, 0};
  file.read(bytes, 4);
  if (!file) return "missing";
  if (std::memcmp(bytes, "\x89PNG", 4) == 0) return "png";
  if (std::memcmp(bytes, "\x76\x2f\x31\x01", 4) == 0) return "exr";
  if (std::memcmp(bytes, "\xff\xd8\xff", 3) == 0) return "jpeg";
  return "other";
}

std::vector<uint8_t> pngPixels(const std::string& path, int& components) {
  int width = 0, height = 0;
  unsigned char* pixels = stbi_load(path.c_str(), &width, &height, &components, 0);
  if (pixels == nullptr) return {};
  std::vector<uint8_t> bytes(pixels, pixels + width * height * components);
  stbi_image_free(pixels);
  EXPECT_EQ(width, 4);
  EXPECT_EQ(height, 2);
  return bytes;
}

TEST_F(SaveImage, RoadChoiceAndFileFormat) {
  const struct {
    const char* label;
    const char* file;
    bool isColor;
    float exposure;
    const char* gamma;
    const char* magic;
    bool ownRoad;
  } cases[] = {
      {"neutral colour goes to the library", "c.exr", true, 1.0f, "", "exr", false},
      {"neutral colour png by the library", "c.png", true, 1.0f, "", "png", false},
      {"data element ignores exposure", "n.exr", false, 2.0f, "", "exr", false},
      {"exposure on colour writes png whatever the name", "c.jpg", true, 2.0f, "", "png", true},
      {"gamma text alone selects the own road", "c.exr", true, 1.0f, "abc", "png", true},
  };
  for (const auto& c : cases) {
    forgetTrace();
    RenderSettings settings;
    settings.postExposure = c.exposure;
    settings.postGammaCorrection = c.gamma;
    const std::string path = tempFile(c.file);
    EXPECT_EQ(saveOutputImage(context_, settings, resolved_, path.c_str(), c.isColor), 0) << c.label;
    EXPECT_EQ(magicOf(path), c.magic) << c.label;
    EXPECT_EQ(traceOf("zvrFrameBufferSaveToFile").size(), c.ownRoad ? 0u : 1u) << c.label;
    EXPECT_EQ(traceOf("zvrFrameBufferGetInfo").size(), c.ownRoad ? 2u : 0u) << c.label;
    std::remove(path.c_str());
  }
}

TEST_F(SaveImage, BytesOfTheProgramsOwnRoad) {
  const std::string configPath = tempFile("config.ocio");
  std::ofstream(configPath) << "ocio_profile_version: 2\nroles:\n  default: linear\n  scene_linear: linear\n"
                               "displays:\n  sRGB:\n    - !<View> {name: Root, colorspace: rootspace}\n"
                               "colorspaces:\n  - !<ColorSpace>\n    name: linear\n"
                               "  - !<ColorSpace>\n    name: rootspace\n"
                               "    from_scene_reference: !<ExponentTransform> {value: [0.5, 0.5, 0.5, 1]}\n";
  const struct {
    const char* label;
    const char* gamma;
    int32_t ocio;
    const char* config;
    uint8_t expected[3];
  } cases[] = {
      {"exposure alone", "", 0, "", {102, 51, 26}},
      {"exposure and gamma 2.2", "2.2", 0, "", {168, 123, 90}},
      {"ocio view and display gamma", "2", 1, configPath.c_str(), {203, 170, 144}},
      {"ocio with a missing configuration falls back", "2.2", 1, "/nonexistent.ocio", {168, 123, 90}},
  };
  for (const auto& c : cases) {
    RenderSettings settings;
    settings.postExposure = 2.0f;
    settings.postGammaCorrection = c.gamma;
    settings.postOcioEnable = c.ocio;
    settings.postOcioConfig = c.config;
    settings.postOcioSrc = "linear";
    settings.postOcioDisplay = "sRGB";
    settings.postOcioView = "Root";
    const std::string path = tempFile("own.png");
    ASSERT_EQ(saveOutputImage(context_, settings, resolved_, path.c_str(), true), 0) << c.label;
    int components = 0;
    const std::vector<uint8_t> bytes = pngPixels(path, components);
    EXPECT_EQ(components, 3) << c.label;  // alpha never reaches the file
    ASSERT_EQ(bytes.size(), 4u * 2u * 3u) << c.label;
    for (size_t i = 0; i < bytes.size(); ++i) EXPECT_EQ(bytes[i], c.expected[i % 3]) << c.label << " byte " << i;
    std::remove(path.c_str());
  }
}

TEST_F(SaveImage, LibraryFailureIsReturnedAndNothingWritten) {
  RenderSettings settings;
  settings.postExposure = 2.0f;
  ZvrFrameBuffer gone = newFramebuffer(context_, FramebufferFormat(), FramebufferDesc{4, 2});
  ASSERT_EQ(zvrObjectDelete(gone), 0);
  const std::string path = tempFile("never.png");
  EXPECT_NE(saveOutputImage(context_, settings, gone, path.c_str(), true), 0);
  EXPECT_EQ(magicOf(path), "missing");
}

}  // namespace
