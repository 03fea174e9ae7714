// Saving a really rendered framebuffer: which road an image takes, and the bytes of the
// program's own road. The scene is a constant environment, so every pixel is known.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "tests/render/engine_fixture.h"
#include "tests/render/image_file.h"
#include "render/save_image.h"

using namespace zvrs;

namespace {

const float kRadiance[3] = {0.201f, 0.101f, 0.0515f};

class SaveImage : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    makeEnvironmentScene(kRadiance[0], kRadiance[1], kRadiance[2]);
    ZvrFrameBuffer raw = framebuffer(4, 2);
    ASSERT_EQ(zvrContextSetAOV(context_, 0, raw), 0);
    ASSERT_EQ(zvrContextSetParameterByKey1u(context_, ZVR_CONTEXT_ITERATIONS, 2), 0);
    ASSERT_EQ(zvrContextRender(context_), 0);
    resolved_ = framebuffer(4, 2);
    ASSERT_EQ(zvrContextResolveFrameBuffer(context_, raw, resolved_, 0), 0);
  }

  ZvrFrameBuffer resolved_ = nullptr;
};

// Neutral colour and data elements go to the library in the format of their name; anything to
// post-process takes the program's own road, a PNG whatever the name, with the bytes worked out by hand.
TEST_F(SaveImage, RoadChoiceFileFormatAndBytes) {
  const std::string configPath = tempFile("config.ocio");
  std::ofstream(configPath) << "ocio_profile_version: 2\nroles: {default: linear, scene_linear: linear}\n"
                               "displays:\n  sRGB:\n    - !<View> {name: Root, colorspace: rootspace}\n"
                               "colorspaces:\n  - !<ColorSpace> {name: linear}\n  - !<ColorSpace>\n    name: rootspace\n"
                               "    from_scene_reference: !<ExponentTransform> {value: [0.5, 0.5, 0.5, 1]}\n";
  const struct {
    const char* label;
    const char* file;
    bool isColor;
    float exposure;
    const char* gamma;
    std::string ocioConfig;  // empty: OpenColorIO off
    const char* format;
    std::vector<long> bytes;  // of the own road's pixels; empty: the library's road
  } cases[] = {
      {"neutral colour goes to the library", "c.exr", true, 1.0f, "", "", "openexr", {}},
      {"neutral colour png by the library", "c.png", true, 1.0f, "", "", "png", {}},
      {"data element ignores exposure", "n.exr", false, 2.0f, "", "", "openexr", {}},
      {"gamma text alone selects the own road", "c.exr", true, 1.0f, "abc", "", "png", {51, 25, 13}},
      {"exposure alone, png whatever the name", "c.jpg", true, 2.0f, "", "", "png", {102, 51, 26}},
      {"exposure and gamma 2.2", "c.png", true, 2.0f, "2.2", "", "png", {168, 123, 90}},
      {"ocio view and display gamma", "c.png", true, 2.0f, "2", configPath, "png", {203, 170, 144}},
      {"ocio with a missing configuration falls back", "c.png", true, 2.0f, "2.2", "/nonexistent.ocio", "png",
       {168, 123, 90}},
  };
  for (const auto& c : cases) {
    forgetTrace();
    RenderSettings settings;
    settings.postExposure = c.exposure;
    settings.postGammaCorrection = c.gamma;
    settings.postOcioEnable = !c.ocioConfig.empty();
    settings.postOcioConfig = c.ocioConfig;
    settings.postOcioSrc = "linear";
    settings.postOcioDisplay = "sRGB";
    settings.postOcioView = "Root";
    const std::string path = tempFile(c.file);
    std::remove(path.c_str());
    EXPECT_EQ(saveOutputImage(context_, settings, resolved_, path.c_str(), c.isColor), 0) << c.label;
    const ImageFile image = readImageFile(path);
    EXPECT_EQ(image.format, c.format) << c.label;
    EXPECT_EQ(traceOf({"zvrFrameBufferSaveToFile"}).size(), c.bytes.empty() ? 1u : 0u) << c.label;
    if (c.bytes.empty()) continue;
    EXPECT_EQ(traceOf({"zvrFrameBufferGetInfo"}).size(), 2u) << c.label;
    EXPECT_EQ(std::vector<int>({image.width, image.height, image.nchannels}), std::vector<int>({4, 2, 3}))
        << c.label << ": no alpha";
    for (size_t i = 0; i < image.values.size(); ++i)
      EXPECT_EQ(std::lround(image.values[i] * 255), c.bytes[i % 3]) << c.label << " byte " << i;
  }
}

TEST_F(SaveImage, LibraryFailureIsReturnedAndNothingWritten) {
  RenderSettings settings;
  settings.postExposure = 2.0f;
  ZvrFrameBuffer gone = framebuffer(4, 2);
  ASSERT_EQ(zvrObjectDelete(gone), 0);
  const std::string path = tempFile("never.png");
  EXPECT_NE(saveOutputImage(context_, settings, gone, path.c_str(), true), 0);
  EXPECT_FALSE(std::ifstream(path).good());
}

}  // namespace
