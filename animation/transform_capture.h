// Capture of the imported hierarchy: objects with their own matrices and parent groups, and every
// group's base matrix.
#pragma once

#include <cstdint>
#include <string>

#include "animation/animation_state.h"

namespace zvrs {

// Replaces what `state` held with the objects and groups of the current import.
void captureImportedObjects(AnimationState& state);
// The group's index, capturing it and its ancestors on first sight; -1 for an empty name.
int32_t captureGroup(AnimationState& state, const std::string& name);

}  // namespace zvrs
