// The integrals behind the microfacet albedo tables, evaluated once at build time by
// albedo_table_gen (which writes albedo_tables.cpp) so that no render pays for them.
#pragma once

#include <algorithm>
#include <cmath>

#include "kernel/microfacet.h"

namespace zvr::kernel::albedo {

// Nodes in cos(theta) and in sqrt(alpha) (the artist's roughness), where E changes most evenly.
constexpr int kNodes = 32;
// Indices of refraction 1, 1.125, ... 3: glTF materials rarely go beyond.
constexpr int kIorNodes = 17;
constexpr float kIorMax = 3.0f;
// Visible-normal samples per node along each axis of the unit square.
constexpr int kConductorStrata = 48;
// Leaving the denser side, total internal reflection makes the integrand jump, and a coarse grid
// misses up to 1% there.
constexpr int kDielectricStrataEntering = 32, kDielectricStrataLeaving = 64;

inline float nodeCosine(int ci) { return std::max(0.02f, float(ci) / (kNodes - 1)); }
// The dielectric tables take their nodes in sqrt(cos(theta)), dense towards grazing angles where
// the albedo falls steeply.
inline float dielectricNodeCosine(int ci) {
  float t = float(ci) / (kNodes - 1);
  return std::max(1e-3f, t * t);
}
inline float nodeAlpha(int ri) {
  float roughness = float(ri) / (kNodes - 1);
  return std::max(1e-4f, roughness * roughness);
}
inline float nodeIor(int zi) { return 1 + (kIorMax - 1) * float(zi) / (kIorNodes - 1); }

// E(mu, alpha) for a Fresnel of one. Sampling visible normals makes each sample's weight G2 / G1,
// so the mean over a stratified grid is the albedo.
inline float conductor(float cosO, float alpha) {
  Vec3 wo(std::sqrt(std::max(0.0f, 1 - cosO * cosO)), 0, cosO);
  double sum = 0;
  for (int i = 0; i < kConductorStrata; ++i) {
    // The distribution's steep tail lies in a thin rim of the first coordinate: u1 = 1 - (1 - t)^2
    // spreads it over many strata.
    float t = (i + 0.5f) / kConductorStrata, u1 = 1 - (1 - t) * (1 - t), jacobian = 2 * (1 - t);
    for (int j = 0; j < kConductorStrata; ++j) {
      Vec3 h = ggxSampleVisible(wo, alpha, u1, (j + 0.5f) / kConductorStrata);
      Vec3 wi = reflect(wo, h);
      if (wi.z <= 0) continue;
      sum += jacobian * ggxG(wo, wi, alpha) / ggxG1(wo, alpha);
    }
  }
  return std::min(1.0f, float(sum / (kConductorStrata * kConductorStrata)));
}

// Visible normals sampled from wo, each split deterministically into its Fresnel-weighted
// reflection and refraction, each weighted G2 / G1: the mean is the energy that leaves.
inline float dielectric(float cosO, float alpha, float eta, int strata) {
  Vec3 wo(std::sqrt(std::max(0.0f, 1 - cosO * cosO)), 0, cosO);
  float g1 = ggxG1(wo, alpha);
  double sum = 0;
  for (int i = 0; i < strata; ++i) {
    // The steep tail of the distribution (where total internal reflection starts) lies in a thin
    // rim of the sampler's first coordinate, as above.
    float t = (i + 0.5f) / strata, u1 = 1 - (1 - t) * (1 - t), jacobian = 2 * (1 - t);
    for (int j = 0; j < strata; ++j) {
      Vec3 h = ggxSampleVisible(wo, alpha, u1, (j + 0.5f) / strata);
      float f = fresnelDielectric(dot(wo, h), eta);
      Vec3 wr = reflect(wo, h);
      if (wr.z > 0) sum += jacobian * f * ggxG(wo, wr, alpha) / g1;
      Vec3 wt;
      if (f < 1 && refract(wo, h, eta, wt) && wt.z < 0) sum += jacobian * (1 - f) * ggxG(wo, wt, alpha) / g1;
    }
  }
  return std::min(1.0f, float(sum / (strata * strata)));
}

// The tables, computed at build time (albedo_tables.cpp in the build tree).
// [roughness node][cosine node]
extern const float kConductorDirectional[kNodes * kNodes];
// 2 * integral of E(mu, alpha) mu dmu per roughness node.
extern const float kConductorAverage[kNodes];
// [ior node][side][roughness node][cosine node]; side 0 enters (eta = ior), side 1 leaves (1 / ior).
extern const float kDielectric[kIorNodes * 2 * kNodes * kNodes];

}  // namespace zvr::kernel::albedo
