// Animation channels copied from the import, and the posing of the scene at one time.
#pragma once

#include <cstdint>
#include <vector>

#include "ZvrLoadStore.h"

struct AnimationChannel {
  ZvrsAnimationRecord record;  // as the load/store library gave it; its pointers die with the import
  int32_t groupIndex = -1;
  std::vector<float> times;
  std::vector<float> values;
  uint32_t componentCount = 0;
};

extern std::vector<AnimationChannel> animationChannels;
extern float animationEndTime;
extern bool transformsChanged;

// Copies every animation record; a record naming no group throws std::out_of_range.
void CaptureAnimations();
// Samples every channel at `time`, merges with the groups' bases and sends each object's changed
// matrix to the render library.
void EvaluateAnimation(float time, uint32_t tick);

// Stage two and three alone: every group's local matrix for `time`, no library call.
void evaluateGroupMatrices(float time, uint32_t tick);
