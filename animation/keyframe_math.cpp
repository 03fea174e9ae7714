#include "animation/keyframe_math.h"

#include <cmath>

namespace zvrs {

KeyInterval locateKeys(const std::vector<float>& times, float time) {
  const uint32_t count = static_cast<uint32_t>(times.size());
  uint32_t i = 0;
  while (i < count && !(times[i] > time)) ++i;
  KeyInterval interval;
  if (i >= count) {
    interval.prev = interval.next = count - 1;
  } else if (i == 0) {
    interval.prev = interval.next = 0;
  } else {
    interval.prev = i - 1;
    interval.next = i;
    interval.factor = (time - times[i - 1]) / (times[i] - times[i - 1]);
  }
  return interval;
}

namespace {

void normalise4(float q[4]) {
  const float inverse = 1.0f / std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  for (int i = 0; i < 4; ++i) q[i] *= inverse;
}

float length3(const float v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }
float dot3(const float a[3], const float b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

void normalise3(float v[3]) {
  const float length = length3(v);
  for (int i = 0; i < 3; ++i) v[i] /= length;
}

// a - b * s, in place on a.
void subtractScaled(float a[3], const float b[3], float s) {
  for (int i = 0; i < 3; ++i) a[i] -= b[i] * s;
}

void hamilton(const float a[4], const float b[4], float out[4]) {
  const float x = a[3] * b[0] + a[0] * b[3] + a[1] * b[2] - a[2] * b[1];
  const float y = a[3] * b[1] - a[0] * b[2] + a[1] * b[3] + a[2] * b[0];
  const float z = a[3] * b[2] + a[0] * b[1] - a[1] * b[0] + a[2] * b[3];
  const float w = a[3] * b[3] - a[0] * b[0] - a[1] * b[1] - a[2] * b[2];
  out[0] = x;
  out[1] = y;
  out[2] = z;
  out[3] = w;
}

}  // namespace

void slerp(const float a[4], const float b[4], float t, float out[4]) {
  float qa[4] = {a[0], a[1], a[2], a[3]};
  float qb[4] = {b[0], b[1], b[2], b[3]};
  normalise4(qa);
  normalise4(qb);
  float d = qa[0] * qb[0] + qa[1] * qb[1] + qa[2] * qb[2] + qa[3] * qb[3];
  if (d < 0.0f) {
    d = -d;
    for (float& component : qb) component = -component;
  }
  if (d > 0.9995f) {
    // Nearly parallel: a normalised linear blend avoids dividing by sin(theta) near 0.
    for (int i = 0; i < 4; ++i) out[i] = (qb[i] - qa[i]) * t + qa[i];
    normalise4(out);
    return;
  }
  const float theta = std::acos(d);
  const float u = std::sin(theta * t);
  const float v = std::sin(theta);
  const float wb = u / v;
  const float wa = std::cos(theta * t) - (u * d) / v;
  for (int i = 0; i < 4; ++i) out[i] = qa[i] * wa + qb[i] * wb;
}

bool decompose(const Matrix4& input, Decomposition& out) {
  out = Decomposition();
  if (at(input, 3, 3) == 0.0f) return false;
  Matrix4 m = input;
  const float w = at(input, 3, 3);
  for (float& element : m) element /= w;

  Matrix4 p = m;
  at(p, 0, 3) = at(p, 1, 3) = at(p, 2, 3) = 0.0f;
  at(p, 3, 3) = 1.0f;
  if (determinant(p) == 0.0f) {
    for (int i = 0; i < 3; ++i) out.translation[i] = at(m, 3, i);
    return true;
  }

  if (at(m, 0, 3) != 0.0f || at(m, 1, 3) != 0.0f || at(m, 2, 3) != 0.0f) {
    const float rhs[4] = {at(m, 0, 3), at(m, 1, 3), at(m, 2, 3), at(m, 3, 3)};
    Matrix4 inverse;
    invert(p, inverse);
    // rhs x (inverse of p) transposed, as a row vector times a matrix.
    const Matrix4 inverseTransposed = transpose(inverse);
    for (int c = 0; c < 4; ++c) {
      float sum = 0.0f;
      for (int k = 0; k < 4; ++k) sum += rhs[k] * at(inverseTransposed, k, c);
      out.perspective[c] = sum;
    }
  }

  for (int i = 0; i < 3; ++i) out.translation[i] = at(m, 3, i);

  float r0[3] = {at(m, 0, 0), at(m, 0, 1), at(m, 0, 2)};
  float r1[3] = {at(m, 1, 0), at(m, 1, 1), at(m, 1, 2)};
  float r2[3] = {at(m, 2, 0), at(m, 2, 1), at(m, 2, 2)};
  out.scale[0] = length3(r0);
  normalise3(r0);
  out.skew[2] = dot3(r0, r1);
  subtractScaled(r1, r0, out.skew[2]);
  out.scale[1] = length3(r1);
  normalise3(r1);
  out.skew[2] /= out.scale[1];
  out.skew[1] = dot3(r0, r2);
  subtractScaled(r2, r0, out.skew[1]);
  out.skew[0] = dot3(r1, r2);
  subtractScaled(r2, r1, out.skew[0]);
  out.scale[2] = length3(r2);
  normalise3(r2);
  out.skew[1] /= out.scale[2];
  out.skew[0] /= out.scale[2];

  const float cross[3] = {r1[1] * r2[2] - r1[2] * r2[1], r1[2] * r2[0] - r1[0] * r2[2],
                          r1[0] * r2[1] - r1[1] * r2[0]};
  if (dot3(r0, cross) < 0.0f) {
    for (int i = 0; i < 3; ++i) {
      out.scale[i] = -out.scale[i];
      r0[i] = -r0[i];
      r1[i] = -r1[i];
      r2[i] = -r2[i];
    }
  }

  const double threshold = 0.9999990000000025;
  out.euler[1] = std::asin(-r0[2]);
  if (std::fabs(static_cast<double>(r0[2])) < threshold) {
    const float c = std::cos(out.euler[1]);
    out.euler[0] = std::atan2(r1[2] / c, r2[2] / c);
    out.euler[2] = std::atan2(r0[1] / c, r0[0] / c);
  } else {
    out.euler[2] = 0.0f;
    if (static_cast<double>(r0[2]) < -threshold) {
      out.euler[0] = std::atan2(r1[0], r2[0]);
    } else {
      out.euler[0] = std::atan2(-r1[0], -r2[0]);
    }
  }
  return true;
}

void eulerToQuaternion(const float euler[3], float q[4]) {
  const float qx[4] = {std::sin(euler[0] / 2.0f), 0.0f, 0.0f, std::cos(euler[0] / 2.0f)};
  const float qy[4] = {0.0f, std::sin(euler[1] / 2.0f), 0.0f, std::cos(euler[1] / 2.0f)};
  const float qz[4] = {0.0f, 0.0f, std::sin(euler[2] / 2.0f), std::cos(euler[2] / 2.0f)};
  float qzy[4];
  hamilton(qz, qy, qzy);
  hamilton(qzy, qx, q);
}

namespace {

// Rebuilds T x R x S taking each part from the animated or the base matrix; shear and
// perspective do not survive. A matrix that cannot be decomposed stays as it is.
Matrix4 recompose(const Matrix4& animated, const Matrix4& base, bool hasTranslation, bool hasRotation,
                  bool hasScale) {
  Decomposition fromBase;
  Decomposition fromAnimated;
  if (!decompose(transpose(base), fromBase) || !decompose(transpose(animated), fromAnimated)) return animated;
  float baseRotation[4];
  float animatedRotation[4];
  eulerToQuaternion(fromBase.euler, baseRotation);
  eulerToQuaternion(fromAnimated.euler, animatedRotation);
  const Decomposition& scale = hasScale ? fromAnimated : fromBase;
  const Decomposition& translation = hasTranslation ? fromAnimated : fromBase;
  return composeTrs(translation.translation, hasRotation ? animatedRotation : baseRotation, scale.scale);
}

}  // namespace

Matrix4 mergeWithBase(const Matrix4& animated, const Matrix4& base, bool hasTranslation, bool hasRotation,
                      bool hasScale) {
  if (!hasTranslation && !hasRotation && !hasScale) return base;
  if (hasTranslation && hasRotation && hasScale) return animated;
  Matrix4 merged = animated;
  if (hasTranslation && !hasRotation && !hasScale) {
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 3; ++c) at(merged, r, c) = at(base, r, c);
    at(merged, 3, 3) = at(base, 3, 3);
    return merged;
  }
  if (!hasTranslation && hasRotation && hasScale) {
    for (int r = 0; r < 3; ++r) at(merged, r, 3) = at(base, r, 3);
    return merged;
  }
  return recompose(animated, base, hasTranslation, hasRotation, hasScale);
}

}  // namespace zvrs
