// Per-sample light transport: a unidirectional path tracer with next-event estimation and MIS,
// which also runs as direct-light, ambient-occlusion and preview integrators.
#pragma once

#include "camera.h"
#include "lights.h"
#include "material.h"
#include "sampling.h"
#include "scene.h"

namespace zvr::kernel {

enum class IntegratorMode { PathTracer, Direct, AmbientOcclusion, Preview };

struct IntegratorSettings {
  IntegratorMode mode = IntegratorMode::PathTracer;
  float causticsReduction = 1;  // < 1 roughens glossy lobes after a diffuse bounce
  bool wantAo = false;          // trace the AO ray at the first hit
};

// Everything one camera sample yields. Light terms sum exactly to `color`:
// color = emission + background + direct[3] + indirect[3].
struct SampleResult {
  Vec3 color, background, emission;
  Vec3 direct[kLobeCategories], indirect[kLobeCategories];
  bool hit = false;
  float opacity = 0;
  Vec3 position, normalGeom, normal, cameraNormal, albedo;
  float uv[2] = {0, 0};
  float depth = 0, ao = 0;
  uint32_t materialId = 0, objectId = 0, meshId = 0, groupId = 0;
  uint32_t rays = 0;  // rays traced for this sample, for throughput statistics
};

class PathIntegrator {
 public:
  PathIntegrator(const Scene& scene, const LightSet& lights, const Camera& camera, const RenderParams& params,
                 const IntegratorSettings& settings);
  // Traces one camera ray from film position (x, y); `sampler` continues after the film sample.
  void trace(float filmX, float filmY, Sampler& sampler, SampleResult& out) const;

 private:
  Vec3 transmittance(Vec3 from, Vec3 dir, float distance, Vec3 ng, uint32_t& rays) const;
  float ambientOcclusion(const SurfaceHit& hit, Vec3 n, Sampler& sampler, uint32_t& rays) const;
  Ray spawn(Vec3 p, Vec3 ng, Vec3 dir, float distance = 1e30f) const;
  Vec3 clampContribution(Vec3 c) const;

  const Scene& scene_;
  const LightSet& lights_;
  const Camera& camera_;
  const RenderParams& params_;
  IntegratorSettings settings_;
  float epsilon_, aoRadius_;
  uint32_t maxDepth_;
};

}  // namespace zvr::kernel
