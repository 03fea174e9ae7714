#include "loadstore/skin_pose.h"

#include <cmath>

namespace zvr::loadstore {

bool invertAffine(const Matrix4& m, Matrix4* out) {
  // Column-major: element (row r, column c) is m[c * 4 + r].
  auto a = [&](int r, int c) { return double(m[c * 4 + r]); };
  const double c00 = a(1, 1) * a(2, 2) - a(1, 2) * a(2, 1), c01 = a(1, 2) * a(2, 0) - a(1, 0) * a(2, 2),
               c02 = a(1, 0) * a(2, 1) - a(1, 1) * a(2, 0);
  const double det = a(0, 0) * c00 + a(0, 1) * c01 + a(0, 2) * c02;
  if (!std::isfinite(det) || std::fabs(det) < 1e-12) return false;
  const double inv = 1.0 / det;
  double r[3][3];
  r[0][0] = c00 * inv;
  r[0][1] = (a(0, 2) * a(2, 1) - a(0, 1) * a(2, 2)) * inv;
  r[0][2] = (a(0, 1) * a(1, 2) - a(0, 2) * a(1, 1)) * inv;
  r[1][0] = c01 * inv;
  r[1][1] = (a(0, 0) * a(2, 2) - a(0, 2) * a(2, 0)) * inv;
  r[1][2] = (a(0, 2) * a(1, 0) - a(0, 0) * a(1, 2)) * inv;
  r[2][0] = c02 * inv;
  r[2][1] = (a(0, 1) * a(2, 0) - a(0, 0) * a(2, 1)) * inv;
  r[2][2] = (a(0, 0) * a(1, 1) - a(0, 1) * a(1, 0)) * inv;
  Matrix4 o{};
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 3; ++col) o[col * 4 + row] = float(r[row][col]);
    o[12 + row] = float(-(r[row][0] * a(0, 3) + r[row][1] * a(1, 3) + r[row][2] * a(2, 3)));
  }
  o[15] = 1.f;
  *out = o;
  return true;
}

void applySkinning(const std::vector<uint32_t>& joints, const std::vector<float>& weights,
                   const std::vector<Matrix4>& jointMatrices, Primitive* p) {
  const size_t n = p->vertexCount();
  for (size_t v = 0; v < n; ++v) {
    Matrix4 s;
    for (float& e : s) e = 0.f;  // a sum of weighted joint matrices
    float total = 0.f;
    for (int k = 0; k < 4; ++k) {
      const float w = weights[v * 4 + k];
      if (w <= 0.f) continue;
      const Matrix4& j = jointMatrices[joints[v * 4 + k]];
      for (int e = 0; e < 16; ++e) s[e] += w * j[e];
      total += w;
    }
    if (total <= 0.f) continue;
    for (float& e : s) e /= total;
    const std::array<float, 3> pos{p->positions[v * 3], p->positions[v * 3 + 1], p->positions[v * 3 + 2]};
    const std::array<float, 3> moved = transformPoint(s, pos);
    for (int k = 0; k < 3; ++k) p->positions[v * 3 + k] = moved[k];
    auto linear = [&](const float* d, float* out) {
      const float x = d[0], y = d[1], z = d[2];
      out[0] = s[0] * x + s[4] * y + s[8] * z;
      out[1] = s[1] * x + s[5] * y + s[9] * z;
      out[2] = s[2] * x + s[6] * y + s[10] * z;
    };
    if (!p->normals.empty()) {
      // Cofactors keep normals perpendicular under non-uniform scale.
      const float* nn = &p->normals[v * 3];
      auto a = [&](int r, int c) { return s[(c % 3) * 4 + (r % 3)]; };
      // Cofactor (r, c) from the cyclic 2x2 minor, which carries the sign by itself.
      auto cof = [&](int r, int c) { return a(r + 1, c + 1) * a(r + 2, c + 2) - a(r + 1, c + 2) * a(r + 2, c + 1); };
      float out[3];
      for (int r = 0; r < 3; ++r) out[r] = cof(r, 0) * nn[0] + cof(r, 1) * nn[1] + cof(r, 2) * nn[2];
      const float len = std::sqrt(out[0] * out[0] + out[1] * out[1] + out[2] * out[2]);
      if (len > 0.f)
        for (int k = 0; k < 3; ++k) p->normals[v * 3 + k] = out[k] / len;
    }
    if (!p->tangents.empty()) {
      float out[3];
      linear(&p->tangents[v * 4], out);
      const float len = std::sqrt(out[0] * out[0] + out[1] * out[1] + out[2] * out[2]);
      if (len > 0.f)
        for (int k = 0; k < 3; ++k) p->tangents[v * 4 + k] = out[k] / len;
    }
  }
}

}  // namespace zvr::loadstore
