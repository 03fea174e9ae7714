// Runs one render call: a snapshot of the context's scene, the parameters and the bound AOVs go to
// the active plug-in, whose progress and timings come back through the context's callbacks.
#pragma once

#include "core/plugin_api.h"

namespace zvr::core {

class Context;

zvr::SceneSnapshot buildSnapshot(const Context& context);
zvr::RenderParams buildRenderParams(const Context& context);
// Throws Failure when there is no plug-in, scene, camera or colour target, when the bound
// framebuffers differ in size, or when the plug-in fails.
void renderContext(Context& context);

}  // namespace zvr::core
