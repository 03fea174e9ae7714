// The state a path carries from one bounce to the next, shared by the integrator's scalar bounce
// and the round that queues Lambert bounces for the vector unit.
#pragma once

#include "kernel/path_integrator.h"

namespace zvr::kernel {

// Paths end by roulette from this depth on, surviving at least with this probability.
constexpr uint32_t kRussianRouletteDepth = 3;
constexpr float kMinSurvival = 0.05f;

// One lane of a batch: everything a path carries from one bounce to the next.
struct PathIntegrator::Path {
  FilmPoint film;
  Sampler* sampler = nullptr;
  SampleResult* out = nullptr;
  bool alive = false;
  Ray ray;
  Vec3 beta{1};
  // The throughput for light this vertex finds on emitters directly: beta without the previous
  // vertex's occlusion, which darkens only light that bounced on the way.
  Vec3 lightBeta{1};
  bool deltaBounce = true;
  float prevPdf = 0;
  // The hemisphere the previous vertex sampled its sky in, and the one it chose lights for.
  Vec3 prevP, prevUpper, prevSide;
  int firstCategory = -1;
  bool afterDiffuse = false;
  uint32_t depth = 0, diffuseBounces = 0, glossyBounces = 0, refractionBounces = 0, roughRefractionBounces = 0;
  int alphaPasses = 0;
  float distanceSoFar = 0;
  float cone = 0, coneWidth = 0;
  Vec3 sigma{0};  // extinction of the medium the ray travels in
  // After the last bounce a path still follows its BSDF sample to collect emission, the other half
  // of the MIS pair whose light-sampling half was taken at that vertex.
  bool emissionOnly = false;
  bool choseLobe = false;  // a bounce of this path drew a lobe choice

  // The light sample of this round, added once its shadow ray is known to be clear. Per lobe
  // category at the first hit (the direct split), else one value for `lightCategory`.
  bool lightPending = false, lightNeedsRay = false, lightSplit = false;
  Ray lightRay;
  Vec3 lightValue[kLobeCategories];
  // For the light path outputs: the events before the light sample's vertex, its light, its
  // direction, and beyond the first hit its value per lobe category (lightValue holds the sum).
  LightPathState events, lightEvents;
  EmitterEvent lightEmitter;
  LabelKey lightVertex = kNoLabel;
  Vec3 lightDir, lightParts[kLobeCategories];
  // The ambient-occlusion ray of the first hit.
  bool aoPending = false;
  Ray aoRay;
};

}  // namespace zvr::kernel
