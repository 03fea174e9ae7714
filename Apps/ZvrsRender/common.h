// Moving RenderSettings across the library boundary: the context's values after the import in,
// the finished record back out.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/ZvrCore.h"
#include "program/render_settings.h"

namespace zvrs {

void readSettingsFromEngine(RenderSettings& settings, ZvrContext context, const std::vector<int32_t>& pluginKinds);
void applySettingsToEngine(const RenderSettings& settings, ZvrContext context, const std::vector<int32_t>& pluginKinds);

}  // namespace zvrs
