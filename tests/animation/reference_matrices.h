// Matrices built the textbook way, independently of the code under test: explicit axis rotations,
// translations and scales, row-major with the translation in the last column.
#pragma once

#include <array>
#include <cmath>

namespace reference {

using M4 = std::array<double, 16>;

inline M4 identity() { return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }

inline M4 mul(const M4& a, const M4& b) {
  M4 out{};
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      for (int k = 0; k < 4; ++k) out[r * 4 + c] += a[r * 4 + k] * b[k * 4 + c];
  return out;
}

inline M4 translation(double x, double y, double z) { return {1, 0, 0, x, 0, 1, 0, y, 0, 0, 1, z, 0, 0, 0, 1}; }
inline M4 scale(double x, double y, double z) { return {x, 0, 0, 0, 0, y, 0, 0, 0, 0, z, 0, 0, 0, 0, 1}; }

inline M4 rotationX(double a) { return {1, 0, 0, 0, 0, cos(a), -sin(a), 0, 0, sin(a), cos(a), 0, 0, 0, 0, 1}; }
inline M4 rotationY(double a) { return {cos(a), 0, sin(a), 0, 0, 1, 0, 0, -sin(a), 0, cos(a), 0, 0, 0, 0, 1}; }
inline M4 rotationZ(double a) { return {cos(a), -sin(a), 0, 0, sin(a), cos(a), 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }

// Rz Ry Rx: rotation about x first.
inline M4 euler(double x, double y, double z) { return mul(rotationZ(z), mul(rotationY(y), rotationX(x))); }

}  // namespace reference
