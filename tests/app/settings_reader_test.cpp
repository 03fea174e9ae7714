// Reading RenderSettings from the configuration document.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "program/config_json.h"
#include "Apps/ZvrsRender/settings_reader.h"

using namespace zvrs;

namespace {

const std::vector<int32_t> kVelder = {1};
const std::vector<int32_t> kQuillon = {2};

RenderSettings read(const std::string& json, const std::vector<int32_t>& kinds = kVelder) {
  RenderSettings settings;
  readSettingsFromConfig(settings, parseJsonString(json.data(), json.size()), kinds);
  return settings;
}

struct SettingsCase {
  const char* json;
  std::vector<int32_t> kinds;
  std::function<void(const RenderSettings&)> check;
};

TEST(SettingsReader, EdgeCasesOfTheKeys) {
  const SettingsCase cases[] = {
      {"{\"iterations\":0}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.iterations, 1u); }},
      {"{\"iterations\":-1}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.iterations, 0xFFFFFFFFu); }},
      {"{\"iterations\":10,\"batchsize\":100}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.batchSize, 10u); }},
      {"{\"iterations\":10,\"batchsize\":0}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.batchSize, 1u); }},
      {"{\"iterations\":100,\"batchsize\":7}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.batchSize, 7u); }},
      // Without "batchsize" the default is not limited by the iterations.
      {"{\"iterations\":10}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.batchSize, 32u); }},
      {"{\"iterations\":10,\"batchsize\":\"4\"}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.batchSize, 32u); }},
      {"{\"width\":1280.7,\"height\":720}", kVelder,
       [](const RenderSettings& s) {
         EXPECT_EQ(s.width, 1280u);
         EXPECT_EQ(s.framebufferDesc.width, 1280u);
         EXPECT_EQ(s.framebufferDesc.height, 720u);
       }},
      {"{\"width\":\"2\",\"iterations\":\"2\"}", kVelder,
       [](const RenderSettings& s) {
         EXPECT_EQ(s.width, 1920u);
         EXPECT_EQ(s.iterations, 64u);
       }},
      {"{\"width\":1e30}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.width, 0u); }},
      {"{\"print.progress\":false}", kVelder, [](const RenderSettings& s) { EXPECT_TRUE(s.printProgress); }},
      {"{\"print.progress\":0,\"print.millisec\":2}", kVelder,
       [](const RenderSettings& s) {
         EXPECT_FALSE(s.printProgress);
         EXPECT_TRUE(s.printMillisec);
       }},
      {"{\"imagefilter.type\":\"Gaussian\"}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.imageFilterType, 0u); }},
      {"{\"imagefilter.type\":\"blackman\"}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.imageFilterType, 6u); }},
      {"{\"imagefilter.type\":\"mitchell\"}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.imageFilterType, 4u); }},
      {"{\"postprocess.gammacorrection\":0}", kVelder,
       [](const RenderSettings& s) { EXPECT_EQ(s.postGammaCorrection, ""); }},
      {"{\"postprocess.gammacorrection\":\"0\"}", kVelder,
       [](const RenderSettings& s) { EXPECT_EQ(s.postGammaCorrection, "0"); }},
      {"{\"postprocess.gammacorrection\":2.2}", kVelder,
       [](const RenderSettings& s) { EXPECT_EQ(s.postGammaCorrection, "2.200000"); }},
      {"{\"gamma\":2.2}", kVelder,
       [](const RenderSettings& s) {
         EXPECT_TRUE(s.gammaGiven);
         EXPECT_FLOAT_EQ(s.displayGamma, 2.2f);
       }},
      {"{\"gamma\":\"2.2\"}", kVelder, [](const RenderSettings& s) { EXPECT_FALSE(s.gammaGiven); }},
      {"{\"maxdepth\":3.9,\"maxdepth.shadow\":-2,\"render_quality\":2}", kVelder,
       [](const RenderSettings& s) {
         EXPECT_EQ(s.maxDepth, 3);
         EXPECT_EQ(s.maxDepthShadow, -2);
         EXPECT_EQ(s.renderQuality, 2);
         EXPECT_EQ(s.maxDepthDiffuse, -1);
       }},
      {"{\"cameratype\":\"fisheye\",\"postscale\":2,\"camera.transform\":[1,0,0,0,0,1,0,0,0,0,1,0,0,0,5,1,99]}",
       kVelder,
       [](const RenderSettings& s) {
         EXPECT_EQ(s.cameraType, "fisheye");
         EXPECT_EQ(s.postScale, 2.0f);
         EXPECT_EQ(s.cameraTransform[0], 1.0f);
         EXPECT_EQ(s.cameraTransform[14], 5.0f);
         EXPECT_EQ(s.cameraTransform[15], 1.0f);
       }},
      {"{}", kVelder,
       [](const RenderSettings& s) {
         EXPECT_TRUE(std::isnan(s.cameraTransform[0]));
         EXPECT_EQ(s.radianceClamp, std::numeric_limits<float>::max());
         EXPECT_EQ(s.contourEnable, -1);
         EXPECT_EQ(s.gui, 0);
       }},
      // The contour block is read for the Quillon family only, and not even checked otherwise.
      {"{\"contour\":{\"linewidth\":2.0,\"linewidth.uv\":3.0,\"debug\":1,\"antialiasing\":-1},\"batchsize\":8}",
       kQuillon,
       [](const RenderSettings& s) {
         EXPECT_EQ(s.contourEnable, 1);
         EXPECT_EQ(s.batchSize, 1u);
         EXPECT_EQ(s.contourLineWidthObjectId, 2.0f);
         EXPECT_EQ(s.contourLineWidthMaterialId, 2.0f);
         EXPECT_EQ(s.contourLineWidthNormal, 2.0f);
         EXPECT_EQ(s.contourLineWidthUv, 3.0f);
         EXPECT_EQ(s.contourDebug, 1u);
         EXPECT_EQ(s.contourAntialiasing, -1.0f);
       }},
      {"{\"contour\":\"yes\",\"batchsize\":8,\"iterations\":20}", kVelder,
       [](const RenderSettings& s) {
         EXPECT_EQ(s.contourEnable, -1);
         EXPECT_EQ(s.batchSize, 8u);
       }},
      {"{\"contour\":null}", kQuillon, [](const RenderSettings& s) { EXPECT_EQ(s.contourEnable, -1); }},
      {"{\"integratorgpu\":\"gpucontour\",\"batchsize\":8,\"iterations\":20}", kQuillon,
       [](const RenderSettings& s) {
         EXPECT_EQ(s.contourEnable, 1);
         EXPECT_EQ(s.batchSize, 8u);
       }},
      {"{\"integratorgpu\":\"gpucontour\"}", kVelder, [](const RenderSettings& s) { EXPECT_EQ(s.contourEnable, -1); }},
      {"{\"vsk.nalt.attenuation\":0.5,\"vsk.width\":640,\"postprocess.ocio.enable\":1,\"postprocess.ocio.view\":\"sRGB\"}",
       kVelder,
       [](const RenderSettings& s) {
         EXPECT_EQ(s.vskNaltAttenuation, 0.5f);
         EXPECT_EQ(s.vskWidth, 640);
         EXPECT_EQ(s.postOcioEnable, 1);
         EXPECT_EQ(s.postOcioView, "sRGB");
       }},
  };
  for (const SettingsCase& c : cases) {
    SCOPED_TRACE(c.json);
    c.check(read(c.json, c.kinds));
  }
}

TEST(SettingsReader, ShapeErrorsThrowPicojsonAssertions) {
  const char* const cases[] = {
      "{\"camera.transform\":\"identity\"}",
      "{\"camera.transform\":[1,0,0,\"0\",0,1,0,0,0,0,1,0,0,0,0,1]}",
      "{\"contour\":[1]}",
      "{\"contour\":{\"debug\":\"1\"}}",
      "{\"contour\":{\"linewidth.uv\":true}}",
      "[1,2]",
  };
  for (const char* json : cases) EXPECT_THROW(read(json, kQuillon), std::runtime_error) << json;
}

TEST(SettingsReader, TypeMismatchNamesTheCheck) {
  try {
    read("{\"contour\":{\"uv\":\"1\"}}", kQuillon);
    FAIL() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "\"type mismatch! call is<type>() before get<type>()\" && is<double>()");
  }
}

}  // namespace
