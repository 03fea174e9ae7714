#include "animation/matrix4.h"

#include <cmath>

namespace zvrs {

Matrix4 identityMatrix() { return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }

Matrix4 multiply(const Matrix4& a, const Matrix4& b) {
  Matrix4 out{};
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      float sum = 0.0f;
      for (int k = 0; k < 4; ++k) sum += at(a, r, k) * at(b, k, c);
      at(out, r, c) = sum;
    }
  }
  return out;
}

Matrix4 transpose(const Matrix4& m) {
  Matrix4 out{};
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) at(out, r, c) = at(m, c, r);
  return out;
}

namespace {

// Cofactor expansion; the adjugate is wanted for the inverse anyway.
Matrix4 adjugate(const Matrix4& m) {
  Matrix4 adj{};
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      float minor[9];
      int n = 0;
      for (int i = 0; i < 4; ++i) {
        if (i == r) continue;
        for (int j = 0; j < 4; ++j) {
          if (j == c) continue;
          minor[n++] = at(m, i, j);
        }
      }
      const float det3 = minor[0] * (minor[4] * minor[8] - minor[5] * minor[7]) -
                         minor[1] * (minor[3] * minor[8] - minor[5] * minor[6]) +
                         minor[2] * (minor[3] * minor[7] - minor[4] * minor[6]);
      at(adj, c, r) = ((r + c) % 2 == 0 ? 1.0f : -1.0f) * det3;
    }
  }
  return adj;
}

}  // namespace

float determinant(const Matrix4& m) {
  const Matrix4 adj = adjugate(m);
  float det = 0.0f;
  for (int c = 0; c < 4; ++c) det += at(m, 0, c) * at(adj, c, 0);
  return det;
}

bool invert(const Matrix4& m, Matrix4& out) {
  const Matrix4 adj = adjugate(m);
  float det = 0.0f;
  for (int c = 0; c < 4; ++c) det += at(m, 0, c) * at(adj, c, 0);
  if (det == 0.0f) return false;
  for (int i = 0; i < 16; ++i) out[i] = adj[i] / det;
  return true;
}

Matrix4 translationMatrix(const float t[3]) {
  Matrix4 m = identityMatrix();
  at(m, 0, 3) = t[0];
  at(m, 1, 3) = t[1];
  at(m, 2, 3) = t[2];
  return m;
}

Matrix4 scaleMatrix(const float s[3]) {
  Matrix4 m = identityMatrix();
  at(m, 0, 0) = s[0];
  at(m, 1, 1) = s[1];
  at(m, 2, 2) = s[2];
  return m;
}

Matrix4 quaternionMatrix(const float q[4]) {
  const float x = q[0], y = q[1], z = q[2], w = q[3];
  const float s = 2.0f / std::sqrt(x * x + y * y + z * z + w * w);
  Matrix4 m = identityMatrix();
  at(m, 0, 0) = 1.0f - (z * z + y * y) * s;
  at(m, 0, 1) = (y * x - w * z) * s;
  at(m, 0, 2) = (z * x + w * y) * s;
  at(m, 1, 0) = (w * z + y * x) * s;
  at(m, 1, 1) = 1.0f - (z * z + x * x) * s;
  at(m, 1, 2) = (z * y - w * x) * s;
  at(m, 2, 0) = (z * x - w * y) * s;
  at(m, 2, 1) = (w * x + z * y) * s;
  at(m, 2, 2) = 1.0f - (x * x + y * y) * s;
  return m;
}

Matrix4 composeTrs(const float translation[3], const float quaternion[4], const float scale[3]) {
  return multiply(multiply(translationMatrix(translation), quaternionMatrix(quaternion)), scaleMatrix(scale));
}

}  // namespace zvrs
