#include "viewer/batch_schedule.h"

namespace zvrs {

uint32_t firstFramesValue(int32_t stopAtIterations) { return stopAtIterations < 1 ? 2u : 0u; }

bool reachesStop(const BatchCounters& counters, int32_t stopAtIterations) {
  return !counters.finished && stopAtIterations > 0 && counters.totalIterations >= stopAtIterations;
}

BatchChoice chooseBatch(bool cameraMoved, int32_t frameCount, uint32_t batchSize, uint32_t firstFrames) {
  if (cameraMoved || frameCount < 2) return {1u, firstFrames};
  return {batchSize, 0u};
}

void countBatch(BatchCounters& counters, const BatchCounters& atHead, uint32_t batchIterations) {
  if (counters.finished) return;
  counters.totalIterations = atHead.totalIterations + static_cast<int32_t>(batchIterations);
  counters.frameCount = atHead.frameCount + 1;
}

}  // namespace zvrs
