// zvrsRender64: renders one scene file with a JSON configuration to image files.
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "engine/ZvrLoadStore.h"
#include "Apps/ZvrsRender/command_line.h"
#include "Apps/ZvrsRender/environment_setup.h"
#include "program/config_json.h"
#include "program/failure.h"
#include "Apps/ZvrsRender/help.h"
#include "render/batch_render.h"
#include "render/statistics.h"
#include "Apps/ZvrsRender/run_helpers.h"
#include "Apps/ZvrsRender/run_setup.h"
#include "program/run_records.h"
#include "viewer/viewer.h"

namespace zvrs {
namespace {

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

void stopOnFailure(ZvrStatus status) {
  if (status != ZVR_SUCCESS) stopProgram();
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
    exportSceneXml(commandLine.sceneFile, document, ".xml");
    return 0;
  }

  progressRecord = new ProgressRecord();
  RunSetup* run = new RunSetup();
  setUpRun(commandLine.sceneFile, document, outputs, progressRecord, *run);
  ZvrContext context = run->context;
  RenderSettings& settings = run->settings;

  TimingRecord timing;
  timing.frequency = highResolutionCounterFrequency();
  if (settings.gui != 0) {
    ViewerState* viewer = new ViewerState();
    viewerConstruct(*viewer);
    viewerInit(*viewer);
    const ViewerResult result =
        viewerMain(*viewer, run->pluginKinds, document, context, run->scene, settings, run->elements, timing);
    if (result.status != 0) endWithoutWindow(result);
    zvrObjectDelete(viewer->resolvedFramebuffer);
    delete viewer;
  } else {
    stopOnFailure(
        renderBatches(run->pluginKinds, document, context, settings, run->elements, *progressRecord, timing));
  }

  const float firstIteration = run->renderTimeMs + run->updateTimeMs;
  writeStatistics(commandLine.sceneFile, document, context, settings, outputs, run->elements, run->postEffects,
                  timing, firstIteration);
  if (settings.printResult)
    printTimeSummary(timing, firstIteration, run->updateTimeMs, run->renderTimeMs, settings.printMillisec);

  tearDownRun(*run);
  delete run;
  std::printf("End of program.\n");
  return 0;
}
