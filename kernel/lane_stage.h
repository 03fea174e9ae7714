// What the vector bounce stages share: a lane's vectors, the light sample's MIS weight and shadow
// ray, the throughput and its roulette, and the choice of instruction set at run time. Every
// expression mirrors its scalar counterpart operation for operation, comparisons included (a test
// that fails on NaN is written as one). For the stages' own files, which are built without errno
// and floating-point traps so that loops of fixed width become vector code.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <iterator>

#include "kernel/bounce_lanes.h"
#include "kernel/vector_math.h"

namespace zvr::kernel::lane_stage {

inline Vec3 at(const BounceLanes::Vec3Lanes& v, int k) { return {v.x[k], v.y[k], v.z[k]}; }
inline void put(BounceLanes::Vec3Lanes& v, int k, Vec3 a) {
  v.x[k] = a.x;
  v.y[k] = a.y;
  v.z[k] = a.z;
}
inline bool finite(float v) { return std::fabs(v) <= FLT_MAX; }
// isBlack without the short circuit, which would be a branch.
inline bool black(Vec3 c) { return (c.x <= 0) & (c.y <= 0) & (c.z <= 0); }
inline Vec3 select(bool c, Vec3 a, Vec3 b) { return {c ? a.x : b.x, c ? a.y : b.y, c ? a.z : b.z}; }

// The taken light sample against the BSDF there (whether its f |cos| is above black, and its
// density): its MIS weight, its scale, and its shadow ray (shadowRay in camera.h) from the offset
// origin at the light point.
[[gnu::always_inline]] inline void weighLightSample(BounceLanes& l, int k, bool reflects, float bsdfPdf, float epsilon) {
  const Vec3 p = at(l.p, k), ng = at(l.ng, k), wi = at(l.lightWi, k), radiance = at(l.radiance, k);
  const float distance = l.lightDistance[k], lightPdf = l.lightPdf[k];
  const bool usable = (l.lightKind[k] == kLightTaken) & (lightPdf > 0) & !black(radiance);
  l.lightHit[k] = usable & reflects;
  const float a2 = lightPdf * lightPdf, b2 = bsdfPdf * bsdfPdf;
  const bool delta = l.lightDelta[k] != 0;
  const float mis = delta ? 1.0f : (a2 + b2 > 0 ? a2 / (a2 + b2) : 0.0f);
  const float share = mis / lightPdf;
  // The scalar product has the shadow ray's visibility in it, 1 in an opaque scene.
  l.lightScale.x[k] = l.beta.x[k] * radiance.x * 1.0f * share;
  l.lightScale.y[k] = l.beta.y[k] * radiance.y * 1.0f * share;
  l.lightScale.z[k] = l.beta.z[k] * radiance.z * 1.0f * share;
  const float shadowOffset = dot(wi, ng) >= 0 ? epsilon : -epsilon;
  const float sox = p.x + ng.x * shadowOffset, soy = p.y + ng.y * shadowOffset, soz = p.z + ng.z * shadowOffset;
  const float tox = p.x + wi.x * distance - sox, toy = p.y + wi.y * distance - soy, toz = p.z + wi.z * distance - soz;
  const float toLength = std::sqrt(tox * tox + toy * toy + toz * toz), toInverse = 1.0f / toLength;
  const bool finiteLight = distance < 1e29f, aimed = finiteLight & (toLength > 0);
  put(l.shadowOrigin, k, {sox, soy, soz});
  l.shadowDir.x[k] = aimed ? tox * toInverse : wi.x;
  l.shadowDir.y[k] = aimed ? toy * toInverse : wi.y;
  l.shadowDir.z[k] = aimed ? toz * toInverse : wi.z;
  l.shadowTMax[k] = !finiteLight ? distance : aimed ? std::max(0.0f, toLength - 2 * epsilon) : 0.0f;
}

// The sampled direction with its density and weight (f |cos| / pdf): the throughput, the roulette
// on what a light found next would be weighted by, and the next ray's origin.
[[gnu::always_inline]] inline void continuePath(BounceLanes& l, int k, bool scattered, Vec3 wi, float pdf, Vec3 weight,
                                                float epsilon, float minSurvival) {
  const Vec3 p = at(l.p, k), ng = at(l.ng, k);
  l.scattered[k] = scattered;
  put(l.wi, k, wi);
  l.pdf[k] = pdf;
  const float lbr = l.beta.x[k] * weight.x, lbg = l.beta.y[k] * weight.y, lbb = l.beta.z[k] * weight.z;
  const float occlusion = l.occlusion[k];
  const bool occluded = occlusion < 1;
  const float br = occluded ? lbr * occlusion : lbr, bg = occluded ? lbg * occlusion : lbg, bb = occluded ? lbb * occlusion : lbb;
  l.alive[k] = finite(lbr) & finite(lbg) & finite(lbb) & !((lbr <= 0) & (lbg <= 0) & (lbb <= 0));
  const float q = std::max(minSurvival, 1 - std::sqrt(std::max(lbr, std::max(lbg, lbb))));
  const bool boosted = l.roulette[k] != 0;
  const float boost = 1 / (1 - q);
  l.endProbability[k] = q;
  l.nextBeta.x[k] = boosted ? br * boost : br;
  l.nextBeta.y[k] = boosted ? bg * boost : bg;
  l.nextBeta.z[k] = boosted ? bb * boost : bb;
  l.nextLightBeta.x[k] = boosted ? lbr * boost : lbr;
  l.nextLightBeta.y[k] = boosted ? lbg * boost : lbg;
  l.nextLightBeta.z[k] = boosted ? lbb * boost : lbb;
  const float rayOffset = dot(wi, ng) >= 0 ? epsilon : -epsilon;
  put(l.rayOrigin, k, {p.x + ng.x * rayOffset, p.y + ng.y * rayOffset, p.z + ng.z * rayOffset});
}

// The results of a stage's lanes, from where it computed them. Only the results: copying the
// whole lanes back lets the compiler work in the caller's lanes instead, which undoes the copy.
inline void copyResults(const BounceLanes& from, BounceLanes& to) {
  auto copy = [](const auto& source, auto& target) { std::copy(std::begin(source), std::end(source), std::begin(target)); };
  auto copy3 = [&](const BounceLanes::Vec3Lanes& source, BounceLanes::Vec3Lanes& target) {
    copy(source.x, target.x);
    copy(source.y, target.y);
    copy(source.z, target.z);
  };
  copy(from.lightHit, to.lightHit);
  copy3(from.lightScale, to.lightScale);
  copy3(from.lightValue, to.lightValue);
  copy3(from.lightReflectValue, to.lightReflectValue);
  copy3(from.shadowOrigin, to.shadowOrigin);
  copy3(from.shadowDir, to.shadowDir);
  copy(from.shadowTMax, to.shadowTMax);
  copy(from.scattered, to.scattered);
  copy(from.alive, to.alive);
  copy(from.category, to.category);
  copy3(from.wi, to.wi);
  copy3(from.rayOrigin, to.rayOrigin);
  copy3(from.nextBeta, to.nextBeta);
  copy3(from.nextLightBeta, to.nextLightBeta);
  copy(from.pdf, to.pdf);
  copy(from.endProbability, to.endProbability);
}

// Each stage once per instruction set, chosen at run time; a stage takes the epsilon and the
// survival floor whether it needs them or not, so that all share one signature.
using Stage = void (*)(BounceLanes&, float, float);
template <Stage stage>
void baseline(BounceLanes& l, float epsilon, float minSurvival) {
  stage(l, epsilon, minSurvival);
}
#if defined(__x86_64__)
template <Stage stage>
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq")]] void avx512(BounceLanes& l, float epsilon, float minSurvival) {
  stage(l, epsilon, minSurvival);
}
template <Stage stage>
[[gnu::target("avx2")]] void avx2(BounceLanes& l, float epsilon, float minSurvival) {
  stage(l, epsilon, minSurvival);
}
#endif

template <Stage stage>
void run(VectorIsa isa, BounceLanes& l, float epsilon, float minSurvival) {
#if defined(__x86_64__)
  isa = std::min(isa, bestVectorIsa());
  if (isa == VectorIsa::Avx512) return avx512<stage>(l, epsilon, minSurvival);
  if (isa == VectorIsa::Avx2) return avx2<stage>(l, epsilon, minSurvival);
#endif
  baseline<stage>(l, epsilon, minSurvival);
}

}  // namespace zvr::kernel::lane_stage
