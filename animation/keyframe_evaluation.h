// Animation channels copied from the import, and the posing of the scene at one time.
#pragma once

#include <cstdint>

#include "animation/animation_state.h"

namespace zvrs {

// Copies every animation record; a record naming no group throws std::out_of_range.
void captureAnimations(AnimationState& state);
// Samples every channel at `time`, merges with the groups' bases and sends each object's changed
// matrix to the render library.
void evaluateAnimation(AnimationState& state, float time, uint32_t tick);

// Stage two and three alone: every group's local matrix for `time`, no library call.
void evaluateGroupMatrices(AnimationState& state, float time, uint32_t tick);

}  // namespace zvrs
