// The interactive viewer's entry; its window, render thread and panel are not in this build.
#pragma once

#include <cstdint>
#include <vector>

#include "ZvrCore.h"
#include "config_document.h"
#include "render_settings.h"
#include "run_records.h"

// Answers the process exit code; it refuses with a message and 1 while the viewer is missing.
int runInteractiveViewer(const std::vector<int32_t>& pluginKinds, const ConfigDocument& document, ZvrContext context,
                         ZvrScene scene, const RenderSettings& settings, std::vector<OutputElement>& elements,
                         TimingRecord& timing);
