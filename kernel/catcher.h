// What a catcher object catches where a camera ray meets it: the share of light its surface gets
// with the other objects' shadows against without them, and the other objects seen in its mirror.
#pragma once

#include <cstdint>

#include "kernel/lights.h"
#include "kernel/material.h"
#include "kernel/sampling.h"
#include "kernel/scene.h"

namespace zvr::kernel {

struct CatcherResult {
  // Luminance of one light sample with and without its shadow: summed over a pixel, their ratio is
  // the fraction of light that arrives, exactly 1 where nothing shadows the catcher.
  float lit = 1, unoccluded = 1;
  // lit over the mean of many unshadowed samples: per camera sample, a low-noise estimate of that
  // fraction, which darkens what lies behind the catcher in the beauty.
  float litFraction = 1;
  Vec3 reflection;  // radiance of other (non-catcher) objects reflected towards the camera
  uint32_t rays = 0;
};

class CatcherShading {
 public:
  CatcherShading(const Scene& scene, const LightSet& lights, const RenderParams& params, float epsilon)
      : scene_(scene), lights_(lights), params_(params), epsilon_(epsilon) {}
  // `flags` are the shape's ZvrCatcherFlags; `wo` points back to the camera.
  CatcherResult shade(uint32_t flags, const SurfaceHit& hit, const ShadedPoint& sp, Vec3 wo, Sampler& sampler) const;

 private:
  void shadow(const SurfaceHit& hit, Vec3 n, Sampler& sampler, CatcherResult& out) const;
  void reflection(const SurfaceHit& hit, const ShadedPoint& sp, Vec3 wo, Sampler& sampler, CatcherResult& out) const;
  // Emission and one light sample at a surface seen in the catcher.
  Vec3 directLight(SurfaceHit& hit, Vec3 wo, Sampler& sampler, uint32_t& rays) const;

  const Scene& scene_;
  const LightSet& lights_;
  const RenderParams& params_;
  float epsilon_;
};

}  // namespace zvr::kernel
