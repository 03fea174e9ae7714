// Per-sample light transport: a unidirectional path tracer with next-event estimation and MIS,
// which also runs as direct-light, ambient-occlusion and preview integrators.
#pragma once

#include "kernel/camera.h"
#include "kernel/catcher.h"
#include "kernel/bounce_lanes.h"
#include "kernel/light_paths.h"
#include "kernel/lights.h"
#include "kernel/material.h"
#include "kernel/sampling.h"
#include "kernel/scene.h"

namespace zvr::kernel {

enum class IntegratorMode { PathTracer, Direct, AmbientOcclusion, Preview };

struct IntegratorSettings {
  IntegratorMode mode = IntegratorMode::PathTracer;
  float causticsReduction = 1;  // < 1 roughens glossy lobes after a diffuse bounce
  bool wantAo = false;          // trace the AO ray at the first hit
  const LightPaths* lightPaths = nullptr;  // light path expression and light group outputs, if any
  // Lambert and glossy bounces on the vector unit where the render allows (see
  // shadeRound); off, every bounce takes the scalar path, the reference the vector one must equal.
  bool vectorBounces = true;
  VectorIsa isa = bestVectorIsa();  // the widest instruction set the vector stages may use
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
  static constexpr uint32_t kNoShape = ~0u;
  uint32_t shape = kNoShape;  // scene index of the first visible shape (catchers are not visible)
  // A catcher met by the camera ray: its coverage, the lit and unoccluded light of its shadow
  // sample (both 1 elsewhere) and the reflections it catches. Color shows what lies behind it,
  // darkened by the sample's lit fraction, plus the reflections.
  float catcher = 0, catcherLit = 1, catcherUnoccluded = 1, catcherLitFraction = 1;
  Vec3 catcherReflection;
  LightPathTotals paths;  // filled only when the render has such outputs
};

// Film position of a camera sample, in pixels.
struct FilmPoint {
  float x = 0, y = 0;
};

class PathIntegrator {
 public:
  PathIntegrator(const Scene& scene, const LightSet& lights, const Camera& camera, const RenderParams& params,
                 const IntegratorSettings& settings);
  // Traces `count` (at most kPacketSize) camera samples in lockstep, one packet query per round
  // for the surfaces and one for the shadow rays. Lane k continues `samplers[k]` after its film
  // sample and fills `out[k]`; its result never depends on the other lanes.
  void traceBatch(const FilmPoint* film, Sampler* samplers, SampleResult* out, int count) const;
  // The total path depth in effect: the depth key, lowered by the render quality and the mode.
  uint32_t maxDepth() const { return maxDepth_; }

 private:
  struct Path;
  void startPath(Path& path) const;
  void shadeMiss(Path& path) const;
  void shadeHit(Path& path, SurfaceHit& hit) const;
  bool shadeSurface(Path& path, SurfaceHit& hit, ShadedPoint& sp) const;
  void scatterAt(Path& path, const SurfaceHit& hit, const ShadedPoint& sp) const;
  struct RoundLanes {
    BounceLanes lambert, glossy;
  };
  float minRoughness(const Path& path) const;
  void shadeRound(Path* paths, SurfaceHit* hits, const bool* active, const bool* found, int count, RoundLanes& lanes) const;
  void queueBounce(Path& path, const SurfaceHit& hit, const ShadedPoint& sp, bool choosesLobe, BounceLanes& lanes,
                   int lane) const;
  void sampleLightOf(const SurfaceHit& hit, BounceLanes& lanes, int lane, bool skyHemisphere) const;
  void finishBounce(Path& path, const SurfaceHit& hit, const BounceLanes& lanes, int lane, bool skyHemisphere) const;
  template <class AnyBsdf>
  void scatter(Path& path, const SurfaceHit& hit, const MaterialSample& mat, const AnyBsdf& bsdf) const;
  void resolveVisibility(Path* paths, int count) const;
  void drawAhead(Path* paths, const bool* active, const bool* found, int count) const;
  void addLight(Path& path, Vec3 value, bool direct) const;
  Vec3 transmittance(Ray ray, uint32_t& rays) const;
  Vec3 clampContribution(Vec3 c) const;
  void passCatcher(Path& path, const SurfaceHit& hit, const ShadedPoint& sp) const;
  float clampScale(Vec3 c) const;
  void creditLight(Path& path, const LightPathState& s, const EmitterEvent& e, Vec3 value, Vec3 dir) const;
  void creditLightSample(Path& path, int category, Vec3 value) const;

  const Scene& scene_;
  const LightSet& lights_;
  const Camera& camera_;
  const RenderParams& params_;
  IntegratorSettings settings_;
  const LightPaths* paths_ = nullptr;  // null when no output needs the path's events
  float epsilon_, aoRadius_;
  CatcherShading catchers_;
  uint32_t maxDepth_;
};

}  // namespace zvr::kernel
