// The interactive viewer: a window that shows the colour output batch after batch while the user
// moves the camera, changes depth limits and hides shapes. It saves no image.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "program/config_document.h"
#include "program/render_settings.h"
#include "program/run_records.h"
#include "viewer/viewer_state.h"

namespace zvrs {

struct ViewerResult {
  int32_t status = 0;  // 0 when the window was closed, -1 when none could be opened
  std::string reason;  // why no window could be opened
};

void viewerConstruct(ViewerState& viewer);
// Makes this viewer the one the window's key callback reaches.
void viewerInit(ViewerState& viewer);
// Runs until the window is closed; the last batch's stamps are left in `timing`.
ViewerResult viewerMain(ViewerState& viewer, const std::vector<int32_t>& pluginKinds, const ConfigDocument& document,
                        ZvrContext context, ZvrScene scene, const RenderSettings& settings,
                        std::vector<OutputElement>& elements, TimingRecord& timing);

}  // namespace zvrs
