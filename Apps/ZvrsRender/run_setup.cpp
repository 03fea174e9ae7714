#include "Apps/ZvrsRender/run_setup.h"

#include <cmath>
#include <cstdio>

#include "engine/ZvrLoadStore.h"
#include "animation/keyframe_evaluation.h"
#include "animation/transform_capture.h"
#include "Apps/ZvrsRender/callbacks.h"
#include "Apps/ZvrsRender/common.h"
#include "Apps/ZvrsRender/environment_setup.h"
#include "Apps/ZvrsRender/plugin_context.h"
#include "Apps/ZvrsRender/run_helpers.h"
#include "Apps/ZvrsRender/settings_reader.h"
#include "program/config_json.h"
#include "program/failure.h"
#include "render/leak_report.h"
#include "render/output_elements.h"
#include "render/post_effects.h"
#include "render/render_layers.h"

namespace zvrs {

namespace {

constexpr size_t kPluginNameSize = 128;

void setCallbacks(ZvrContext context, ProgressRecord* progress, float* updateTimeMs, float* renderTimeMs) {
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC,
                                 reinterpret_cast<void*>(&progressCallback));
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA, progress);
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_UPDATE_TIME_CALLBACK_FUNC,
                                 reinterpret_cast<void*>(&storeTimeCallback));
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_UPDATE_TIME_CALLBACK_DATA, updateTimeMs);
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_IGNORED_TIME_CALLBACK_FUNC,
                                 reinterpret_cast<void*>(&ignoreTimeCallback));
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_IGNORED_TIME_CALLBACK_DATA, nullptr);
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_TIME_CALLBACK_FUNC,
                                 reinterpret_cast<void*>(&storeTimeCallback));
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_TIME_CALLBACK_DATA, renderTimeMs);
}

// The scene camera's transform, projection mode and post scale, each only when asked for.
void setUpCamera(ZvrScene scene, const RenderSettings& settings) {
  if (!std::isnan(settings.cameraTransform[0])) {
    ZvrCamera camera = nullptr;
    zvrSceneGetCamera(scene, &camera);
    zvrCameraSetTransform(camera, false, settings.cameraTransform);
  }
  uint32_t mode = 0;
  if (settings.cameraType != "persp" && cameraModeFor(settings.cameraType, &mode)) {
    ZvrCamera camera = nullptr;
    zvrSceneGetCamera(scene, &camera);
    zvrCameraSetMode(camera, mode);
  }
  if (settings.postScale != 1.0f) {
    ZvrCamera camera = nullptr;
    zvrSceneGetCamera(scene, &camera);
    zvrCameraSetPostScale(camera, settings.postScale);
  }
}

// The output list always wins over an "aovs" entry for color, and a run always has one.
ZvrStatus bindColorElement(ZvrContext context, const RenderSettings& settings, const std::vector<std::string>& outputs,
                           std::vector<OutputElement>& elements) {
  bool found = false;
  for (OutputElement& element : elements) {
    if (element.name != "color") continue;
    element.fileNames = outputs;
    found = true;
  }
  if (found) return ZVR_SUCCESS;
  OutputElement color;
  color.name = "color";
  color.fileNames = outputs;
  const ZvrStatus created =
      createFramebuffer(context, settings.framebufferFormat, settings.framebufferDesc, &color.framebuffer);
  if (created != ZVR_SUCCESS) return created;
  color.layerName = "color";
  CHECK_STATUS(zvrContextSetAOV(context, 0, color.framebuffer), context, "ZVR context setting color AOV failed.",
               Critical);
  elements.push_back(color);
  return ZVR_SUCCESS;
}

// Steps that report their own failure hand the decision to stop back to the driver.
void stopOnFailure(ZvrStatus status) {
  if (status != ZVR_SUCCESS) stopProgram();
}

}  // namespace

void setUpRun(const std::string& sceneFile, const ConfigDocument& document, const std::vector<std::string>& outputs,
              ProgressRecord* progress, RunSetup& run) {
  char pluginName[kPluginNameSize] = {0};
  if (document.contains("plugin")) {
    const std::string name = valueToText(document.get("plugin"));
    std::snprintf(pluginName, sizeof pluginName, "%s", name.c_str());
  }
  loadPlugin(pluginName, run.pluginIds, run.pluginKinds);
  ZvrContext context = createContext(run.pluginIds, run.pluginKinds, document);
  run.context = context;
  CHECK_STATUS(zvrContextSetActivePlugin(context, run.pluginIds[0]), context, "Setting active plugin failed.", Critical);
  setCallbacks(context, progress, &run.updateTimeMs, &run.renderTimeMs);

  CHECK_STATUS(zvrContextCreateMaterialSystem(context, 0, &run.materialSystem), context,
               "ZVR material system creation failed.", Critical);
  const std::string tempOcioName = makeTempOcioName(sceneFile);
  CHECK_STATUS(zvrsBuildOCIOFiles(sceneFile.c_str(), context, tempOcioName.c_str(), 0), context,
               "Importing OCIO failed.", Critical);
  CHECK_STATUS(zvrsImport(sceneFile.c_str(), context, run.materialSystem, &run.scene, false, nullptr), context,
               "Importing ZVR file failed.", Critical);
  if (run.pluginKinds[0] == ZVR_PLUGIN_FAMILY_QUILLON) selectIntegrators(document, context);

  // The importer's groups and animation records are gone after the release.
  captureImportedObjects(run.animation);
  captureAnimations(run.animation);
  zvrsReleaseImportedData();

  progress->settings = &run.settings;
  readSettingsFromEngine(run.settings, context, run.pluginKinds);
  readSettingsFromConfig(run.settings, document, run.pluginKinds);
  applySettingsToEngine(run.settings, context, run.pluginKinds);

  evaluateAnimation(run.animation, run.settings.animationTime, 0);
  setUpCamera(run.scene, run.settings);
  setUpEnvironment(document, context, run.scene);

  if (run.pluginKinds[0] == ZVR_PLUGIN_FAMILY_QUILLON) stopOnFailure(applyRenderLayers(document, context));
  stopOnFailure(createOutputElements(document, context, run.settings, run.elements));
  stopOnFailure(bindColorElement(context, run.settings, outputs, run.elements));
  stopOnFailure(setupPostEffects(document, context, run.settings, run.postEffects));
}

void tearDownRun(RunSetup& run) {
  ZvrContext context = run.context;
  for (const PostEffectEntry& effect : run.postEffects)
    if (effect.owned) CHECK_STATUS(zvrObjectDelete(effect.handle), context, "Deleting post effect failed.", Critical);
  for (const OutputElement& element : run.elements)
    if (element.framebuffer)
      CHECK_STATUS(zvrObjectDelete(element.framebuffer), context, "ZVR framebuffer deletion failed.", Critical);
  CHECK_STATUS(zvrObjectDelete(run.materialSystem), context, "Deleting material system failed.", Critical);
  CHECK_STATUS(zvrObjectDelete(run.scene), context, "Deleting scene failed.", Critical);
  CHECK_STATUS(zvrsDeleteListImportedObjects(nullptr), context, "Deleting zvrs failed.", Critical);
  reportContextLeaks(context);
  CHECK_STATUS(zvrObjectDelete(context), context, "Deleting context failed.", Critical);
}

}  // namespace zvrs
