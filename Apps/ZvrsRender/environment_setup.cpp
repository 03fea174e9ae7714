#include "Apps/ZvrsRender/environment_setup.h"

#include <fstream>
#include <string>

#include "engine/ZvrLoadStore.h"
#include "program/failure.h"

namespace zvrs {

namespace {

// The keys are top-level names with a dot in them, not nested blocks.
const picojson::value* findKey(const ConfigDocument& document, const char* key) {
  if (!document.is<picojson::object>()) return nullptr;
  const picojson::object& object = document.get<picojson::object>();
  auto it = object.find(key);
  return it == object.end() ? nullptr : &it->second;
}

// The sky as the keys give it; what a key leaves out keeps the light's own default.
struct UserEnvironment {
  bool hasImage = false, hasIntensity = false, hasRotation = false;
  std::string imagePath;
  float color[3] = {1, 1, 1};
  float intensity = 1, rotation = 0;
};

float numberOrStop(const picojson::value& value, const char* key) {
  if (!value.is<double>()) {
    const std::string message = std::string("Setting environment failed. \"") + key + "\" must be a number.";
    FATAL_ERROR(2, message.c_str());
  }
  return static_cast<float>(value.get<double>());
}

// The three keys, checked; false without an "environment" key.
bool readUserEnvironment(const ConfigDocument& document, UserEnvironment& out) {
  const picojson::value* environment = findKey(document, "environment");
  if (!environment) return false;
  const bool isPath = environment->is<std::string>();
  const bool isColour = environment->is<picojson::array>() && environment->get<picojson::array>().size() == 3;
  if (!isPath && !isColour)
    FATAL_ERROR(2, "Setting environment failed. \"environment\" must be an image path or an array of three numbers.");
  if (isPath) {
    out.imagePath = environment->get<std::string>();
  } else {
    const picojson::array& rgb = environment->get<picojson::array>();
    for (int i = 0; i < 3; ++i) out.color[i] = numberOrStop(rgb[i], "environment");
  }
  out.hasImage = isPath;
  if (const picojson::value* intensity = findKey(document, "environment.intensity")) {
    out.intensity = numberOrStop(*intensity, "environment.intensity");
    out.hasIntensity = true;
  }
  if (const picojson::value* rotation = findKey(document, "environment.rotation")) {
    out.rotation = numberOrStop(*rotation, "environment.rotation");
    out.hasRotation = true;
  }
  return true;
}

}  // namespace

void setUpEnvironment(const ConfigDocument& document, ZvrContext context, ZvrScene scene) {
  UserEnvironment env;
  if (!readUserEnvironment(document, env)) return;
  ZvrLight light = nullptr;
  CHECK_STATUS(zvrSceneCreateEnvironmentLight(scene, &light), context, "Setting environment failed.", Critical);
  CHECK_STATUS(zvrObjectSetName(light, "environment"), context, "Setting environment failed.", Critical);
  if (env.hasImage) {
    CHECK_STATUS(zvrLightSetImagePath(light, env.imagePath.c_str()), context, "Setting environment failed.", Critical);
  } else {
    CHECK_STATUS(zvrLightSetRadiance(light, env.color[0], env.color[1], env.color[2]), context,
                 "Setting environment failed.", Critical);
  }
  if (env.hasIntensity)
    CHECK_STATUS(zvrLightSetIntensity(light, env.intensity), context, "Setting environment failed.", Critical);
  if (env.hasRotation)
    CHECK_STATUS(zvrLightSetRotation(light, env.rotation), context, "Setting environment failed.", Critical);
}

void exportSceneXml(const std::string& sceneFile, const ConfigDocument& document, const char* outPath) {
  UserEnvironment env;
  if (!readUserEnvironment(document, env)) {
    zvrsExportToXML(sceneFile.c_str(), outPath);
    return;
  }
  if (env.hasImage && !std::ifstream(env.imagePath, std::ios::binary)) {
    const std::string message = "Setting environment failed. " + env.imagePath + " cannot be opened for reading.";
    FATAL_ERROR(18, message.c_str());
  }
  ZvrsEnvironment given{};
  given.imagePath = env.hasImage ? env.imagePath.c_str() : nullptr;
  for (int i = 0; i < 3; ++i) given.color[i] = env.color[i];
  given.intensity = env.intensity;
  given.rotation = env.rotation;
  zvrsExportToXMLWithEnvironment(sceneFile.c_str(), outPath, &given);
}

}  // namespace zvrs
