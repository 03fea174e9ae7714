#include "Apps/ZvrsRender/settings_reader.h"

#include <cstdint>
#include <cstdio>
#include <map>

namespace zvrs {

namespace {

// Absent keys and keys of another type both leave the field alone at the root level.
const picojson::value* numberAt(const picojson::value& node, const std::string& key) {
  const picojson::value& value = node.get(key);
  return value.is<double>() ? &value : nullptr;
}

}  // namespace

// Out-of-range numbers give the integer-indefinite value of the hardware conversion instead of
// undefined behaviour, so a huge number in a document is odd but never a crash.
uint32_t toUnsigned(double number) {
  const int64_t whole = number > -9.2e18 && number < 9.2e18 ? static_cast<int64_t>(number) : INT64_MIN;
  return static_cast<uint32_t>(static_cast<uint64_t>(whole));
}

int32_t toInt(double number) {
  return number > -2147483649.0 && number < 2147483648.0 ? static_cast<int32_t>(number) : INT32_MIN;
}

namespace {

const std::map<std::string, uint32_t>& imageFilterTypes() {
  static const std::map<std::string, uint32_t> types = {{"none", 0},     {"box", 1},     {"triangle", 2},
                                                        {"gaussian", 3}, {"mitchell", 4}, {"lanczos", 5},
                                                        {"blackman", 6}};
  return types;
}

}  // namespace

bool readUnsignedKey(const picojson::value& node, const std::string& key, uint32_t* field) {
  const picojson::value* value = numberAt(node, key);
  if (!value) return false;
  *field = toUnsigned(value->get<double>());
  return true;
}

bool readIntKey(const picojson::value& node, const std::string& key, int32_t* field) {
  const picojson::value* value = numberAt(node, key);
  if (!value) return false;
  *field = toInt(value->get<double>());
  return true;
}

bool readFloatKey(const picojson::value& node, const std::string& key, float* field) {
  const picojson::value* value = numberAt(node, key);
  if (!value) return false;
  *field = static_cast<float>(value->get<double>());
  return true;
}

bool readBoolKey(const picojson::value& node, const std::string& key, bool* field) {
  const picojson::value* value = numberAt(node, key);
  if (!value) return false;
  *field = value->get<double>() != 0.0;
  return true;
}

bool readStringKey(const picojson::value& node, const std::string& key, std::string* field) {
  const picojson::value& value = node.get(key);
  if (!value.is<std::string>()) return false;
  *field = value.get<std::string>();
  return true;
}

bool readImageFilterKey(const picojson::value& node, const std::string& key, uint32_t* field) {
  std::string name;
  if (!readStringKey(node, key, &name)) return false;
  auto found = imageFilterTypes().find(name);
  if (found == imageFilterTypes().end()) return false;
  *field = found->second;
  return true;
}

bool readMatrixKey(const picojson::value& node, const std::string& key, float* matrix16) {
  if (!node.contains(key)) return false;
  const picojson::array& elements = node.get(key).get<picojson::array>();
  // Checked here rather than left to a read past the end: a short array is a shape error.
  for (size_t index = 0; index < 16; ++index) matrix16[index] = static_cast<float>(elements.at(index).get<double>());
  return true;
}

void readBlockUnsigned(const picojson::value& block, const std::string& key, uint32_t* field) {
  if (!block.contains(key)) return;
  *field = toUnsigned(block.get(key).get<double>());
}

void readBlockFloat(const picojson::value& block, const std::string& key, float* field) {
  if (!block.contains(key)) return;
  *field = static_cast<float>(block.get(key).get<double>());
}

namespace {

void readContourBlock(RenderSettings& settings, const ConfigDocument& document) {
  const picojson::value& contour = document.get("contour");
  if (!contour.is<picojson::null>()) {
    // Any other type than an object is the user's shape error and throws here.
    contour.get<picojson::object>();
    // Contour extraction renders one iteration per call.
    settings.batchSize = 1;
    readBlockUnsigned(contour, "object.id", &settings.contourObjectId);
    readBlockUnsigned(contour, "material.id", &settings.contourMaterialId);
    readBlockUnsigned(contour, "normal", &settings.contourNormal);
    readBlockUnsigned(contour, "uv", &settings.contourUv);
    readBlockFloat(contour, "threshold.normal", &settings.contourThresholdNormal);
    readBlockFloat(contour, "threshold.uv", &settings.contourThresholdUv);
    readBlockUnsigned(contour, "uv.secondary", &settings.contourUvSecondary);
    if (contour.get("linewidth").is<double>()) {
      const float width = static_cast<float>(contour.get("linewidth").get<double>());
      settings.contourLineWidthObjectId = width;
      settings.contourLineWidthMaterialId = width;
      settings.contourLineWidthNormal = width;
      settings.contourLineWidthUv = width;
    }
    readBlockFloat(contour, "linewidth.objid", &settings.contourLineWidthObjectId);
    readBlockFloat(contour, "linewidth.matid", &settings.contourLineWidthMaterialId);
    readBlockFloat(contour, "linewidth.normal", &settings.contourLineWidthNormal);
    readBlockFloat(contour, "linewidth.uv", &settings.contourLineWidthUv);
    readBlockFloat(contour, "antialiasing", &settings.contourAntialiasing);
    readBlockUnsigned(contour, "debug", &settings.contourDebug);
    settings.contourEnable = 1;
  }
  std::string integratorGpu;
  readStringKey(document, "integratorgpu", &integratorGpu);
  if (integratorGpu == "gpucontour") settings.contourEnable = 1;
}

}  // namespace

void readSettingsFromConfig(RenderSettings& settings, const ConfigDocument& document,
                            const std::vector<int32_t>& pluginKinds) {
  readUnsignedKey(document, "width", &settings.width);
  readUnsignedKey(document, "height", &settings.height);
  readUnsignedKey(document, "tilesize.width", &settings.tileWidth);
  readUnsignedKey(document, "tilesize.height", &settings.tileHeight);

  readUnsignedKey(document, "iterations", &settings.iterations);
  if (settings.iterations == 0) settings.iterations = 1;
  if (readUnsignedKey(document, "batchsize", &settings.batchSize)) {
    if (settings.batchSize == 0)
      settings.batchSize = 1;
    else if (settings.batchSize > settings.iterations)
      settings.batchSize = settings.iterations;
  }

  readFloatKey(document, "animation.time", &settings.animationTime);
  readFloatKey(document, "radianceclamp", &settings.radianceClamp);
  readFloatKey(document, "causticsreduction", &settings.causticsReduction);
  readFloatKey(document, "gpumemorylimit", &settings.gpuMemoryLimit);
  readIntKey(document, "framebuffer.save.float32", &settings.framebufferSaveFloat32);
  readIntKey(document, "maxdepth", &settings.maxDepth);
  readIntKey(document, "maxdepth.shadow", &settings.maxDepthShadow);
  readIntKey(document, "maxdepth.diffuse", &settings.maxDepthDiffuse);
  readIntKey(document, "maxdepth.glossy", &settings.maxDepthGlossy);
  readIntKey(document, "maxdepth.refraction", &settings.maxDepthRefraction);
  readIntKey(document, "maxdepth.refraction.glossy", &settings.maxDepthRefractionGlossy);
  readIntKey(document, "texturecache", &settings.textureCache);
  readIntKey(document, "normalize_light_intensity", &settings.normalizeLightIntensity);
  readIntKey(document, "render_quality", &settings.renderQuality);
  readFloatKey(document, "mipoffset", &settings.mipOffset);
  readFloatKey(document, "raycastepsilon", &settings.rayCastEpsilon);
  readImageFilterKey(document, "imagefilter.type", &settings.imageFilterType);
  readFloatKey(document, "imagefilter.radius", &settings.imageFilterRadius);
  settings.gammaGiven = readFloatKey(document, "gamma", &settings.displayGamma);
  readStringKey(document, "cameratype", &settings.cameraType);
  readFloatKey(document, "postscale", &settings.postScale);

  document.get<picojson::object>();
  readMatrixKey(document, "camera.transform", settings.cameraTransform);

  readBoolKey(document, "print.progress", &settings.printProgress);
  readBoolKey(document, "print.result", &settings.printResult);
  readBoolKey(document, "print.millisec", &settings.printMillisec);
  readIntKey(document, "colortable", &settings.colorTable);
  readIntKey(document, "gui", &settings.gui);
  readIntKey(document, "gui.stop_at_iterations", &settings.guiStopAtIterations);
  readIntKey(document, "vsk.enable", &settings.vskEnable);
  readIntKey(document, "vsk.nalt.enable", &settings.vskNaltEnable);
  readFloatKey(document, "vsk.nalt.attenuation", &settings.vskNaltAttenuation);
  readIntKey(document, "vsk.width", &settings.vskWidth);
  readIntKey(document, "vsk.height", &settings.vskHeight);
  readFloatKey(document, "postprocess.exposure", &settings.postExposure);
  readStringKey(document, "postprocess.tonemap", &settings.postTonemap);
  readIntKey(document, "postprocess.ocio.enable", &settings.postOcioEnable);
  readStringKey(document, "postprocess.ocio.config", &settings.postOcioConfig);
  readStringKey(document, "postprocess.ocio.src", &settings.postOcioSrc);
  readStringKey(document, "postprocess.ocio.display", &settings.postOcioDisplay);
  readStringKey(document, "postprocess.ocio.view", &settings.postOcioView);

  readStringKey(document, "postprocess.gammacorrection", &settings.postGammaCorrection);
  if (settings.postGammaCorrection.empty()) {
    // A number is kept as its "%f" text so that the saving step can tell it from a name.
    float gamma = 0.0f;
    readFloatKey(document, "postprocess.gammacorrection", &gamma);
    if (gamma != 0.0f) {
      char text[64];
      std::snprintf(text, sizeof text, "%f", gamma);
      settings.postGammaCorrection = text;
    }
  }

  settings.framebufferDesc.width = settings.width;
  settings.framebufferDesc.height = settings.height;

  if (!pluginKinds.empty() && pluginKinds[0] == 2) readContourBlock(settings, document);
}

}  // namespace zvrs
