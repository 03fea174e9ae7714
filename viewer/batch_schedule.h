// How many iterations each viewer batch asks for, when the run stops, and what a batch counts.
#pragma once

#include <cstdint>

namespace zvrs {

struct BatchCounters {
  int32_t frameCount = 0;       // batches since the last restart
  int32_t totalIterations = 0;  // iterations asked since the window opened; restarts keep it
  bool finished = false;        // the stop was reached; never cleared
};

struct BatchChoice {
  uint32_t iterations = 1;
  uint32_t frameValue = 0;  // the library's frame hint for this batch
};

// 2 when the run has no stop, so the library may serve the first pictures cheaply; else 0.
uint32_t firstFramesValue(int32_t stopAtIterations);
// True when this batch's head reaches the stop for the first time.
bool reachesStop(const BatchCounters& counters, int32_t stopAtIterations);
// A restarted picture, or one whose camera just moved, is served by single iterations first.
BatchChoice chooseBatch(bool cameraMoved, int32_t frameCount, uint32_t batchSize, uint32_t firstFrames);
// Counts a finished batch from the values remembered at its head; nothing counts once finished.
void countBatch(BatchCounters& counters, const BatchCounters& atHead, uint32_t batchIterations);

}  // namespace zvrs
