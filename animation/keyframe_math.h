// Sampling of keyframe channels and the merge of a sampled local matrix with a group's base:
// pure functions, so every case can be checked without a scene.
#pragma once

#include <cstdint>
#include <vector>

#include "animation/matrix4.h"

namespace zvrs {

// The two keys that enclose `time` and the blend factor between them. The search is strict, so
// a time exactly on key k gives prev = k and factor 0, and equal times never divide by zero.
struct KeyInterval {
  uint32_t prev = 0;
  uint32_t next = 0;
  float factor = 0.0f;
};
KeyInterval locateKeys(const std::vector<float>& times, float time);

// Spherical interpolation of quaternions (x, y, z, w), taking the short way round.
void slerp(const float a[4], const float b[4], float t, float out[4]);

struct Decomposition {
  float translation[3] = {0, 0, 0};
  float scale[3] = {0, 0, 0};
  float skew[3] = {0, 0, 0};
  float euler[3] = {0, 0, 0};  // rotation about x, y, z; R = Rz Ry Rx
  float perspective[4] = {0, 0, 0, 0};
};
// `m` has the translation in its last row. False only when m[3][3] is 0.
bool decompose(const Matrix4& m, Decomposition& out);

// Hamilton product qz x qy x qx of the half-angle quaternions.
void eulerToQuaternion(const float euler[3], float q[4]);

// The group's local matrix: what the channels animated, the rest from the base.
Matrix4 mergeWithBase(const Matrix4& animated, const Matrix4& base, bool hasTranslation, bool hasRotation,
                      bool hasScale);

}  // namespace zvrs
