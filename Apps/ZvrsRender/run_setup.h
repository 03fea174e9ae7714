// Everything one run creates in the libraries before it renders, in zvrsRender64's order: plug-in,
// context, callbacks, scene, animation posed at "animation.time", settings, camera, sky, layers,
// output elements and post effects; and their deletion. The farm's shards and merges set up the
// same way, so a shard renders exactly what one long run renders.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "animation/animation_state.h"
#include "engine/ZvrCore.h"
#include "program/config_document.h"
#include "program/render_settings.h"
#include "program/run_records.h"

namespace zvrs {

// Filled in place: the library's callbacks keep pointers to the time fields, so it never moves.
struct RunSetup {
  std::vector<int32_t> pluginIds;
  std::vector<int32_t> pluginKinds;
  ZvrContext context = nullptr;
  ZvrMaterialSystem materialSystem = nullptr;
  ZvrScene scene = nullptr;
  AnimationState animation;
  RenderSettings settings;
  std::vector<OutputElement> elements;
  std::vector<PostEffectEntry> postEffects;
  float updateTimeMs = 0.0f;
  float renderTimeMs = 0.0f;

  RunSetup() = default;
  RunSetup(const RunSetup&) = delete;
  RunSetup& operator=(const RunSetup&) = delete;
};

// A failure is reported and ends the process, as in zvrsRender64. `progress` must outlive the
// context (the library may call back until it is deleted).
void setUpRun(const std::string& sceneFile, const ConfigDocument& document, const std::vector<std::string>& outputs,
              ProgressRecord* progress, RunSetup& run);
// Deletes what setUpRun created, reports leaks, deletes the context.
void tearDownRun(RunSetup& run);

}  // namespace zvrs
