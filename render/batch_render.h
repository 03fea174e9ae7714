// The offline render: iterations in batches with a percentage, then every element resolved and
// saved, one file per element and name or one multilayer EXR.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/ZvrCore.h"
#include "program/config_document.h"
#include "program/render_settings.h"
#include "program/run_records.h"

namespace zvrs {

// A critical failure is reported and returned at once; the caller stops the run.
// The two halves of renderBatches, also used on their own by the farm's shards (render only) and
// merges (save only, from summed shards).
ZvrStatus renderTimedBatches(ZvrContext context, const RenderSettings& settings, ProgressRecord& progress,
                             TimingRecord& timing);
ZvrStatus saveRenderedElements(const std::vector<int32_t>& pluginKinds, const ConfigDocument& document,
                               ZvrContext context, const RenderSettings& settings,
                               std::vector<OutputElement>& elements);
ZvrStatus renderBatches(const std::vector<int32_t>& pluginKinds, const ConfigDocument& document, ZvrContext context,
                        const RenderSettings& settings, std::vector<OutputElement>& elements, ProgressRecord& progress,
                        TimingRecord& timing);

}  // namespace zvrs
