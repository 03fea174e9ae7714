#include "kernel/microfacet_albedo.h"

#include "kernel/albedo_integrals.h"

namespace zvr::kernel {
namespace {

using albedo::kNodes;

float roughnessCoordinate(float alpha) { return clamp01(std::sqrt(std::max(0.0f, alpha))) * (kNodes - 1); }

}  // namespace

float ggxDirectionalAlbedo(float cosTheta, float alpha) {
  float x = clamp01(cosTheta) * (kNodes - 1), y = roughnessCoordinate(alpha);
  int x0 = std::min(kNodes - 2, int(x)), y0 = std::min(kNodes - 2, int(y));
  float fx = x - float(x0), fy = y - float(y0);
  const float* row0 = &albedo::kConductorDirectional[y0 * kNodes];
  const float* row1 = row0 + kNodes;
  float a = row0[x0] + (row0[x0 + 1] - row0[x0]) * fx;
  float b = row1[x0] + (row1[x0 + 1] - row1[x0]) * fx;
  return a + (b - a) * fy;
}

float ggxAverageAlbedo(float alpha) {
  float y = roughnessCoordinate(alpha);
  int y0 = std::min(kNodes - 2, int(y));
  float fy = y - float(y0);
  return albedo::kConductorAverage[y0] + (albedo::kConductorAverage[y0 + 1] - albedo::kConductorAverage[y0]) * fy;
}

}  // namespace zvr::kernel
