// Small vector and frame types for the kernel's hot path: plain structs, inline, no allocation.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/plugin_api.h"

namespace zvr::kernel {

constexpr float kPi = 3.14159265358979323846f;
constexpr float kInvPi = 0.31830988618379067154f;

struct Vec3 {
  float x = 0, y = 0, z = 0;
  Vec3() = default;
  constexpr Vec3(float a, float b, float c) : x(a), y(b), z(c) {}
  explicit constexpr Vec3(float s) : x(s), y(s), z(s) {}
  float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
  float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
};

inline Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator-(Vec3 a) { return {-a.x, -a.y, -a.z}; }
inline Vec3 operator*(Vec3 a, Vec3 b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
inline Vec3 operator*(Vec3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline Vec3 operator*(float s, Vec3 a) { return {a.x * s, a.y * s, a.z * s}; }
inline Vec3 operator/(Vec3 a, float s) { return a * (1.0f / s); }
inline Vec3& operator+=(Vec3& a, Vec3 b) { a = a + b; return a; }
inline Vec3& operator*=(Vec3& a, Vec3 b) { a = a * b; return a; }
inline Vec3& operator*=(Vec3& a, float s) { a = a * s; return a; }

inline float dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
inline float length(Vec3 a) { return std::sqrt(dot(a, a)); }
inline Vec3 normalize(Vec3 a) {
  float l = length(a);
  return l > 0 ? a / l : Vec3(0, 0, 1);
}
inline float maxComponent(Vec3 a) { return std::max(a.x, std::max(a.y, a.z)); }
inline float maxAbsComponent(Vec3 a) { return std::max(std::fabs(a.x), std::max(std::fabs(a.y), std::fabs(a.z))); }
inline float luminance(Vec3 c) { return 0.2126f * c.x + 0.7152f * c.y + 0.0722f * c.z; }
inline bool isBlack(Vec3 c) { return c.x <= 0 && c.y <= 0 && c.z <= 0; }
inline bool isZero(Vec3 c) { return c.x == 0 && c.y == 0 && c.z == 0; }
inline Vec3 lerp(Vec3 a, Vec3 b, float t) { return a * (1 - t) + b * t; }
inline Vec3 exp(Vec3 a) { return {std::exp(a.x), std::exp(a.y), std::exp(a.z)}; }
inline bool isFinite(Vec3 a) { return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z); }
inline float clamp01(float v) { return std::min(1.0f, std::max(0.0f, v)); }
inline float sqr(float v) { return v * v; }

// sin and cos of 2*pi*u for u in [0, 1], the angle every azimuth warp draws: reduced to an
// eighth of a turn and two short polynomials, within 3e-7 of libm and a fraction of its cost.
inline void sinCos2Pi(float u, float& sinOut, float& cosOut) {
  float t = u - float(int(u + 0.5f));              // [-0.5, 0.5]
  int quadrant = int(4 * t + 2.5f) - 2;            // nearest quarter turn, -2..2
  float x = (t - 0.25f * float(quadrant)) * (2 * kPi);  // [-pi/4, pi/4]
  float x2 = x * x;
  float s = x * (1 + x2 * (-1.0f / 6 + x2 * (1.0f / 120 + x2 * (-1.0f / 5040 + x2 * (1.0f / 362880)))));
  float c = 1 + x2 * (-0.5f + x2 * (1.0f / 24 + x2 * (-1.0f / 720 + x2 * (1.0f / 40320))));
  int q = quadrant & 3;
  float sq = (q & 1) ? c : s, cq = (q & 1) ? s : c;
  sinOut = (q & 2) ? -sq : sq;
  cosOut = ((q + 1) & 2) ? -cq : cq;
}

// Orthonormal basis with z as the normal.
struct Frame {
  Vec3 s, t, n;
  Frame() : s(1, 0, 0), t(0, 1, 0), n(0, 0, 1) {}
  explicit Frame(Vec3 normal) : n(normal) {
    // Duff et al.'s branchless basis.
    float sign = std::copysign(1.0f, n.z);
    float a = -1.0f / (sign + n.z);
    float b = n.x * n.y * a;
    s = Vec3(1 + sign * n.x * n.x * a, sign * b, -sign * n.x);
    t = Vec3(b, sign + n.y * n.y * a, -n.y);
  }
  // A basis whose s follows a tangent, made orthogonal to the normal.
  Frame(Vec3 normal, Vec3 tangent) : n(normal) {
    Vec3 ts = tangent - n * dot(n, tangent);
    float l = length(ts);
    if (l < 1e-6f) {
      *this = Frame(normal);
      return;
    }
    s = ts / l;
    t = cross(n, s);
  }
  Vec3 toLocal(Vec3 v) const { return {dot(v, s), dot(v, t), dot(v, n)}; }
  Vec3 toWorld(Vec3 v) const { return s * v.x + t * v.y + n * v.z; }
};

inline Vec3 transformPoint(const Matrix4& m, Vec3 p) {
  const float* a = m.m;
  return {p.x * a[0] + p.y * a[4] + p.z * a[8] + a[12], p.x * a[1] + p.y * a[5] + p.z * a[9] + a[13],
          p.x * a[2] + p.y * a[6] + p.z * a[10] + a[14]};
}
inline Vec3 transformVector(const Matrix4& m, Vec3 v) {
  const float* a = m.m;
  return {v.x * a[0] + v.y * a[4] + v.z * a[8], v.x * a[1] + v.y * a[5] + v.z * a[9],
          v.x * a[2] + v.y * a[6] + v.z * a[10]};
}

// Inverse of the upper 3x3 (row-vector convention). False when singular.
bool invert3x3(const Matrix4& m, float out[9]);

// Maps a normal by the inverse transpose of the upper 3x3; `inv` is from invert3x3.
inline Vec3 transformNormal(const float inv[9], Vec3 n) {
  // p' = p * A, so normals map by n' = n * A^-T, i.e. n'_i = sum_j inv[i*3+j] * n_j.
  return {inv[0] * n.x + inv[1] * n.y + inv[2] * n.z, inv[3] * n.x + inv[4] * n.y + inv[5] * n.z,
          inv[6] * n.x + inv[7] * n.y + inv[8] * n.z};
}

inline Vec3 reflect(Vec3 wo, Vec3 n) { return n * (2 * dot(wo, n)) - wo; }

}  // namespace zvr::kernel
