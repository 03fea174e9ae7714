#include "loadstore/transform_math.h"

#include <cmath>

namespace zvr::loadstore {

Matrix4 identityMatrix() { return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }

Matrix4 matrixFromTrs(const Trs& trs) {
  const float x = trs.rotation[0], y = trs.rotation[1], z = trs.rotation[2], w = trs.rotation[3];
  const float sx = trs.scale[0], sy = trs.scale[1], sz = trs.scale[2];
  Matrix4 m{};
  m[0] = (1 - 2 * (y * y + z * z)) * sx;
  m[1] = (2 * (x * y + z * w)) * sx;
  m[2] = (2 * (x * z - y * w)) * sx;
  m[4] = (2 * (x * y - z * w)) * sy;
  m[5] = (1 - 2 * (x * x + z * z)) * sy;
  m[6] = (2 * (y * z + x * w)) * sy;
  m[8] = (2 * (x * z + y * w)) * sz;
  m[9] = (2 * (y * z - x * w)) * sz;
  m[10] = (1 - 2 * (x * x + y * y)) * sz;
  m[12] = trs.translation[0];
  m[13] = trs.translation[1];
  m[14] = trs.translation[2];
  m[15] = 1;
  return m;
}

Matrix4 multiply(const Matrix4& a, const Matrix4& b) {
  Matrix4 r{};
  for (int col = 0; col < 4; ++col)
    for (int row = 0; row < 4; ++row) {
      float sum = 0;
      for (int k = 0; k < 4; ++k) sum += a[k * 4 + row] * b[col * 4 + k];
      r[col * 4 + row] = sum;
    }
  return r;
}

std::array<float, 3> transformPoint(const Matrix4& m, const std::array<float, 3>& p) {
  return {m[0] * p[0] + m[4] * p[1] + m[8] * p[2] + m[12], m[1] * p[0] + m[5] * p[1] + m[9] * p[2] + m[13],
          m[2] * p[0] + m[6] * p[1] + m[10] * p[2] + m[14]};
}

void normalizeQuaternion(float* q) {
  const float len = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  if (len > 0.f && std::isfinite(len)) {
    for (int i = 0; i < 4; ++i) q[i] /= len;
  } else {
    q[0] = q[1] = q[2] = 0.f;
    q[3] = 1.f;
  }
}

bool decomposeMatrix(const Matrix4& m, Trs* out) {
  for (float v : m)
    if (!std::isfinite(v)) return false;
  float c[3][3];
  float s[3];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) c[i][j] = m[i * 4 + j];
    s[i] = std::sqrt(c[i][0] * c[i][0] + c[i][1] * c[i][1] + c[i][2] * c[i][2]);
    if (s[i] == 0.f) return false;
  }
  const float det = c[0][0] * (c[1][1] * c[2][2] - c[1][2] * c[2][1]) - c[1][0] * (c[0][1] * c[2][2] - c[0][2] * c[2][1]) +
                    c[2][0] * (c[0][1] * c[1][2] - c[0][2] * c[1][1]);
  if (det < 0) s[0] = -s[0];  // a mirror goes into one scale so the rest stays a rotation
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) c[i][j] /= s[i];
  // c[col][row] is now a rotation matrix R(row, col).
  const float r00 = c[0][0], r11 = c[1][1], r22 = c[2][2];
  float q[4];
  const float trace = r00 + r11 + r22;
  if (trace > 0) {
    const float k = 0.5f / std::sqrt(trace + 1.f);
    q[3] = 0.25f / k;
    q[0] = (c[1][2] - c[2][1]) * k;
    q[1] = (c[2][0] - c[0][2]) * k;
    q[2] = (c[0][1] - c[1][0]) * k;
  } else if (r00 > r11 && r00 > r22) {
    const float k = 2.f * std::sqrt(1.f + r00 - r11 - r22);
    q[3] = (c[1][2] - c[2][1]) / k;
    q[0] = 0.25f * k;
    q[1] = (c[1][0] + c[0][1]) / k;
    q[2] = (c[2][0] + c[0][2]) / k;
  } else if (r11 > r22) {
    const float k = 2.f * std::sqrt(1.f + r11 - r00 - r22);
    q[3] = (c[2][0] - c[0][2]) / k;
    q[0] = (c[1][0] + c[0][1]) / k;
    q[1] = 0.25f * k;
    q[2] = (c[2][1] + c[1][2]) / k;
  } else {
    const float k = 2.f * std::sqrt(1.f + r22 - r00 - r11);
    q[3] = (c[0][1] - c[1][0]) / k;
    q[0] = (c[2][0] + c[0][2]) / k;
    q[1] = (c[2][1] + c[1][2]) / k;
    q[2] = 0.25f * k;
  }
  if (q[3] < 0)  // one of the two equal quaternions, so equal matrices give equal blocks
    for (float& c : q) c = -c;
  normalizeQuaternion(q);
  out->translation = {m[12], m[13], m[14]};
  out->rotation = {q[0], q[1], q[2], q[3]};
  out->scale = {s[0], s[1], s[2]};
  return true;
}

}  // namespace zvr::loadstore
