// API trace lines of this library, in the core's format, appended to the core's trace file.
#pragma once

#include <cstdint>
#include <string>

#include "engine/ZvrCore.h"
#include "core/trace_format.h"

namespace zvr::loadstore {

using TraceLine = zvr::core::TraceLine;

// The context's trace file, else ZVR_TRACE, else the last file a context named; empty when off.
std::string tracePath(ZvrContext context);
void writeTrace(ZvrContext context, const TraceLine& line, int32_t status);
void writeTraceText(ZvrContext context, const std::string& text);

}  // namespace zvr::loadstore
