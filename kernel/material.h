// Material inputs at a surface point: factors times textures, vertex colours, normal maps.
#pragma once

#include "kernel/bsdf.h"
#include "kernel/scene.h"

namespace zvr::kernel {

struct ShadedPoint {
  MaterialSample material;
  Frame shading;   // normal-mapped, outward
  Frame coat;      // clearcoat normal, outward
  const MaterialData* data = nullptr;
};

// The material's factors without textures or vertex colours, resolved once per material.
MaterialSample materialFactors(const MaterialData& m);
// Beer extinction per unit length of the material's volume.
Vec3 volumeAttenuation(const MaterialData& m);
// `lodOffset` is added to every texture's level of detail.
void evaluateMaterial(const Scene& scene, const SurfaceHit& hit, float lodOffset, ShadedPoint& out);
// Opacity alone (for shadow rays through masked or blended surfaces).
float evaluateOpacity(const Scene& scene, const SurfaceHit& hit, float lodOffset);
// Emitted radiance at a surface point, textures applied.
Vec3 surfaceEmission(const Scene& scene, const SurfaceHit& hit);

}  // namespace zvr::kernel
