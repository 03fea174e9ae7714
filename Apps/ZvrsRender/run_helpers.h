// Small pieces of the driver that are worth naming and testing on their own.
#pragma once

#include <cstdint>
#include <string>

#include "program/run_records.h"

namespace zvrs {

// The scene path without its last extension, plus "_TEMP_ZVRS_OCIO"; a path with no dot at all
// gives the bare suffix in the working directory.
std::string makeTempOcioName(const std::string& sceneFile);

// The camera mode for a "cameratype" text; false for "persp" and for unknown texts.
bool cameraModeFor(const std::string& cameraType, uint32_t* mode);

// The three summary lines of a run, in seconds or, with `inMilliseconds`, in milliseconds.
void printTimeSummary(const TimingRecord& timing, float firstIteration, float updateTimeMs, float renderTimeMs,
                      bool inMilliseconds);

}  // namespace zvrs
