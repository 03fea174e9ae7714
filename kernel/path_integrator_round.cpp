// One round of a batch's bounces, with Lambert surfaces shaded together on the vector unit.
#include "kernel/path_integrator.h"
#include "kernel/path_state.h"

namespace zvr::kernel {

void PathIntegrator::shadeRound(Path* paths, SurfaceHit* hits, const bool* active, const bool* found, int count,
                                LambertLanes& lanes) const {
  // The vector stage covers what a Lambert bounce of the path tracer does with opaque geometry and
  // no light path outputs; the preview weighs its samples differently, and transparent shadows
  // need a query per surface.
  static_assert(kLambertLanes >= kPacketSize, "a round queues up to a packet of lanes");
  const bool vector = settings_.vectorLambert && settings_.mode != IntegratorMode::Preview && !paths_ && scene_.allOpaque();
  int laneOf[kPacketSize];
  int n = 0;
  for (int k = 0; k < count; ++k) {
    if (!active[k]) continue;
    if (!found[k]) {
      shadeMiss(paths[k]);
      continue;
    }
    if (!vector) {
      shadeHit(paths[k], hits[k]);
      continue;
    }
    ShadedPoint sp;
    if (!shadeSurface(paths[k], hits[k], sp)) continue;
    if (!LambertBsdf::handles(sp.material)) {
      scatterAt(paths[k], hits[k], sp);
      continue;
    }
    queueLambert(paths[k], hits[k], sp, lanes, n);
    laneOf[n++] = k;
  }
  if (n == 0) return;
  sampleRectangleLanes(lanes, n, settings_.isa);
  for (int i = 0; i < n; ++i)
    if (lanes.lightKind[i] == kLightByScalar) sampleLightOf(hits[laneOf[i]], lanes, i);
  shadeLambertLanes(lanes, n, epsilon_, kMinSurvival, settings_.isa);
  for (int i = 0; i < n; ++i) finishLambert(paths[laneOf[i]], hits[laneOf[i]], lanes, i);
}

namespace {

void put(LambertLanes::Vec3Lanes& lanes, int lane, Vec3 v) {
  lanes.x[lane] = v.x;
  lanes.y[lane] = v.y;
  lanes.z[lane] = v.z;
}

Vec3 get(const LambertLanes::Vec3Lanes& lanes, int lane) { return {lanes.x[lane], lanes.y[lane], lanes.z[lane]}; }

}  // namespace

// The scalar half of scatter<LambertBsdf> before its arithmetic: the draws in the same order, and
// the light choice. Emissive rectangles sampled by area go to the vector unit; any other light is
// sampled here.
void PathIntegrator::queueLambert(Path& path, const SurfaceHit& hit, const ShadedPoint& sp, LambertLanes& lanes, int lane) const {
  Sampler& sampler = *path.sampler;
  const MaterialSample& mat = sp.material;
  const Vec3 wo = -path.ray.direction;
  put(lanes.p, lane, hit.p);
  put(lanes.ng, lane, hit.ng);
  put(lanes.wo, lane, wo);
  put(lanes.s, lane, sp.shading.s);
  put(lanes.t, lane, sp.shading.t);
  put(lanes.n, lane, sp.shading.n);
  put(lanes.color, lane, mat.baseColor);
  put(lanes.beta, lane, path.beta);
  lanes.occlusion[lane] = mat.occlusion;
  const Vec3 upper = dot(wo, hit.ng) >= 0 ? hit.ng : -hit.ng;
  put(lanes.upper, lane, upper);

  lanes.lightKind[lane] = kNoLight;
  if (!lights_.empty()) {
    float ul = 0;
    if (lights_.choosesLight()) ul = sampler.get1D();
    else sampler.skip();
    auto u = sampler.get2D();
    lanes.lightU1[lane] = u.first;
    lanes.lightU2[lane] = u.second;
    lanes.lightChoice[lane] = ul;
    float pmf = 0;
    if (const EmissiveRectangle* r = lights_.chosenRectangle(ul, hit.p, upper, pmf)) {
      lanes.lightKind[lane] = kLightRectangle;
      put(lanes.corner, lane, r->corner);
      put(lanes.edgeX, lane, r->x);
      put(lanes.edgeY, lane, r->y);
      put(lanes.center, lane, r->center);
      put(lanes.lightNormal, lane, r->normal);
      lanes.width[lane] = r->width;
      lanes.height[lane] = r->height;
      lanes.area[lane] = r->area;
      lanes.pmf[lane] = pmf;
      lanes.doubleSided[lane] = r->doubleSided;
      put(lanes.radiance, lane, r->emission);
      lanes.lightDelta[lane] = 0;
    } else {
      sampleLightOf(hit, lanes, lane);
    }
  }
  sampler.skip();  // a Lambert surface has no lobe to choose
  auto u = sampler.get2D();
  lanes.bsdfU1[lane] = u.first;
  lanes.bsdfU2[lane] = u.second;
  lanes.roulette[lane] = path.depth + 1 >= kRussianRouletteDepth;
}

// The light sample of a lane that the vector stage does not take: LightSet::sample itself.
void PathIntegrator::sampleLightOf(const SurfaceHit& hit, LambertLanes& lanes, int lane) const {
  LightSample ls;
  lanes.lightKind[lane] = kNoLight;
  // A Lambert surface only reflects, and samples its sky in the same hemisphere it takes light from.
  const Vec3 upper = get(lanes.upper, lane);
  if (!lights_.sample(hit.p, lanes.lightChoice[lane], lanes.lightU1[lane], lanes.lightU2[lane], scene_, ls, upper, upper))
    return;
  lanes.lightKind[lane] = kLightTaken;
  put(lanes.lightWi, lane, ls.wi);
  lanes.lightDistance[lane] = ls.distance;
  lanes.lightPdf[lane] = ls.pdf;
  put(lanes.radiance, lane, ls.radiance);
  lanes.lightDelta[lane] = ls.delta;
}

// The scalar half after the arithmetic: scatter<LambertBsdf>'s bookkeeping, from the lane's results.
void PathIntegrator::finishLambert(Path& path, const SurfaceHit& hit, const LambertLanes& lanes, int lane) const {
  const uint32_t depth = path.depth;
  if (lanes.lightHit[lane]) {
    BsdfEval e;
    e.value[kLobeDiffuse] = get(lanes.lightValue, lane);
    const Vec3 scale = get(lanes.lightScale, lane);
    path.lightPending = true;
    path.lightNeedsRay = true;
    path.lightRay = Ray{get(lanes.shadowOrigin, lane), get(lanes.shadowDir, lane), 0, lanes.shadowTMax[lane]};
    path.lightSplit = depth == 0;
    if (depth == 0) {
      for (int c = 0; c < kLobeCategories; ++c) path.lightValue[c] = scale * e.value[c];
    } else {
      path.lightValue[0] = scale * e.total();
    }
  }
  if (depth >= maxDepth_) path.emissionOnly = true;
  if (!lanes.scattered[lane]) return;
  if (++path.diffuseBounces > params_.maxDepthDiffuse) path.emissionOnly = true;
  path.afterDiffuse = true;
  if (depth == 0) path.firstCategory = kLobeDiffuse;
  if (!lanes.alive[lane]) return;
  if (lanes.roulette[lane] && path.sampler->get1D() < lanes.endProbability[lane]) return;
  path.beta = get(lanes.nextBeta, lane);
  path.lightBeta = get(lanes.nextLightBeta, lane);
  path.deltaBounce = false;
  path.prevPdf = lanes.pdf[lane];
  path.prevP = hit.p;
  path.prevUpper = path.prevSide = get(lanes.upper, lane);
  // A Lambert surface reflects only: the path stays in its medium.
  path.coneWidth = hit.footprint;
  path.cone += 0.5f;
  ++path.depth;
  path.ray = Ray{get(lanes.rayOrigin, lane), get(lanes.wi, lane), 0, 1e30f};
  path.alive = true;
}

}  // namespace zvr::kernel
