// The arithmetic of a round's bounces for a packet's lanes at once, on the vector unit: light
// samples of emissive rectangles by area, the BSDF's value and MIS weight, the shadow ray, the next
// direction, the throughput and the roulette. One lane at a time these were chains of square roots
// and divisions that the processor could not overlap (a fifth of a Cornell box sample). Two kinds
// of surface have a stage: plain Lambert, and glossy (Lambert under rough GGX reflection, metal or
// dielectric, without transmission, clearcoat or sheen: Bsdf::isRoughReflector). Each lane
// computes exactly what PathIntegrator::scatter computes for it.
#pragma once

#include <cstdint>

#include "kernel/vector_isa.h"

namespace zvr::kernel {

constexpr int kBounceLanes = 16;

enum LightLane : int32_t {
  kNoLight,         // no light sample (none taken, or it failed)
  kLightTaken,      // a light sample in lightWi, lightDistance, lightPdf, radiance, lightDelta
  kLightRectangle,  // an emissive rectangle still to be sampled
  kLightByScalar,   // a rectangle that looks large from the lane: the scalar code samples it
};

// Structure of arrays, one entry per lane. Lanes past the count are computed too and their results
// ignored, so they must hold defined values: value-initialise the struct once before its first use.
struct alignas(64) BounceLanes {
  template <class T>
  using Lanes = T[kBounceLanes];  // 64 bytes each, so every array starts on a vector boundary
  struct Vec3Lanes {
    Lanes<float> x, y, z;
  };

  // The bounce's vertex.
  Vec3Lanes p, ng, wo;
  Vec3Lanes s, t, n;  // the shading frame, normal outward; turned to wo's side here
  Vec3Lanes color, beta;
  Lanes<float> occlusion;
  Vec3Lanes side;  // the hemisphere of wo's side of the geometric surface
  // A glossy material, as Bsdf takes it: metallic and specular clamped (specular 0 on
  // a full metal), the index of refraction, the dielectric's normal reflectance and its tint, GGX
  // alpha (at least kDeltaAlpha), and the lobe choice's number.
  Lanes<float> metallic, specular, eta, f0, alpha, lobeU;
  Vec3Lanes tintedF0;

  // The light sample, by its kind (LightLane); radiance for both taken samples and rectangles.
  Lanes<int32_t> lightKind;
  Lanes<int32_t> lightEntry;  // the chosen light (LightSet::Choice), with its probability in pmf
  Lanes<float> lightU1, lightU2;
  Vec3Lanes lightWi, radiance;
  Lanes<float> lightDistance, lightPdf;
  Lanes<int32_t> lightDelta;
  // kLightRectangle: the emissive rectangle (EmissiveRectangle).
  Vec3Lanes corner, edgeX, edgeY, center, lightNormal;
  Lanes<float> width, height, area, pmf;
  Lanes<int32_t> doubleSided;

  // The next direction's numbers, and whether this bounce ends with roulette.
  Lanes<float> bsdfU1, bsdfU2;
  Lanes<int32_t> roulette;

  // Out: the light sample's contribution, as scale times value (f |cos| of the diffuse and of the
  // reflecting lobes), and its shadow ray; valid where lightHit is set.
  Lanes<int32_t> lightHit;
  Vec3Lanes lightScale, lightValue, lightReflectValue, shadowOrigin, shadowDir;
  Lanes<float> shadowTMax;
  // Out: the next ray and its lobe category, where scattered is set; `alive` false where the
  // throughput then turns black or stops being finite. The roulette's number is drawn after that
  // by the caller, as a path that ends draws no more: the path ends where it is below
  // endProbability, and nextBeta and nextLightBeta already hold what a survivor carries.
  Lanes<int32_t> scattered, alive, category;
  Vec3Lanes wi, rayOrigin, nextBeta, nextLightBeta;
  Lanes<float> pdf, endProbability;
};

struct MaterialSample;
// Puts a material that Bsdf::isRoughReflector takes into a lane, as Bsdf derives its numbers.
void putGlossyMaterial(const MaterialSample& material, float minRoughness, BounceLanes& lanes, int lane);
// Samples the rectangles of lanes [0, count) by area, where they do not look large: each such lane
// becomes kLightTaken or kNoLight, and the others kLightByScalar.
void sampleRectangleLanes(BounceLanes& lanes, int count, VectorIsa isa = bestVectorIsa());
// Run the bounces of lanes [0, count), each kLightTaken or kNoLight by now, spawning rays `epsilon`
// off the surface; the roulette keeps a path with probability at least `minSurvival`.
void shadeLambertLanes(BounceLanes& lanes, int count, float epsilon, float minSurvival, VectorIsa isa = bestVectorIsa());
void shadeGlossyLanes(BounceLanes& lanes, int count, float epsilon, float minSurvival, VectorIsa isa = bestVectorIsa());

}  // namespace zvr::kernel
