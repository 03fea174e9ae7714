// The thread that lives for one viewer batch: one render call, then the done flag.
#pragma once

#include <thread>

#include "engine/ZvrCore.h"
#include "viewer/viewer_state.h"

namespace zvrs {

struct RenderJob {
  bool skipRender = false;
  RenderExchange* exchange = nullptr;
  ZvrContext context = nullptr;
};

// Renders once unless told to skip, prints the advice on a missing-kernels status, and sets
// renderDone. A failed render leaves the previous pixels; the next batch tries again.
void renderJobBody(const RenderJob& job);
// Starts the batch's thread; the job is the thread's own. A failed start throws, as the standard
// library does.
std::thread startRenderThread(const RenderJob& job);

// The library's progress callback while the viewer runs: stores the value and flags new pixels.
void renderUpdateCallback(float progress, void* exchange);

}  // namespace zvrs
