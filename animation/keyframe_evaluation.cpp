#include "animation/keyframe_evaluation.h"

#include <stdexcept>
#include <string>

#include "animation/keyframe_math.h"
#include "animation/transform_capture.h"

namespace zvrs {

namespace {

uint32_t componentsOfKind(uint32_t kind) {
  switch (kind) {
    case ZVRS_ANIMATION_TRANSLATION: return 3;
    case ZVRS_ANIMATION_ROTATION: return 4;
    case ZVRS_ANIMATION_SCALE: return 3;
    default: return 0;
  }
}

void sampleChannel(AnimationState& state, const AnimationChannel& channel, float time, uint32_t tick) {
  if (channel.times.size() != channel.record.keyCount || channel.times.empty()) return;
  const KeyInterval keys = locateKeys(channel.times, time);
  const uint32_t kind = channel.record.kind;
  float value[4] = {0, 0, 0, 0};
  if (kind == ZVRS_ANIMATION_ROTATION) {
    slerp(&channel.values[keys.prev * 4], &channel.values[keys.next * 4], keys.factor, value);
  } else if (channel.componentCount >= 3) {
    const float* prev = &channel.values[keys.prev * channel.componentCount];
    const float* next = &channel.values[keys.next * channel.componentCount];
    for (int c = 0; c < 3; ++c) value[c] = (next[c] - prev[c]) * keys.factor + prev[c];
  }

  TransformGroup& group = state.transformGroups[channel.groupIndex];
  if (group.evaluationTick != tick) {
    group.animated = identityMatrix();
    group.evaluationTick = tick;
  }
  Matrix4 key = identityMatrix();
  if (kind == ZVRS_ANIMATION_TRANSLATION) {
    group.hasTranslation = 1;
    key = translationMatrix(value);
  } else if (kind == ZVRS_ANIMATION_ROTATION) {
    group.hasRotation = 1;
    key = quaternionMatrix(value);
  } else if (kind == ZVRS_ANIMATION_SCALE) {
    group.hasScale = 1;
    key = scaleMatrix(value);
  }
  // Several channels of one kind on one group accumulate.
  group.animated = multiply(key, group.animated);
}

using InfoFunction = ZvrStatus (*)(ZvrObject, uint32_t, size_t, void*, size_t*);
using SetTransformFunction = ZvrStatus (*)(ZvrObject, int, const float*);

void applyToObjects(AnimationState& state, const std::map<ZvrObject, int32_t>& objects, InfoFunction info,
                    SetTransformFunction send) {
  for (const auto& [object, groupIndex] : objects) {
    char name[256] = {0};
    info(object, ZVR_OBJECT_NAME, sizeof(name), name, nullptr);
    Matrix4 world = state.objectBaseTransforms[object];
    // The nearest group first, the root last.
    for (int32_t index = groupIndex; index != -1; index = state.transformGroups[index].parentIndex) {
      world = multiply(state.transformGroups[index].animated, world);
    }
    auto applied = state.objectAppliedTransforms.find(object);
    if (applied == state.objectAppliedTransforms.end()) {
      applied = state.objectAppliedTransforms.emplace(object, identityMatrix()).first;
    }
    // Unmoved objects cost the render library no update.
    if (applied->second == world) continue;
    send(object, 1, world.data());
    applied->second = world;
    state.transformsChanged = true;
  }
}

}  // namespace

void captureAnimations(AnimationState& state) {
  state.animationChannels.clear();
  state.animationEndTime = 0.0f;
  for (uint32_t index = 0;; ++index) {
    const ZvrsAnimationRecord* record = zvrsGetAnimation(index);
    if (record == nullptr) break;
    const std::string groupName = record->groupName != nullptr ? record->groupName : "";
    if (state.groupIndexByName.find(groupName) == state.groupIndexByName.end()) captureGroup(state, groupName);
    const auto group = state.groupIndexByName.find(groupName);
    if (group == state.groupIndexByName.end()) throw std::out_of_range("invalid unordered_map<K, T> key");

    AnimationChannel channel;
    channel.record = *record;
    channel.groupIndex = group->second;
    channel.componentCount = componentsOfKind(record->kind);
    if (record->timeCount > 0) channel.times.assign(record->times, record->times + record->timeCount);
    const size_t valueCount = static_cast<size_t>(record->keyCount) * channel.componentCount;
    if (valueCount > 0) channel.values.assign(record->values, record->values + valueCount);
    if (!channel.times.empty() && channel.times.back() > state.animationEndTime) state.animationEndTime = channel.times.back();
    state.animationChannels.push_back(std::move(channel));
  }
}

void evaluateGroupMatrices(AnimationState& state, float time, uint32_t tick) {
  for (TransformGroup& group : state.transformGroups) {
    group.animated = identityMatrix();
    group.hasRotation = group.hasTranslation = group.hasScale = 0;
  }
  // Scale first, then rotation, then translation, so that animated = T x R x S.
  const uint32_t kindOrder[3] = {ZVRS_ANIMATION_SCALE, ZVRS_ANIMATION_ROTATION, ZVRS_ANIMATION_TRANSLATION};
  for (uint32_t kind : kindOrder) {
    for (const AnimationChannel& channel : state.animationChannels) {
      if (channel.record.kind == kind) sampleChannel(state, channel, time, tick);
    }
  }
  for (TransformGroup& group : state.transformGroups) {
    group.animated = mergeWithBase(group.animated, group.base, group.hasTranslation != 0, group.hasRotation != 0,
                                   group.hasScale != 0);
  }
}

void evaluateAnimation(AnimationState& state, float time, uint32_t tick) {
  evaluateGroupMatrices(state, time, tick);
  applyToObjects(state, state.shapeGroups, zvrShapeGetInfo, zvrShapeSetTransform);
  applyToObjects(state, state.lightGroups, zvrLightGetInfo, zvrLightSetTransform);
  applyToObjects(state, state.cameraGroups, zvrCameraGetInfo, zvrCameraSetTransform);
}

}  // namespace zvrs
