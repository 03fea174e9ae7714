#include "kernel/microfacet_albedo.h"

#include <array>

#include "kernel/microfacet.h"

namespace zvr::kernel {
namespace {

// Nodes in cos(theta) and in sqrt(alpha) (the artist's roughness), where E changes most evenly.
constexpr int kNodes = 32;
// Visible-normal samples per node along each axis of the unit square.
constexpr int kStrata = 48;

struct AlbedoTables {
  std::array<float, kNodes * kNodes> directional{};  // [roughness node][cosine node]
  std::array<float, kNodes> average{};

  AlbedoTables() {
    for (int ri = 0; ri < kNodes; ++ri) {
      float roughness = float(ri) / (kNodes - 1);
      float alpha = std::max(1e-4f, roughness * roughness);
      for (int ci = 0; ci < kNodes; ++ci) directional[ri * kNodes + ci] = integrate(std::max(0.02f, float(ci) / (kNodes - 1)), alpha);
      // Trapezoid rule for 2 * integral of E mu dmu on the cosine nodes.
      double sum = 0;
      for (int ci = 0; ci + 1 < kNodes; ++ci) {
        float m0 = float(ci) / (kNodes - 1), m1 = float(ci + 1) / (kNodes - 1);
        sum += 0.5 * (directional[ri * kNodes + ci] * m0 + directional[ri * kNodes + ci + 1] * m1) * (m1 - m0);
      }
      average[ri] = std::min(1.0f, float(2 * sum));
    }
  }

  // Sampling visible normals makes each sample's weight G2 / G1 (Fresnel one), so the mean over
  // a stratified grid is the albedo.
  static float integrate(float cosO, float alpha) {
    Vec3 wo(std::sqrt(std::max(0.0f, 1 - cosO * cosO)), 0, cosO);
    double sum = 0;
    for (int i = 0; i < kStrata; ++i) {
      // The distribution's steep tail lies in a thin rim of the first coordinate: u1 = 1 - (1 - t)^2
      // spreads it over many strata.
      float t = (i + 0.5f) / kStrata, u1 = 1 - (1 - t) * (1 - t), jacobian = 2 * (1 - t);
      for (int j = 0; j < kStrata; ++j) {
        Vec3 h = ggxSampleVisible(wo, alpha, u1, (j + 0.5f) / kStrata);
        Vec3 wi = reflect(wo, h);
        if (wi.z <= 0) continue;
        sum += jacobian * ggxG(wo, wi, alpha) / ggxG1(wo, alpha);
      }
    }
    return std::min(1.0f, float(sum / (kStrata * kStrata)));
  }
};

const AlbedoTables& tables() {
  static const AlbedoTables t;
  return t;
}

float roughnessCoordinate(float alpha) { return clamp01(std::sqrt(std::max(0.0f, alpha))) * (kNodes - 1); }

}  // namespace

float ggxDirectionalAlbedo(float cosTheta, float alpha) {
  const AlbedoTables& t = tables();
  float x = clamp01(cosTheta) * (kNodes - 1), y = roughnessCoordinate(alpha);
  int x0 = std::min(kNodes - 2, int(x)), y0 = std::min(kNodes - 2, int(y));
  float fx = x - float(x0), fy = y - float(y0);
  const float* row0 = &t.directional[y0 * kNodes];
  const float* row1 = row0 + kNodes;
  float a = row0[x0] + (row0[x0 + 1] - row0[x0]) * fx;
  float b = row1[x0] + (row1[x0 + 1] - row1[x0]) * fx;
  return a + (b - a) * fy;
}

float ggxAverageAlbedo(float alpha) {
  const AlbedoTables& t = tables();
  float y = roughnessCoordinate(alpha);
  int y0 = std::min(kNodes - 2, int(y));
  float fy = y - float(y0);
  return t.average[y0] + (t.average[y0 + 1] - t.average[y0]) * fy;
}

}  // namespace zvr::kernel
