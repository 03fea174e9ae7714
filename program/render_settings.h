// The plain record of every setting of a run, with its constructor defaults.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

namespace zvrs {

struct FramebufferFormat {
  uint32_t numComponents = 4;
  uint32_t componentType = 3;
};

struct FramebufferDesc {
  uint32_t width = 1920;
  uint32_t height = 1080;
};

struct RenderSettings {
  uint32_t width = 1920;
  uint32_t height = 1080;
  uint32_t tileWidth = 0;
  uint32_t tileHeight = 0;
  FramebufferFormat framebufferFormat;
  FramebufferDesc framebufferDesc;
  uint32_t iterations = 64;
  uint32_t batchSize = 32;
  float animationTime = 0.0f;
  float radianceClamp = std::numeric_limits<float>::max();
  float causticsReduction = 1.0f;
  float gpuMemoryLimit = 1.0f;
  bool gammaGiven = false;
  float displayGamma = 2.2f;
  float textureGamma = 1.0f;
  int32_t framebufferSaveFloat32 = -1;
  int32_t maxDepth = -1;
  int32_t maxDepthShadow = -1;
  int32_t maxDepthDiffuse = -1;
  int32_t maxDepthGlossy = -1;
  int32_t maxDepthRefraction = -1;
  int32_t maxDepthRefractionGlossy = -1;
  int32_t textureCache = -1;
  int32_t normalizeLightIntensity = -1;
  int32_t renderQuality = -1;
  float mipOffset = 0.0f;
  float rayCastEpsilon = 0.0001f;
  uint32_t imageFilterType = 0;
  float imageFilterRadius = 2.0f;
  int32_t contourEnable = -1;
  uint32_t contourObjectId = 1;
  uint32_t contourMaterialId = 1;
  uint32_t contourNormal = 1;
  uint32_t contourUv = 1;
  float contourThresholdNormal = 45.0f;
  float contourThresholdUv = 1.0f;
  uint32_t contourUvSecondary = 0;
  float contourLineWidthObjectId = 1.0f;
  float contourLineWidthMaterialId = 1.0f;
  float contourLineWidthNormal = 1.0f;
  float contourLineWidthUv = 1.0f;
  float contourAntialiasing = 1.0f;
  uint32_t contourDebug = 0;
  std::string cameraType = "persp";
  float postScale = 1.0f;
  // A NaN first element means that no camera transform was given.
  float cameraTransform[16] = {std::numeric_limits<float>::quiet_NaN()};
  bool printProgress = true;
  bool printResult = true;
  bool printMillisec = false;
  int32_t gui = 0;
  int32_t guiStopAtIterations = 0;
  int32_t colorTable = 0;
  int32_t vskEnable = 0;
  int32_t vskNaltEnable = 0;
  float vskNaltAttenuation = 0.25f;
  int32_t vskWidth = 1920;
  int32_t vskHeight = 1080;
  float postExposure = 1.0f;
  std::string postTonemap;
  std::string postGammaCorrection;
  int32_t postOcioEnable = 0;
  std::string postOcioConfig;
  std::string postOcioSrc;
  std::string postOcioDisplay;
  std::string postOcioView;
};

}  // namespace zvrs
