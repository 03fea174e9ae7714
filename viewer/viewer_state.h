// The viewer's state shared between its window loop, navigation and panel, and the words it shares
// with the per-batch render thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "engine/ZvrCore.h"

namespace zvrs {

struct ViewerState {
  ZvrFrameBuffer resolvedFramebuffer = nullptr;  // the viewer's own; the driver deletes it
  ZvrFrameBuffer colorFramebuffer = nullptr;     // borrowed from the "color" output element
  uint8_t keyUp = 0, keyLeft = 0, keyRight = 0, keyDown = 0, keyZ = 0, keyQ = 0, keyS = 0, keyD = 0, keyW = 0,
          keyA = 0;
  uint8_t dragging = 0;
  float lastDragDelta[2] = {0.0f, 0.0f};
  float lookAt[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  float up[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  float position[4] = {0.0f, 0.0f, 0.0f, 0.0f};
};

// One writer per direction; the join at the end of each batch is the one real ordering point.
// Atomics keep the unlocked exchange free of data races.
struct RenderExchange {
  std::atomic<uint32_t> updated{0};
  std::atomic<uint32_t> renderDone{0};
  std::atomic<uint32_t> restart{0};
  std::atomic<uint32_t> cameraChanged{0};
  std::atomic<float> progress{0.0f};
};

}  // namespace zvrs
