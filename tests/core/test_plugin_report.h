// What the tests' plug-in received in its last render call, read by the tests through
// coreTestPluginReport() in the plug-in's library.
#pragma once

#include <vector>

#include "core/plugin_api.h"

struct CoreTestPluginReport {
  zvr::RenderParams params;
  size_t shapeCount = 0, lightCount = 0;
  std::vector<uint32_t> aovs;
  uint64_t firstSampleIndex = 0;
};
