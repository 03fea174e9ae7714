// Directional albedo of a white GGX reflector, the quantity multiple-scattering compensation needs:
// E(mu, alpha) is the energy single scattering keeps for light arriving at cosine mu, and its
// cosine-weighted average says how much a rough surface loses overall. Inline, so that the vector
// bounce looks them up in its lanes.
#pragma once

#include "kernel/albedo_integrals.h"

namespace zvr::kernel {

namespace albedo {
inline float roughnessCoordinate(float alpha) { return clamp01(std::sqrt(std::max(0.0f, alpha))) * (kNodes - 1); }
}  // namespace albedo

// E(mu, alpha) for a Fresnel of one, interpolated from a table computed at build time.
inline float ggxDirectionalAlbedo(float cosTheta, float alpha) {
  using albedo::kNodes;
  float x = clamp01(cosTheta) * (kNodes - 1), y = albedo::roughnessCoordinate(alpha);
  int x0 = std::min(kNodes - 2, int(x)), y0 = std::min(kNodes - 2, int(y));
  float fx = x - float(x0), fy = y - float(y0);
  // One 32-bit index for all four corners, which a vector loop gathers by.
  const float* table = albedo::kConductorDirectional;
  const int i = y0 * kNodes + x0;
  float a = table[i] + (table[i + 1] - table[i]) * fx;
  float b = table[i + kNodes] + (table[i + kNodes + 1] - table[i + kNodes]) * fx;
  return a + (b - a) * fy;
}

// 2 * integral of E(mu, alpha) mu dmu over [0, 1].
inline float ggxAverageAlbedo(float alpha) {
  using albedo::kNodes;
  float y = albedo::roughnessCoordinate(alpha);
  int y0 = std::min(kNodes - 2, int(y));
  float fy = y - float(y0);
  return albedo::kConductorAverage[y0] + (albedo::kConductorAverage[y0 + 1] - albedo::kConductorAverage[y0]) * fy;
}

}  // namespace zvr::kernel
