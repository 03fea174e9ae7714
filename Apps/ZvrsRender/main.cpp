// zvrsRender64: renders one scene file with a JSON configuration to image files.
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "engine/ZvrLoadStore.h"
#include "animation/keyframe_evaluation.h"
#include "animation/transform_capture.h"
#include "Apps/ZvrsRender/callbacks.h"
#include "Apps/ZvrsRender/command_line.h"
#include "Apps/ZvrsRender/common.h"
#include "Apps/ZvrsRender/environment_setup.h"
#include "program/config_json.h"
#include "program/failure.h"
#include "Apps/ZvrsRender/help.h"
#include "Apps/ZvrsRender/plugin_context.h"
#include "render/batch_render.h"
#include "render/leak_report.h"
#include "render/output_elements.h"
#include "render/post_effects.h"
#include "render/render_layers.h"
#include "render/statistics.h"
#include "Apps/ZvrsRender/run_helpers.h"
#include "program/run_records.h"
#include "Apps/ZvrsRender/settings_reader.h"
#include "viewer/viewer.h"

namespace zvrs {
namespace {

constexpr size_t kPluginNameSize = 128;

// Callbacks may run until the context is gone, so the record lives as long as the process.
ProgressRecord* progressRecord = nullptr;

void probeSceneFile(const std::string& sceneFile) {
  std::ifstream probe(sceneFile);
  if (!probe.is_open()) {
    char message[4096];
    std::snprintf(message, sizeof message, "File '%s' open failed.", sceneFile.c_str());
    FATAL_ERROR(10002, message);
  }
}

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

void tearDown(ZvrContext context, ZvrMaterialSystem materialSystem, ZvrScene scene,
              const std::vector<PostEffectEntry>& postEffects, const std::vector<OutputElement>& elements) {
  for (const PostEffectEntry& effect : postEffects)
    if (effect.owned) CHECK_STATUS(zvrObjectDelete(effect.handle), context, "Deleting post effect failed.", Critical);
  for (const OutputElement& element : elements)
    if (element.framebuffer)
      CHECK_STATUS(zvrObjectDelete(element.framebuffer), context, "ZVR framebuffer deletion failed.", Critical);
  CHECK_STATUS(zvrObjectDelete(materialSystem), context, "Deleting material system failed.", Critical);
  CHECK_STATUS(zvrObjectDelete(scene), context, "Deleting scene failed.", Critical);
  CHECK_STATUS(zvrsDeleteListImportedObjects(nullptr), context, "Deleting zvrs failed.", Critical);
  reportContextLeaks(context);
  CHECK_STATUS(zvrObjectDelete(context), context, "Deleting context failed.", Critical);
}

// No window, no run: the process ends at once, with one line that says why and what to do instead.
[[noreturn]] void endWithoutWindow(const ViewerResult& result) {
  std::fflush(stdout);
  std::fprintf(stderr, "The viewer could not open a window (%s); use \"gui\":0 to render to files.\n",
               result.reason.c_str());
  std::fflush(stderr);
  std::_Exit(result.status);
}

}  // namespace
}  // namespace zvrs

int main(int argc, char** argv) {
  using namespace zvrs;
  if (argc < 2 || std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0) {
    printHelp();
    return 0;
  }

  CommandLine commandLine;
  if (!parseCommandLine(argc, argv, commandLine)) return 0;
  probeSceneFile(commandLine.sceneFile);

  ConfigDocument document;
  if (commandLine.configFile.empty())
    document = parseJsonString(defaultConfigText, std::strlen(defaultConfigText));
  else
    document = loadConfigFile(commandLine.configFile);
  mergeOverride(commandLine.override, document);

  std::vector<std::string> outputs = readOutputList(document, "output");
  if (outputs.empty()) outputs.push_back("out.png");

  // The one output ".xml" exports the scene instead of rendering it, whatever the export answers.
  if (outputs.size() == 1 && outputs[0] == ".xml") {
    zvrsExportToXML(commandLine.sceneFile.c_str(), ".xml");
    return 0;
  }

  char pluginName[kPluginNameSize] = {0};
  if (document.contains("plugin")) {
    const std::string name = valueToText(document.get("plugin"));
    std::snprintf(pluginName, sizeof pluginName, "%s", name.c_str());
  }
  std::vector<int32_t> pluginIds;
  std::vector<int32_t> pluginKinds;
  loadPlugin(pluginName, pluginIds, pluginKinds);
  ZvrContext context = createContext(pluginIds, pluginKinds, document);
  CHECK_STATUS(zvrContextSetActivePlugin(context, pluginIds[0]), context, "Setting active plugin failed.", Critical);

  progressRecord = new ProgressRecord();
  float updateTimeMs = 0.0f;
  float renderTimeMs = 0.0f;
  setCallbacks(context, progressRecord, &updateTimeMs, &renderTimeMs);

  ZvrMaterialSystem materialSystem = nullptr;
  CHECK_STATUS(zvrContextCreateMaterialSystem(context, 0, &materialSystem), context,
               "ZVR material system creation failed.", Critical);

  const std::string tempOcioName = makeTempOcioName(commandLine.sceneFile);
  CHECK_STATUS(zvrsBuildOCIOFiles(commandLine.sceneFile.c_str(), context, tempOcioName.c_str(), 0), context,
               "Importing OCIO failed.", Critical);
  ZvrScene scene = nullptr;
  CHECK_STATUS(zvrsImport(commandLine.sceneFile.c_str(), context, materialSystem, &scene, false, nullptr), context,
               "Importing ZVR file failed.", Critical);
  if (pluginKinds[0] == ZVR_PLUGIN_FAMILY_QUILLON) selectIntegrators(document, context);

  // The importer's groups and animation records are gone after the release.
  AnimationState animation;
  captureImportedObjects(animation);
  captureAnimations(animation);
  zvrsReleaseImportedData();

  RenderSettings settings;
  progressRecord->settings = &settings;
  readSettingsFromEngine(settings, context, pluginKinds);
  readSettingsFromConfig(settings, document, pluginKinds);
  applySettingsToEngine(settings, context, pluginKinds);

  evaluateAnimation(animation, settings.animationTime, 0);
  setUpCamera(scene, settings);
  setUpEnvironment(document, context, scene);

  if (pluginKinds[0] == ZVR_PLUGIN_FAMILY_QUILLON) stopOnFailure(applyRenderLayers(document, context));
  std::vector<OutputElement> elements;
  stopOnFailure(createOutputElements(document, context, settings, elements));
  stopOnFailure(bindColorElement(context, settings, outputs, elements));
  std::vector<PostEffectEntry> postEffects;
  stopOnFailure(setupPostEffects(document, context, settings, postEffects));

  TimingRecord timing;
  timing.frequency = highResolutionCounterFrequency();
  if (settings.gui != 0) {
    ViewerState* viewer = new ViewerState();
    viewerConstruct(*viewer);
    viewerInit(*viewer);
    const ViewerResult result =
        viewerMain(*viewer, pluginKinds, document, context, scene, settings, elements, timing);
    if (result.status != 0) endWithoutWindow(result);
    zvrObjectDelete(viewer->resolvedFramebuffer);
    delete viewer;
  } else {
    stopOnFailure(renderBatches(pluginKinds, document, context, settings, elements, *progressRecord, timing));
  }

  const float firstIteration = renderTimeMs + updateTimeMs;
  writeStatistics(commandLine.sceneFile, document, context, settings, outputs, elements, postEffects, timing,
                  firstIteration);
  if (settings.printResult)
    printTimeSummary(timing, firstIteration, updateTimeMs, renderTimeMs, settings.printMillisec);

  tearDown(context, materialSystem, scene, postEffects, elements);
  std::printf("End of program.\n");
  return 0;
}
