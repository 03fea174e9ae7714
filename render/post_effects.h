// Makes sure the context has the post effects the library's own writer needs: normalization
// always, gamma correction when a gamma was asked for and the scene brought no tone or gamma.
#pragma once

#include <vector>

#include "engine/ZvrCore.h"
#include "program/config_document.h"
#include "program/render_settings.h"
#include "program/run_records.h"

namespace zvrs {

// Lists the attached effects into `effects` and adds the missing ones; a failure is reported and
// returned, and the caller stops the run.
ZvrStatus setupPostEffects(const ConfigDocument& document, ZvrContext context, const RenderSettings& settings,
                           std::vector<PostEffectEntry>& effects);

// The type of an attached post effect; `status` receives the library's answer.
uint32_t readPostEffectType(ZvrPostEffect effect, ZvrStatus& status);
// The name a post effect type is listed under, or null for a type without one.
const char* postEffectTypeName(uint32_t type);

}  // namespace zvrs
