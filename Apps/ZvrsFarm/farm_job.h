// A farm job as it lies in its folder on the shared file system: the plan (job.json), one folder
// per task with the shard's accumulation files and its manifest, the logs and the merged pictures.
// Task i renders shard i % shards of frame i / shards; everything follows from the plan and the
// index, so no task depends on a clock or on which node ran it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "program/config_document.h"

namespace zvrs {

struct FarmJob {
  std::string folder;          // absolute
  std::string sceneFile;       // absolute
  std::string sceneArgument;   // as the user gave it, for the statistics document
  std::string configFile;      // absolute
  std::string overrideText;    // JSON text, empty for none
  std::string workingDirectory;  // where relative paths of the configuration resolve
  uint32_t shards = 1;
  bool animated = false;       // frames given: each frame poses the scene at frame / fps
  std::vector<int32_t> frames; // one entry (0, unused) for a still
  double fps = 24.0;
  uint32_t retries = 2;        // attempts after the first one that a failed task gets
};

// The sample range [first, first + count) of shard `shard` of `shards` when a frame has `total`
// samples: contiguous, in shard order, covering every sample once.
struct SampleRange {
  uint32_t first = 0;
  uint32_t count = 0;
};
SampleRange shardSamples(uint32_t total, uint32_t shard, uint32_t shards);

// "FIRST:LAST[:STEP]" into frame numbers; false with `error` for a malformed or empty range.
bool parseFrameRange(const std::string& text, std::vector<int32_t>& frames, std::string& error);

uint32_t taskCount(const FarmJob& job);
int32_t frameOfTask(const FarmJob& job, uint32_t task);
uint32_t shardOfTask(const FarmJob& job, uint32_t task);
// "frame 12 shard 3", or "shard 3" for a still.
std::string describeTask(const FarmJob& job, uint32_t task);

std::string planPath(const std::string& jobFolder);
std::string taskFolder(const FarmJob& job, uint32_t task);
std::string accumulationPath(const FarmJob& job, uint32_t task, size_t element);
std::string manifestPath(const FarmJob& job, uint32_t task);
std::string runningMarkerPath(const FarmJob& job, uint32_t task);
std::string failedMarkerPath(const FarmJob& job, uint32_t task);
// Where the merged files of one frame go: output/ for a still, output/frame_NNNN/ otherwise.
std::string frameOutputFolder(const FarmJob& job, int32_t frame);

void saveJob(const FarmJob& job);
// False with `error` when the folder holds no readable plan.
bool loadJob(const std::string& jobFolder, FarmJob& job, std::string& error);

// The configuration a frame renders with: the file, the user's override, the frame's time and
// "gui":0, merged as zvrsRender64 merges an override (printing each changed key).
ConfigDocument frameDocument(const FarmJob& job, int32_t frame);

}  // namespace zvrs
