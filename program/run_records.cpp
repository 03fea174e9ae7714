#include <chrono>

#include "program/run_records.h"

namespace zvrs {

int64_t readHighResolutionCounter() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// The counter ticks in nanoseconds.
int64_t highResolutionCounterFrequency() { return 1000000000; }

}  // namespace zvrs
