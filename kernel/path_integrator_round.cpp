// One round of a batch's bounces, with Lambert and glossy surfaces shaded together on the vector
// unit, each kind in its own lanes.
#include "kernel/path_integrator.h"
#include "kernel/path_state.h"

namespace zvr::kernel {

float PathIntegrator::minRoughness(const Path& path) const {
  return path.afterDiffuse && settings_.causticsReduction < 1 ? clamp01(1 - settings_.causticsReduction) : 0;
}

void PathIntegrator::shadeRound(Path* paths, SurfaceHit* hits, const bool* active, const bool* found, int count,
                                RoundLanes& lanes) const {
  // The vector stages cover what a bounce of the path tracer does with opaque geometry and no light
  // path outputs; the preview weighs its samples differently, and transparent shadows need a query
  // per surface.
  static_assert(kBounceLanes >= kPacketSize, "a round queues up to a packet of lanes");
  const bool vector = settings_.vectorBounces && settings_.mode != IntegratorMode::Preview && !paths_ && scene_.allOpaque();
  int lambertOf[kPacketSize], glossyOf[kPacketSize];
  int lambert = 0, glossy = 0;
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
    if (LambertBsdf::handles(sp.material)) {
      queueBounce(paths[k], hits[k], sp, false, lanes.lambert, lambert);
      lambertOf[lambert++] = k;
    } else if (const float least = minRoughness(paths[k]); Bsdf::isRoughReflector(sp.material, least)) {
      putGlossyMaterial(sp.material, least, lanes.glossy, glossy);
      queueBounce(paths[k], hits[k], sp, true, lanes.glossy, glossy);
      glossyOf[glossy++] = k;
    } else {
      scatterAt(paths[k], hits[k], sp);
    }
  }
  // Lambert alone samples its sky in the hemisphere it takes light from; glossy lobes keep the
  // whole sphere (see scatter).
  auto run = [&](BounceLanes& l, const int* laneOf, int n, bool isGlossy) {
    if (n == 0) return;
    sampleRectangleLanes(l, n, settings_.isa);
    for (int i = 0; i < n; ++i)
      if (l.lightKind[i] == kLightByScalar) sampleLightOf(hits[laneOf[i]], l, i, !isGlossy);
    if (isGlossy) shadeGlossyLanes(l, n, epsilon_, kMinSurvival, settings_.isa);
    else shadeLambertLanes(l, n, epsilon_, kMinSurvival, settings_.isa);
    for (int i = 0; i < n; ++i) finishBounce(paths[laneOf[i]], hits[laneOf[i]], l, i, !isGlossy);
  };
  run(lanes.lambert, lambertOf, lambert, false);
  run(lanes.glossy, glossyOf, glossy, true);
}

namespace {

void put(BounceLanes::Vec3Lanes& lanes, int lane, Vec3 v) {
  lanes.x[lane] = v.x;
  lanes.y[lane] = v.y;
  lanes.z[lane] = v.z;
}

Vec3 get(const BounceLanes::Vec3Lanes& lanes, int lane) { return {lanes.x[lane], lanes.y[lane], lanes.z[lane]}; }

}  // namespace

// The scalar half of scatter before its arithmetic: the draws in the same order, and the light
// choice. Emissive rectangles sampled by area go to the vector unit; any other light is sampled here.
void PathIntegrator::queueBounce(Path& path, const SurfaceHit& hit, const ShadedPoint& sp, bool choosesLobe,
                                 BounceLanes& lanes, int lane) const {
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
  const Vec3 side = dot(wo, hit.ng) >= 0 ? hit.ng : -hit.ng;
  put(lanes.side, lane, side);

  lanes.lightKind[lane] = kNoLight;
  if (!lights_.empty()) {
    float ul = 0;
    if (lights_.choosesLight()) ul = sampler.get1D();
    else sampler.skip();
    auto u = sampler.get2D();
    lanes.lightU1[lane] = u.first;
    lanes.lightU2[lane] = u.second;
    const LightSet::Choice choice = lights_.choose(ul, hit.p, side);
    lanes.lightEntry[lane] = choice.entry;
    lanes.pmf[lane] = choice.pmf;
    if (const EmissiveRectangle* r = lights_.rectangleOf(choice)) {
      lanes.lightKind[lane] = kLightRectangle;
      put(lanes.corner, lane, r->corner);
      put(lanes.edgeX, lane, r->x);
      put(lanes.edgeY, lane, r->y);
      put(lanes.center, lane, r->center);
      put(lanes.lightNormal, lane, r->normal);
      lanes.width[lane] = r->width;
      lanes.height[lane] = r->height;
      lanes.area[lane] = r->area;
      lanes.doubleSided[lane] = r->doubleSided;
      put(lanes.radiance, lane, r->emission);
      lanes.lightDelta[lane] = 0;
    } else {
      sampleLightOf(hit, lanes, lane, !choosesLobe);
    }
  }
  if (choosesLobe) {
    lanes.lobeU[lane] = sampler.get1D();
    path.choseLobe = true;
  } else {
    sampler.skip();
  }
  auto u = sampler.get2D();
  lanes.bsdfU1[lane] = u.first;
  lanes.bsdfU2[lane] = u.second;
  lanes.roulette[lane] = path.depth + 1 >= kRussianRouletteDepth;
}

// The light sample of a lane that the vector stage does not take: LightSet::sample of its choice.
void PathIntegrator::sampleLightOf(const SurfaceHit& hit, BounceLanes& lanes, int lane, bool skyHemisphere) const {
  LightSample ls;
  lanes.lightKind[lane] = kNoLight;
  const Vec3 side = get(lanes.side, lane);
  const LightSet::Choice choice{lanes.lightEntry[lane], lanes.pmf[lane]};
  if (!lights_.sample(choice, hit.p, lanes.lightU1[lane], lanes.lightU2[lane], scene_, ls, skyHemisphere ? side : Vec3(0)))
    return;
  lanes.lightKind[lane] = kLightTaken;
  put(lanes.lightWi, lane, ls.wi);
  lanes.lightDistance[lane] = ls.distance;
  lanes.lightPdf[lane] = ls.pdf;
  put(lanes.radiance, lane, ls.radiance);
  lanes.lightDelta[lane] = ls.delta;
}

// The scalar half after the arithmetic: scatter's bookkeeping, from the lane's results.
void PathIntegrator::finishBounce(Path& path, const SurfaceHit& hit, const BounceLanes& lanes, int lane,
                                  bool skyHemisphere) const {
  const uint32_t depth = path.depth;
  if (lanes.lightHit[lane]) {
    BsdfEval e;
    e.value[kLobeDiffuse] = get(lanes.lightValue, lane);
    e.value[kLobeReflect] = get(lanes.lightReflectValue, lane);
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
  const int category = lanes.category[lane];
  if (category == kLobeDiffuse) {
    if (++path.diffuseBounces > params_.maxDepthDiffuse) path.emissionOnly = true;
    path.afterDiffuse = true;
  } else if (++path.glossyBounces > params_.maxDepthGlossy) {
    path.emissionOnly = true;
  }
  if (depth == 0) path.firstCategory = category;
  if (!lanes.alive[lane]) return;
  if (lanes.roulette[lane] && path.sampler->get1D() < lanes.endProbability[lane]) return;
  path.beta = get(lanes.nextBeta, lane);
  path.lightBeta = get(lanes.nextLightBeta, lane);
  path.deltaBounce = false;
  path.prevPdf = lanes.pdf[lane];
  path.prevP = hit.p;
  path.prevSide = get(lanes.side, lane);
  path.prevUpper = skyHemisphere ? path.prevSide : Vec3(0);
  // Neither kind transmits: the path stays in its medium.
  path.coneWidth = hit.footprint;
  path.cone += category == kLobeDiffuse ? 0.5f : 0.1f;
  ++path.depth;
  path.ray = Ray{get(lanes.rayOrigin, lane), get(lanes.wi, lane), 0, 1e30f};
  path.alive = true;
}

}  // namespace zvr::kernel
