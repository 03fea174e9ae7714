#include "Apps/ZvrsRender/environment_setup.h"

#include <string>

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

float numberOrStop(const picojson::value& value, const char* key) {
  if (!value.is<double>()) {
    const std::string message = std::string("Setting environment failed. \"") + key + "\" must be a number.";
    FATAL_ERROR(2, message.c_str());
  }
  return static_cast<float>(value.get<double>());
}

}  // namespace

void setUpEnvironment(const ConfigDocument& document, ZvrContext context, ZvrScene scene) {
  const picojson::value* environment = findKey(document, "environment");
  if (!environment) return;
  const bool isPath = environment->is<std::string>();
  const bool isColour = environment->is<picojson::array>() && environment->get<picojson::array>().size() == 3;
  if (!isPath && !isColour)
    FATAL_ERROR(2, "Setting environment failed. \"environment\" must be an image path or an array of three numbers.");

  ZvrLight light = nullptr;
  CHECK_STATUS(zvrSceneCreateEnvironmentLight(scene, &light), context, "Setting environment failed.", Critical);
  CHECK_STATUS(zvrObjectSetName(light, "environment"), context, "Setting environment failed.", Critical);
  if (isPath) {
    CHECK_STATUS(zvrLightSetImagePath(light, environment->get<std::string>().c_str()), context,
                 "Setting environment failed.", Critical);
  } else {
    const picojson::array& rgb = environment->get<picojson::array>();
    CHECK_STATUS(zvrLightSetRadiance(light, numberOrStop(rgb[0], "environment"), numberOrStop(rgb[1], "environment"),
                                     numberOrStop(rgb[2], "environment")),
                 context, "Setting environment failed.", Critical);
  }
  if (const picojson::value* intensity = findKey(document, "environment.intensity"))
    CHECK_STATUS(zvrLightSetIntensity(light, numberOrStop(*intensity, "environment.intensity")), context,
                 "Setting environment failed.", Critical);
  if (const picojson::value* rotation = findKey(document, "environment.rotation"))
    CHECK_STATUS(zvrLightSetRotation(light, numberOrStop(*rotation, "environment.rotation")), context,
                 "Setting environment failed.", Critical);
}

}  // namespace zvrs
