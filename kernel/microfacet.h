// GGX (Trowbridge-Reitz) microfacet distribution with Smith shadowing, Fresnel terms, and the
// Charlie sheen distribution. All directions are in a local frame with the normal along +z.
#pragma once

#include "kernel/vector_math.h"

namespace zvr::kernel {

// Below this alpha a lobe is treated as a perfect mirror or refractor.
constexpr float kDeltaAlpha = 1e-3f;

inline float ggxD(Vec3 h, float alpha) {
  float a2 = alpha * alpha;
  float c2 = h.z * h.z;
  float d = c2 * (a2 - 1) + 1;
  return a2 / (kPi * d * d);
}
inline float ggxLambda(Vec3 w, float alpha) {
  float c2 = w.z * w.z;
  if (c2 <= 0) return 1e30f;
  float t2 = std::max(0.0f, 1 - c2) / c2;
  return 0.5f * (-1 + std::sqrt(1 + alpha * alpha * t2));
}
inline float ggxG1(Vec3 w, float alpha) { return 1 / (1 + ggxLambda(w, alpha)); }
inline float ggxG(Vec3 wo, Vec3 wi, float alpha) { return 1 / (1 + ggxLambda(wo, alpha) + ggxLambda(wi, alpha)); }

// Density of visible normals seen from wo (wo.z > 0).
inline float ggxVisiblePdf(Vec3 wo, Vec3 h, float alpha) {
  float cosO = std::fabs(wo.z);
  if (cosO <= 0) return 0;
  return ggxG1(wo, alpha) * std::max(0.0f, dot(wo, h)) * ggxD(h, alpha) / cosO;
}

// Heitz 2018, visible-normal sampling; wo.z > 0.
inline Vec3 ggxSampleVisible(Vec3 wo, float alpha, float u1, float u2) {
  Vec3 vh = normalize(Vec3(alpha * wo.x, alpha * wo.y, wo.z));
  float lensq = vh.x * vh.x + vh.y * vh.y;
  Vec3 t1 = lensq > 0 ? Vec3(-vh.y, vh.x, 0) / std::sqrt(lensq) : Vec3(1, 0, 0);
  Vec3 t2 = cross(vh, t1);
  float r = std::sqrt(u1), sinPhi, cosPhi;
  sinCos2Pi(u2, sinPhi, cosPhi);
  float p1 = r * cosPhi, p2 = r * sinPhi;
  float s = 0.5f * (1 + vh.z);
  p2 = (1 - s) * std::sqrt(std::max(0.0f, 1 - p1 * p1)) + s * p2;
  Vec3 nh = t1 * p1 + t2 * p2 + vh * std::sqrt(std::max(0.0f, 1 - p1 * p1 - p2 * p2));
  return normalize(Vec3(alpha * nh.x, alpha * nh.y, std::max(1e-6f, nh.z)));
}

inline float roughnessToAlpha(float roughness) { return std::max(1e-4f, roughness * roughness); }

// Unpolarised Fresnel reflectance of a dielectric; eta = eta_transmitted / eta_incident.
inline float fresnelDielectric(float cosI, float eta) {
  cosI = clamp01(cosI);
  float sin2T = (1 - cosI * cosI) / (eta * eta);
  if (sin2T >= 1) return 1;
  float cosT = std::sqrt(1 - sin2T);
  float rs = (cosI - eta * cosT) / (cosI + eta * cosT);
  float rp = (eta * cosI - cosT) / (eta * cosI + cosT);
  return 0.5f * (rs * rs + rp * rp);
}

inline Vec3 fresnelSchlick(Vec3 f0, float cosI) {
  float m = clamp01(1 - cosI), m5 = m * m * m * m * m;
  return f0 + (Vec3(1) - f0) * m5;
}

// Hemispherical average of the dielectric Fresnel reflectance, 2 * integral of F(mu) mu dmu, by
// Kulla and Conty's fit for eta >= 1; from inside, reciprocity gives 1 - (1 - F_avg(1/eta)) eta^2.
inline float averageDielectricFresnel(float eta) {
  if (eta >= 1) return (eta - 1) / (4.08567f + 1.00071f * eta);
  float outside = 1 / eta;
  return 1 - (1 - (outside - 1) / (4.08567f + 1.00071f * outside)) * eta * eta;
}

// The share of light that leaves after any number of bounces between microfacets, given the
// single-bounce Fresnel average and the white albedo average (Kulla and Conty 2017).
inline float multiScatterFresnel(float fAvg, float eAvg) {
  float d = 1 - fAvg * (1 - eAvg);
  return d > 0 ? fAvg * fAvg * eAvg / d : 0;
}

// Refracts wi about n (same side as wi); false on total internal reflection.
inline bool refract(Vec3 wi, Vec3 n, float eta, Vec3& wt) {
  float cosI = dot(n, wi);
  float sin2T = std::max(0.0f, 1 - cosI * cosI) / (eta * eta);
  if (sin2T >= 1) return false;
  float cosT = std::sqrt(1 - sin2T);
  wt = -wi / eta + n * (cosI / eta - cosT);
  return true;
}

// Charlie sheen distribution (Estevez and Kulla 2017) with Neubelt's visibility.
inline float charlieD(Vec3 h, float alpha) {
  float inv = 1 / alpha;
  float sin2 = std::max(0.0f, 1 - h.z * h.z);
  return (2 + inv) * std::pow(sin2, 0.5f * inv) / (2 * kPi);
}
inline float sheenVisibility(float cosO, float cosI) { return 1 / (4 * (cosI + cosO - cosI * cosO)); }

}  // namespace zvr::kernel
