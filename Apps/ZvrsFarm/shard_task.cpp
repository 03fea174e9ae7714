#include "Apps/ZvrsFarm/shard_task.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Apps/ZvrsFarm/farm_files.h"
#include "Apps/ZvrsFarm/farm_limits.h"
#include "Apps/ZvrsRender/run_setup.h"
#include "program/config_json.h"
#include "program/failure.h"
#include "render/batch_render.h"

namespace zvrs {

namespace {

std::string hostName() {
  char name[256] = {0};
  ::gethostname(name, sizeof name - 1);
  return name;
}

double milliseconds(const TimingRecord& timing) {
  return double(timing.stamps[1] - timing.stamps[0]) * 1000.0 / double(timing.frequency);
}

std::string manifestText(const FarmJob& job, uint32_t task, const SampleRange& range, uint32_t total,
                         const RunSetup& run, const TimingRecord& timing) {
  picojson::object manifest;
  manifest["frame"] = picojson::value(double(frameOfTask(job, task)));
  manifest["shard"] = picojson::value(double(shardOfTask(job, task)));
  manifest["first"] = picojson::value(double(range.first));
  manifest["count"] = picojson::value(double(range.count));
  manifest["total"] = picojson::value(double(total));
  picojson::array elements;
  for (const OutputElement& element : run.elements) elements.push_back(picojson::value(element.name));
  manifest["elements"] = picojson::value(elements);
  manifest["render.time.ms"] = picojson::value(milliseconds(timing));
  manifest["update.time.ms"] = picojson::value(double(run.updateTimeMs));
  manifest["first_iteration.ms"] = picojson::value(double(run.renderTimeMs + run.updateTimeMs));
  manifest["host"] = picojson::value(hostName());
  return picojson::value(manifest).serialize(true);
}

}  // namespace

int runShardTask(const FarmJob& job, uint32_t task) {
  if (task >= taskCount(job)) {
    std::fprintf(stderr, "zvrsFarm task: task %u does not exist, the job has %u\n", task, taskCount(job));
    return 1;
  }
  // A retried task starts over: its earlier manifest and failure no longer hold.
  const std::string folder = taskFolder(job, task);
  if (!makeFolders(folder)) {
    std::fprintf(stderr, "zvrsFarm task: the folder %s cannot be made: %s\n", folder.c_str(), std::strerror(errno));
    return 1;
  }
  ::unlink(manifestPath(job, task).c_str());
  ::unlink(failedMarkerPath(job, task).c_str());
  writeFileAtomically(runningMarkerPath(job, task), hostName() + " " + std::to_string(::getpid()) + "\n");
  if (::chdir(job.workingDirectory.c_str()) != 0) {
    std::fprintf(stderr, "zvrsFarm task: cannot enter %s: %s\n", job.workingDirectory.c_str(), std::strerror(errno));
    return 1;
  }

  const ConfigDocument document = frameDocument(job, frameOfTask(job, task));
  const std::string refusal = farmRefusal(document);
  if (!refusal.empty()) {
    std::fprintf(stderr, "zvrsFarm task: %s\n", refusal.c_str());
    return 1;
  }
  std::vector<std::string> outputs = readOutputList(document, "output");
  if (outputs.empty()) outputs.push_back("out.png");
  // Declared before the run: the library calls back into it until tearDownRun deletes the context.
  ProgressRecord progress;
  RunSetup run;
  setUpRun(job.sceneFile, document, outputs, &progress, run);

  const uint32_t total = run.settings.iterations;
  if (total < job.shards) {
    std::fprintf(stderr, "zvrsFarm task: a frame has %u samples (\"iterations\"), fewer than the %u shards\n", total,
                 job.shards);
    return 1;
  }
  const SampleRange range = shardSamples(total, shardOfTask(job, task), job.shards);
  std::printf("zvrsFarm task %u: %s, samples %u to %u of %u\n", task, describeTask(job, task).c_str(), range.first,
              range.first + range.count - 1, total);
  CHECK_STATUS(zvrContextSetParameterByKey1u(run.context, ZVR_CONTEXT_FIRST_SAMPLE_INDEX, range.first), run.context,
               "ZVR context setting \"first sample index\" failed.", Critical);
  RenderSettings shardSettings = run.settings;
  shardSettings.iterations = range.count;
  TimingRecord timing;
  timing.frequency = highResolutionCounterFrequency();
  if (renderTimedBatches(run.context, shardSettings, progress, timing) != ZVR_SUCCESS) stopProgram();

  for (size_t i = 0; i < run.elements.size(); ++i) {
    const std::string path = accumulationPath(job, task, i);
    CHECK_STATUS(zvrFrameBufferSaveAccumulation(run.elements[i].framebuffer, path.c_str()), run.context,
                 "Saving a shard's accumulation failed.", Critical);
  }
  if (!writeFileAtomically(manifestPath(job, task), manifestText(job, task, range, total, run, timing))) {
    std::fprintf(stderr, "zvrsFarm task: %s cannot be written\n", manifestPath(job, task).c_str());
    return 1;
  }
  ::unlink(runningMarkerPath(job, task).c_str());
  tearDownRun(run);
  std::printf("zvrsFarm task %u: done in %.0f ms of rendering\n", task, milliseconds(timing));
  return 0;
}

}  // namespace zvrs
