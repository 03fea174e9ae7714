// Turns a sampler of any interpolation into the linear keys the program samples.
#pragma once

#include <string>
#include <vector>

#include "loadstore/scene_description.h"

namespace zvr::loadstore {

constexpr int kCubicSubsteps = 8;

// `values` holds componentCount floats a key (three times that for CUBICSPLINE: in-tangent,
// value, out-tangent). Fills channel->times and channel->values; on bad input returns false with
// the reason in *problem.
bool convertToLinearKeys(uint32_t interpolation, uint32_t componentCount, const std::vector<float>& times,
                         const std::vector<float>& values, AnimationChannel* channel, std::string* problem);

}  // namespace zvr::loadstore
