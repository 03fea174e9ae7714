#include "Apps/ZvrsFarm/shard_merge.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>

#include "Apps/ZvrsFarm/farm_files.h"
#include "Apps/ZvrsRender/run_setup.h"
#include "program/config_json.h"
#include "program/failure.h"
#include "render/batch_render.h"
#include "render/statistics.h"

namespace zvrs {

namespace {

struct ShardManifest {
  uint32_t first = 0, count = 0, total = 0;
  std::vector<std::string> elements;
  double renderMs = 0, firstIterationMs = 0;
};

bool readManifest(const std::string& path, ShardManifest& manifest) {
  std::string text;
  picojson::value value;
  if (!readTextFile(path, text) || !picojson::parse(value, text).empty() || !value.is<picojson::object>()) return false;
  for (const char* key : {"first", "count", "total", "render.time.ms", "first_iteration.ms"})
    if (!value.get(key).is<double>()) return false;
  if (!value.get("elements").is<picojson::array>()) return false;
  manifest.first = uint32_t(value.get("first").get<double>());
  manifest.count = uint32_t(value.get("count").get<double>());
  manifest.total = uint32_t(value.get("total").get<double>());
  manifest.renderMs = value.get("render.time.ms").get<double>();
  manifest.firstIterationMs = value.get("first_iteration.ms").get<double>();
  for (const picojson::value& name : value.get("elements").get<picojson::array>())
    manifest.elements.push_back(name.is<std::string>() ? name.get<std::string>() : std::string());
  return true;
}

// "frame 3: shards 0, 2" per frame with missing shards, or "shards 0, 2" for a still.
std::string missingShards(const FarmJob& job) {
  std::map<int32_t, std::string> byFrame;
  for (uint32_t task = 0; task < taskCount(job); ++task) {
    if (fileExists(manifestPath(job, task))) continue;
    std::string& list = byFrame[frameOfTask(job, task)];
    list += (list.empty() ? "" : ", ") + std::to_string(shardOfTask(job, task));
  }
  std::string text;
  for (const auto& [frame, shards] : byFrame)
    text += "  " + (job.animated ? "frame " + std::to_string(frame) + ": " : std::string()) + "shards " + shards + "\n";
  return text;
}

// The shards must tile the frame's samples in order and hold the same outputs.
std::string checkShards(const std::vector<ShardManifest>& shards) {
  uint32_t next = 0;
  for (size_t i = 0; i < shards.size(); ++i) {
    if (shards[i].first != next || shards[i].total != shards[0].total || shards[i].elements != shards[0].elements)
      return "shard " + std::to_string(i) + " does not continue the samples or outputs of the shards before it";
    next += shards[i].count;
  }
  if (next != shards[0].total)
    return "the shards hold " + std::to_string(next) + " of " + std::to_string(shards[0].total) + " samples";
  return std::string();
}

bool mergeFrame(const FarmJob& job, size_t frameIndex) {
  const int32_t frame = job.frames[frameIndex];
  const std::string what = job.animated ? "frame " + std::to_string(frame) : std::string("the picture");
  std::vector<ShardManifest> shards(job.shards);
  for (uint32_t shard = 0; shard < job.shards; ++shard) {
    const uint32_t task = uint32_t(frameIndex) * job.shards + shard;
    if (!readManifest(manifestPath(job, task), shards[shard])) {
      std::fprintf(stderr, "zvrsFarm merge: %s is damaged\n", manifestPath(job, task).c_str());
      return false;
    }
  }
  const std::string inconsistency = checkShards(shards);
  if (!inconsistency.empty()) {
    std::fprintf(stderr, "zvrsFarm merge: %s: %s\n", what.c_str(), inconsistency.c_str());
    return false;
  }

  if (::chdir(job.workingDirectory.c_str()) != 0) {
    std::fprintf(stderr, "zvrsFarm merge: cannot enter %s: %s\n", job.workingDirectory.c_str(), std::strerror(errno));
    return false;
  }
  const ConfigDocument document = frameDocument(job, frame);
  std::vector<std::string> outputs = readOutputList(document, "output");
  if (outputs.empty()) outputs.push_back("out.png");
  // Declared before the run: the library calls back into it until tearDownRun deletes the context.
  ProgressRecord progress;
  RunSetup run;
  setUpRun(job.sceneFile, document, outputs, &progress, run);
  std::vector<std::string> names;
  for (const OutputElement& element : run.elements) names.push_back(element.name);
  if (names != shards[0].elements || run.settings.iterations != shards[0].total) {
    std::fprintf(stderr, "zvrsFarm merge: %s: the configuration no longer asks for what the shards rendered\n",
                 what.c_str());
    return false;
  }

  for (size_t i = 0; i < run.elements.size(); ++i) {
    CHECK_STATUS(zvrFrameBufferClear(run.elements[i].framebuffer), run.context, "ZVR framebuffer operation failed.",
                 Critical);
    for (uint32_t shard = 0; shard < job.shards; ++shard) {
      const std::string path = accumulationPath(job, uint32_t(frameIndex) * job.shards + shard, i);
      CHECK_STATUS(zvrFrameBufferAddAccumulation(run.elements[i].framebuffer, path.c_str()), run.context,
                   "Adding a shard's accumulation failed.", Critical);
    }
  }

  const std::string folder = frameOutputFolder(job, frame);
  if (!makeFolders(folder) || ::chdir(folder.c_str()) != 0) {
    std::fprintf(stderr, "zvrsFarm merge: cannot write into %s: %s\n", folder.c_str(), std::strerror(errno));
    return false;
  }
  if (saveRenderedElements(run.pluginKinds, document, run.context, run.settings, run.elements) != ZVR_SUCCESS)
    stopProgram();
  // The statistics of one long run: its render time is the shards' rendering added up.
  double renderMs = 0;
  for (const ShardManifest& shard : shards) renderMs += shard.renderMs;
  TimingRecord timing;
  timing.frequency = 1000000;
  timing.stampCount = 2;
  timing.stamps[1] = int64_t(renderMs * 1000.0);
  writeStatistics(job.sceneArgument, document, run.context, run.settings, outputs, run.elements, run.postEffects,
                  timing, float(shards[0].firstIterationMs));
  tearDownRun(run);
  std::printf("zvrsFarm merge: %s: %u shards, %u samples, written to %s\n", what.c_str(), job.shards,
              shards[0].total, folder.c_str());
  return true;
}

}  // namespace

int runMerge(const FarmJob& job) {
  const std::string missing = missingShards(job);
  if (!missing.empty()) {
    std::fprintf(stderr, "zvrsFarm merge: the job in %s is incomplete; nothing was written. Missing:\n%s",
                 job.folder.c_str(), missing.c_str());
    return 1;
  }
  for (size_t frame = 0; frame < job.frames.size(); ++frame)
    if (!mergeFrame(job, frame)) return 1;
  writeFileAtomically(job.folder + "/merged", std::to_string(job.frames.size()) + " frames\n");
  return 0;
}

}  // namespace zvrs
