// What the benchmarks share around a render: the process's processor time and a render host that
// reports nothing.
#pragma once

#include <sys/resource.h>

#include "core/plugin_api.h"

namespace zvr::bench {

// Processor time of the whole process, in seconds: on a shared machine wall time also counts other
// people's work.
inline double processorSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + 1e-6 * double(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
}

// A host that never aborts and keeps only the last scene update time.
class QuietHost : public RenderHost {
 public:
  void reportProgress(float) override {}
  void reportUpdateTime(float ms) override { updateMs = ms; }
  void reportFirstIterationTime(float) override {}
  bool abortRequested() const override { return false; }
  float updateMs = 0;
};

}  // namespace zvr::bench
