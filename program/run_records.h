// Records that main owns for one run and hands to the render, saving and statistics steps.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"

namespace zvrs {

struct RenderSettings;

// Handed to the library's progress callback; only the batch loop writes offset and scale.
struct ProgressRecord {
  float offset = 0.0f;
  float scale = 0.0f;
  const RenderSettings* settings = nullptr;
};

// High-resolution counter readings: stamps[0] at the start of rendering, stamps[1] at its end.
struct TimingRecord {
  int32_t stampCount = 0;
  int64_t frequency = 0;
  int64_t stamps[2] = {0, 0};
};

// One selected output element: an AOV name, the files it goes to, and its framebuffer.
struct OutputElement {
  std::string name;
  std::vector<std::string> fileNames;
  ZvrFrameBuffer framebuffer = nullptr;
  std::string layerName;
};

// A post effect of the context, and whether this program created (and so deletes) it.
struct PostEffectEntry {
  ZvrPostEffect handle = nullptr;
  bool owned = false;
};

// Reads the monotonic high-resolution counter and its ticks per second.
int64_t readHighResolutionCounter();
int64_t highResolutionCounterFrequency();

}  // namespace zvrs
