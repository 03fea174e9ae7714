// The imported transform hierarchy and its animation channels, copied out of the load/store
// library before it releases its import data. One object per run, owned by the driver.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/ZvrCore.h"
#include "engine/ZvrLoadStore.h"
#include "animation/matrix4.h"

namespace zvrs {

struct TransformGroup {
  std::string name;
  int32_t parentIndex = -1;
  Matrix4 animated = identityMatrix();
  Matrix4 base = identityMatrix();
  uint8_t hasRotation = 0;
  uint8_t hasTranslation = 0;
  uint8_t hasScale = 0;
  uint32_t evaluationTick = 0;
};

struct AnimationChannel {
  ZvrsAnimationRecord record;  // as the load/store library gave it; its pointers die with the import
  int32_t groupIndex = -1;
  std::vector<float> times;
  std::vector<float> values;
  uint32_t componentCount = 0;
};

struct AnimationState {
  std::vector<TransformGroup> transformGroups;
  std::unordered_map<std::string, int32_t> groupIndexByName;
  std::map<ZvrObject, int32_t> shapeGroups;
  std::map<ZvrObject, int32_t> lightGroups;
  std::map<ZvrObject, int32_t> cameraGroups;
  std::map<ZvrObject, Matrix4> objectBaseTransforms;
  std::map<ZvrObject, Matrix4> objectAppliedTransforms;
  std::vector<AnimationChannel> animationChannels;
  float animationEndTime = 0.0f;
  bool transformsChanged = false;
};

}  // namespace zvrs
