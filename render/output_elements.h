// Output elements from the configuration's "aovs" block, their framebuffers bound to the context.
#pragma once

#include <vector>

#include "engine/ZvrCore.h"
#include "program/config_document.h"
#include "program/render_settings.h"
#include "program/run_records.h"

namespace zvrs {

// Creates and clears a framebuffer. Like every step here, a failure is reported and returned, and
// the caller stops the run.
ZvrStatus createFramebuffer(ZvrContext context, const FramebufferFormat& format, const FramebufferDesc& desc,
                            ZvrFrameBuffer* framebuffer);
// Appends the selected elements in the sorted order of the block's keys; unknown names are skipped.
ZvrStatus createOutputElements(const ConfigDocument& document, ZvrContext context, const RenderSettings& settings,
                               std::vector<OutputElement>& elements);
// Installs the colour table of the id AOVs.
void setIndicesLookup(ZvrContext context);

}  // namespace zvrs
