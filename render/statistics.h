// The JSON statistics document of a run, printed line by line in a fixed order.
#pragma once

#include <string>
#include <vector>

#include "ZvrCore.h"
#include "config_document.h"
#include "render_settings.h"
#include "run_records.h"

void WriteStatistics(const std::string& sceneFile, const ConfigDocument& document, ZvrContext context,
                     const RenderSettings& settings, const std::vector<std::string>& outputs,
                     const std::vector<OutputElement>& elements, const std::vector<PostEffectEntry>& postEffects,
                     const TimingRecord& timing, float firstIteration);
