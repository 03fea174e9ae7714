// The JSON statistics document of a run, printed line by line in a fixed order.
#pragma once

#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "program/config_document.h"
#include "program/render_settings.h"
#include "program/run_records.h"

namespace zvrs {

void writeStatistics(const std::string& sceneFile, const ConfigDocument& document, ZvrContext context,
                     const RenderSettings& settings, const std::vector<std::string>& outputs,
                     const std::vector<OutputElement>& elements, const std::vector<PostEffectEntry>& postEffects,
                     const TimingRecord& timing, float firstIteration);

}  // namespace zvrs
