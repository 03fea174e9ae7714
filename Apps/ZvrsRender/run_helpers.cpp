#include "Apps/ZvrsRender/run_helpers.h"

#include <cstdio>
#include <map>

namespace zvrs {

std::string makeTempOcioName(const std::string& sceneFile) {
  const size_t dot = sceneFile.rfind('.');
  const std::string stem = dot == std::string::npos ? std::string() : sceneFile.substr(0, dot);
  return stem + "_TEMP_ZVRS_OCIO";
}

bool cameraModeFor(const std::string& cameraType, uint32_t* mode) {
  static const std::map<std::string, uint32_t> modes = {{"360", 3}, {"360vr", 4}, {"fisheye", 7}};
  auto found = modes.find(cameraType);
  if (found == modes.end()) return false;
  *mode = found->second;
  return true;
}

void printTimeSummary(const TimingRecord& timing, float firstIteration, float updateTimeMs, float renderTimeMs,
                      bool inMilliseconds) {
  const char* unit = inMilliseconds ? "ms" : "sec";
  const float divisor = inMilliseconds ? 1.0f : 1000.0f;
  const float elapsed = static_cast<float>(static_cast<double>(timing.stamps[1]) * 1000.0 -
                                           static_cast<double>(timing.stamps[0]) * 1000.0);
  // A run that never rendered has no frequency; its total is 0 rather than a division by zero.
  const float total = timing.frequency != 0 ? elapsed / static_cast<float>(timing.frequency) : 0.0f;
  std::printf("Total Render Time = %.3f %s :\n", total / divisor, unit);
  std::printf("  - %.3f %s for first iteration (%.3f %s for update time ; %.3f %s for rendering time)\n",
              firstIteration / divisor, unit, updateTimeMs / divisor, unit, renderTimeMs / divisor, unit);
  std::printf("  - %.3f %s for other iterations\n", (total - firstIteration) / divisor, unit);
}

}  // namespace zvrs
