#include "kernel/path_integrator.h"

#include "kernel/path_state.h"

namespace zvr::kernel {
namespace {

constexpr int kMaxAlphaPasses = 64;
constexpr float kPreviewBounceProbability = 0.25f;

// Total path depth per render quality, 0 (low) to 3 (full, the depth keys as set).
constexpr uint32_t kQualityDepthCap[] = {0, 2, 4, ~0u};

}  // namespace

PathIntegrator::PathIntegrator(const Scene& scene, const LightSet& lights, const Camera& camera, const RenderParams& params,
                               const IntegratorSettings& settings)
    : scene_(scene), lights_(lights), camera_(camera), params_(params), settings_(settings),
      epsilon_(scene.rayEpsilon()), catchers_(scene, lights, params, epsilon_) {
  aoRadius_ = 0.1f * scene.diagonal();
  maxDepth_ = std::min(params.maxDepth, kQualityDepthCap[std::min(params.renderQuality, 3u)]);
  if (settings.mode == IntegratorMode::Direct) maxDepth_ = 0;
  if (settings.mode == IntegratorMode::Preview) maxDepth_ = std::min(maxDepth_, 1u);
  if (settings.lightPaths && settings.lightPaths->wanted()) paths_ = settings.lightPaths;
}

// The factor the radiance clamp applies to a contribution: 0 for one that is not finite.
float PathIntegrator::clampScale(Vec3 c) const {
  if (!isFinite(c)) return 0;
  float m = maxComponent(c);
  return m > params_.radianceClamp && params_.radianceClamp > 0 ? params_.radianceClamp / m : 1;
}

Vec3 PathIntegrator::clampContribution(Vec3 c) const {
  float scale = clampScale(c);
  return scale == 0 ? Vec3(0) : c * scale;  // 0 x infinity would be NaN
}

// `value` is already clamped, as it went into the beauty. Several environments along `dir` share
// the light among their groups by their radiance there.
void PathIntegrator::creditLight(Path& path, const LightPathState& s, const EmitterEvent& e, Vec3 value, Vec3 dir) const {
  if (isBlack(value)) return;
  if (e.group != kGroupPerEnvironment) {
    paths_->credit(s, e, value, path.out->paths);
    return;
  }
  EmitterEvent untagged{e.type, -1, e.key};
  paths_->credit(s, untagged, value, path.out->paths);
  Vec3 total = lights_.environment(dir);
  for (size_t i = 0; i < lights_.environmentCount(); ++i) {
    Vec3 part = lights_.environmentRadianceOf(i, dir);
    Vec3 share(total.x > 0 ? part.x / total.x : 0, total.y > 0 ? part.y / total.y : 0, total.z > 0 ? part.z / total.z : 0);
    paths_->creditGroup(lights_.environmentGroup(i), value * share, path.out->paths);
  }
}

// A light sample through lobe `category` of the vertex it was taken at.
void PathIntegrator::creditLightSample(Path& path, int category, Vec3 value) const {
  if (isBlack(value)) return;  // a lobe the vertex does not have
  LightPathState s = path.lightEvents;
  paths_->scatter(s, category == kLobeRefract ? kEventTransmit : kEventReflect,
                  category == kLobeDiffuse ? kScatterDiffuse : kScatterGlossy, path.lightVertex);
  creditLight(path, s, path.lightEmitter, value, path.lightDir);
}

// Visibility along a shadow ray through alpha-blended surfaces: each is crossed with a single
// query, as a packet cannot stop and continue one lane. After each crossing the ray aims again at
// the point where it was to end, so that it still ends in front of the light (see shadowRay).
Vec3 PathIntegrator::transmittance(Ray ray, uint32_t& rays) const {
  const Vec3 dir = ray.direction;
  const bool toPoint = ray.tMax < 1e29f;
  const Vec3 end = ray.origin + dir * ray.tMax;
  float visibility = 1;
  for (uint32_t passes = 0;; ++passes) {
    SurfaceHit hit;
    if (!scene_.intersect(ray, hit)) return Vec3(visibility);
    hit.footprint = 0;
    float opacity = evaluateOpacity(scene_, hit, params_.mipLodOffset);
    if (opacity >= 1 || passes >= params_.maxDepthShadow) return Vec3(0);
    visibility *= 1 - opacity;
    if (visibility <= 0) return Vec3(0);
    ray = spawnRay(hit.p, hit.ng, dir, epsilon_, ray.tMax - hit.t);
    if (toPoint) {
      const Vec3 rest = end - ray.origin;
      const float length = std::sqrt(dot(rest, rest));
      if (!(length > 0) || dot(rest, dir) <= 0) return Vec3(visibility);
      ray.direction = rest * (1.0f / length);
      ray.tMax = length;
    }
    ++rays;
  }
}

void PathIntegrator::addLight(Path& path, Vec3 value, bool direct) const {
  value = clampContribution(value);
  int c = path.firstCategory < 0 ? kLobeDiffuse : path.firstCategory;
  if (direct) path.out->direct[c] += value;
  else path.out->indirect[c] += value;
}

void PathIntegrator::traceBatch(const FilmPoint* film, Sampler* samplers, SampleResult* out, int count) const {
  count = std::clamp(count, 0, kPacketSize);
  Path paths[kPacketSize];
  for (int k = 0; k < count; ++k) {
    paths[k].film = film[k];
    paths[k].sampler = &samplers[k];
    paths[k].out = &out[k];
    startPath(paths[k]);
  }
  Ray rays[kPacketSize];
  SurfaceHit hits[kPacketSize];
  bool active[kPacketSize] = {}, found[kPacketSize] = {};
  RoundLanes lanes{};
  // Camera rays leave one point into neighbouring pixels: Embree traverses those as a bundle.
  bool coherent = true;
  for (;;) {
    bool any = false;
    for (int k = 0; k < count; ++k) {
      active[k] = paths[k].alive;
      if (!active[k]) continue;
      any = true;
      rays[k] = paths[k].ray;
      ++out[k].rays;
    }
    if (!any) break;
    scene_.intersect16(rays, active, hits, found, coherent);
    coherent = false;
    drawAhead(paths, active, found, count);
    shadeRound(paths, hits, active, found, count, lanes);
    resolveVisibility(paths, count);
  }
  for (int k = 0; k < count; ++k) {
    SampleResult& o = out[k];
    if (o.catcher > 0) {
      // Only the catcher's own contributions: what lies behind it, in its shadow.
      const float lit = o.catcherLitFraction;
      o.emission *= lit;
      o.background *= lit;
      for (int c = 0; c < kLobeCategories; ++c) {
        o.direct[c] *= lit;
        o.indirect[c] *= lit;
      }
      // The light path outputs partition the same light, so they darken alike; the caught
      // reflections are not an emitter's light and belong to no group or expression.
      for (Vec3& v : o.paths.lpe) v *= lit;
      for (Vec3& v : o.paths.group) v *= lit;
      o.indirect[kLobeReflect] += clampContribution(o.catcherReflection);
    }
    o.color = o.emission + o.background;
    for (int c = 0; c < kLobeCategories; ++c) o.color += o.direct[c] + o.indirect[c];
  }
}

// Draws the random numbers of the lanes' next bounce at once on the vector unit: shadeHit's draws
// in their order (light choice, light sample, lobe choice, BSDF sample, roulette), those that some
// lane will read. A lane that reads others (stochastic opacity, a BSDF of delta lobes only, which
// takes no light sample) only loses the head start, never the value.
void PathIntegrator::drawAhead(Path* paths, const bool* active, const bool* found, int count) const {
  if (settings_.mode != IntegratorMode::PathTracer && settings_.mode != IntegratorMode::Direct) return;
  Sampler* lanes[kPacketSize];
  int n = 0;
  bool lobes = false, roulette = false;
  for (int k = 0; k < count; ++k) {
    const Path& path = paths[k];
    if (!active[k] || !found[k] || path.emissionOnly) continue;
    lanes[n++] = path.sampler;
    lobes |= path.choseLobe;
    roulette |= path.depth + 1 >= kRussianRouletteDepth;
  }
  // Without lights a bounce draws no light sample, and its other draws move up by two.
  const uint32_t first = lights_.empty() ? 2 : 0;
  uint32_t offsets = 1u << (3 - first);
  if (!lights_.empty()) offsets |= (lights_.choosesLight() ? 1u : 0u) | 1u << 1;
  if (lobes) offsets |= 1u << (2 - first);
  if (roulette) offsets |= 1u << (4 - first);
  Sampler::drawAhead(lanes, n, offsets, settings_.isa);
}

void PathIntegrator::startPath(Path& path) const {
  *path.out = SampleResult{};
  path.alive = camera_.generateRay(path.film.x, path.film.y, path.ray);
  path.cone = camera_.pixelSpread();
  path.coneWidth = camera_.pixelWidth();
  if (paths_) paths_->start(path.events);
}

// Shadow and AO rays of all lanes in one occlusion packet each; then the light samples whose
// rays are clear are added, before any lane's next bounce adds more.
void PathIntegrator::resolveVisibility(Path* paths, int count) const {
  Ray rays[kPacketSize];
  bool active[kPacketSize] = {}, blocked[kPacketSize] = {};
  bool any = false;
  for (int k = 0; k < count; ++k) {
    active[k] = paths[k].lightPending && paths[k].lightNeedsRay;
    if (!active[k]) continue;
    any = true;
    rays[k] = paths[k].lightRay;
    ++paths[k].out->rays;
  }
  if (any) scene_.occluded16(rays, active, blocked);
  for (int k = 0; k < count; ++k) {
    Path& path = paths[k];
    if (!path.lightPending) continue;
    path.lightPending = false;
    if (active[k] && blocked[k]) continue;
    if (path.lightSplit) {
      for (int c = 0; c < kLobeCategories; ++c) {
        Vec3 v = clampContribution(path.lightValue[c]);
        path.out->direct[c] += v;
        if (paths_) creditLightSample(path, c, v);
      }
    } else {
      addLight(path, path.lightValue[0], false);
      if (paths_) {
        float scale = clampScale(path.lightValue[0]);
        if (scale > 0)
          for (int c = 0; c < kLobeCategories; ++c) creditLightSample(path, c, path.lightParts[c] * scale);
      }
    }
  }

  any = false;
  for (int k = 0; k < count; ++k) {
    active[k] = paths[k].aoPending;
    if (!active[k]) continue;
    any = true;
    rays[k] = paths[k].aoRay;
    ++paths[k].out->rays;
  }
  if (!any) return;
  scene_.occluded16(rays, active, blocked);
  for (int k = 0; k < count; ++k) {
    if (!active[k]) continue;
    paths[k].aoPending = false;
    SampleResult& o = *paths[k].out;
    o.ao = blocked[k] ? 0.0f : 1.0f;
    if (settings_.mode == IntegratorMode::AmbientOcclusion) o.direct[kLobeDiffuse] = Vec3(o.ao);
  }
}

void PathIntegrator::shadeMiss(Path& path) const {
  path.alive = false;
  const Ray& ray = path.ray;
  // The scene misses rays it cannot trace; one that numerical trouble left without a direction
  // sees nothing, not the environment.
  if (!isFinite(ray.direction)) return;
  Vec3 le = lights_.environment(ray.direction);
  if (isBlack(le)) return;
  const EmitterEvent background{kEventBackground, lights_.environmentGroup(), lights_.environmentLabelKey()};
  if (path.depth == 0) {
    Vec3 v = clampContribution(path.beta * le);
    path.out->background += v;
    if (paths_) creditLight(path, path.events, background, v, ray.direction);
  } else if (path.deltaBounce || settings_.mode != IntegratorMode::Preview) {
    float w = path.deltaBounce ? 1.0f : powerHeuristic(path.prevPdf, lights_.environmentPdf(ray.direction, path.prevUpper));
    Vec3 v = path.lightBeta * le * w;
    addLight(path, v, path.depth == 1);
    if (paths_) creditLight(path, path.events, background, clampContribution(v), ray.direction);
  }
}

// The camera ray goes on through a catcher as if it were not there; the first catcher it meets
// records what it catches. Its own stream keeps the path's sampling dimensions where they were.
void PathIntegrator::passCatcher(Path& path, const SurfaceHit& hit, const ShadedPoint& sp) const {
  SampleResult& out = *path.out;
  if (out.catcher == 0) {
    Sampler catcherSampler = path.sampler->fork(2);
    CatcherResult caught = catchers_.shade(scene_.shapes()[hit.shape].catcher, hit, sp, -path.ray.direction, catcherSampler);
    out.catcher = 1;
    out.catcherLit = caught.lit;
    out.catcherUnoccluded = caught.unoccluded;
    out.catcherLitFraction = caught.litFraction;
    out.catcherReflection = caught.reflection;
    out.rays += caught.rays;
  }
  if (path.alphaPasses++ >= kMaxAlphaPasses) return;
  path.distanceSoFar += hit.t;
  path.ray = spawnRay(hit.p, hit.ng, path.ray.direction, epsilon_);
  path.alive = true;
}

// One bounce of one lane: the hit's emission, its light sample (left pending for the shadow
// packet), and the next ray; `path.alive` false when the path ends here.
void PathIntegrator::shadeHit(Path& path, SurfaceHit& hit) const {
  ShadedPoint sp;
  if (shadeSurface(path, hit, sp)) scatterAt(path, hit, sp);
}

// A bounce up to its BSDF: the material, stochastic opacity, catchers, the first hit's data and
// the surface's own emission. True when the path goes on to scatter here.
bool PathIntegrator::shadeSurface(Path& path, SurfaceHit& hit, ShadedPoint& sp) const {
  Sampler& sampler = *path.sampler;
  SampleResult& out = *path.out;
  const Ray& ray = path.ray;
  Vec3& beta = path.beta;
  uint32_t& depth = path.depth;
  // The preview lights by light sampling alone (no MIS) and stops after its bounce's light sample.
  const bool preview = settings_.mode == IntegratorMode::Preview;
  auto add = [&](Vec3 value, bool direct) { addLight(path, value, direct); };
  path.alive = false;  // until a next ray is made
  hit.footprint = path.coneWidth + path.cone * hit.t;
  Vec3 wo = -ray.direction;
  if (!isBlack(path.sigma)) {
    Vec3 absorbed = exp(-path.sigma * hit.t);
    beta *= absorbed;
    path.lightBeta *= absorbed;
  }

  evaluateMaterial(scene_, hit, params_.mipLodOffset, sp);
  const MaterialSample& mat = sp.material;

  // Stochastic transparency: pass through with probability 1 - opacity, not counted as a bounce.
  if (mat.opacity < 1) {
    float u = sampler.get1D();
    if (u >= mat.opacity && path.alphaPasses < kMaxAlphaPasses) {
      ++path.alphaPasses;
      if (depth == 0) path.distanceSoFar += hit.t;
      path.ray = spawnRay(hit.p, hit.ng, ray.direction, epsilon_);
      path.alive = true;
      return false;
    }
  }

  if (depth == 0 && !out.hit && scene_.shapes()[hit.shape].catcher != 0) {
    passCatcher(path, hit, sp);
    return false;
  }

  if (depth == 0 && !out.hit) {
    const ShapeRecord& shape = scene_.shapes()[hit.shape];
    out.shape = hit.shape;
    out.hit = true;
    out.opacity = 1;
    out.position = hit.p;
    out.normalGeom = dot(hit.ng, wo) >= 0 || !mat.doubleSided ? hit.ng : -hit.ng;
    out.normal = sp.shading.n;
    out.cameraNormal = camera_.toCameraSpace(sp.shading.n);
    out.uv[0] = hit.uv[0][0];
    out.uv[1] = hit.uv[0][1];
    out.depth = path.distanceSoFar + hit.t;
    out.materialId = sp.data->materialId;
    out.objectId = shape.objectId;
    out.meshId = shape.meshId;
    out.groupId = shape.groupId;
    out.albedo = mat.unlit ? Vec3(0) : mat.baseColor * ((1 - clamp01(mat.metallic)) * (1 - clamp01(mat.transmission)));
    if (settings_.wantAo || settings_.mode == IntegratorMode::AmbientOcclusion) {
      Vec3 n = dot(sp.shading.n, wo) >= 0 ? sp.shading.n : -sp.shading.n;
      Vec3 ng = dot(hit.ng, wo) >= 0 ? hit.ng : -hit.ng;
      // Its own stream, so binding the AO AOV leaves the path's dimensions where they were.
      Sampler aoSampler = sampler.fork(1);
      auto u = aoSampler.get2D();
      Vec3 dir = Frame(n).toWorld(squareToCosineHemisphere(u.first, u.second));
      path.aoRay = spawnRay(hit.p, ng, dir, epsilon_, aoRadius_);
      path.aoPending = true;
    }
    if (settings_.mode == IntegratorMode::AmbientOcclusion) return false;
  }

  // Light emitted by the surface itself.
  const EmitterEvent object{kEventObject, scene_.shapes()[hit.shape].lightGroup, hit.shape};
  auto emit = [&](Vec3 value) {
    Vec3 v = clampContribution(value);
    if (depth == 0) out.emission += v;
    else add(value, depth == 1);
    if (paths_) creditLight(path, path.events, object, v, ray.direction);
  };
  if (mat.unlit) {
    emit((depth == 0 ? beta : path.lightBeta) * mat.baseColor);
    return false;
  }
  // A single-sided material emits from its front face only.
  if (!isBlack(mat.emission) && (mat.doubleSided || dot(wo, hit.ng) > 0)) {
    if (depth == 0) {
      emit(beta * mat.emission);
    } else if (path.deltaBounce || !preview) {
      float w = 1;
      if (!path.deltaBounce)
        w = powerHeuristic(path.prevPdf, lights_.trianglePdf(scene_, hit.shape, hit.prim, path.prevP, hit.p, hit.ng, path.prevSide));
      emit(path.lightBeta * mat.emission * w);
    }
  }

  return !path.emissionOnly;
}

// The BSDF of the hit's material, then the rest of the bounce.
void PathIntegrator::scatterAt(Path& path, const SurfaceHit& hit, const ShadedPoint& sp) const {
  const MaterialSample& mat = sp.material;
  const Vec3 wo = -path.ray.direction;
  if (LambertBsdf::handles(mat)) {
    scatter(path, hit, mat, LambertBsdf(mat.baseColor, sp.shading, hit.ng, wo));
    return;
  }
  scatter(path, hit, mat, Bsdf(mat, sp.shading, sp.coat, hit.ng, wo, minRoughness(path)));
}

// The rest of a bounce, once the BSDF is known: its light sample (left pending for the shadow
// packet) and the next ray.
template <class AnyBsdf>
void PathIntegrator::scatter(Path& path, const SurfaceHit& hit, const MaterialSample& mat, const AnyBsdf& bsdf) const {
  Sampler& sampler = *path.sampler;
  SampleResult& out = *path.out;
  Vec3& beta = path.beta;
  uint32_t& depth = path.depth;
  const bool preview = settings_.mode == IntegratorMode::Preview;
  const Vec3 wo = -path.ray.direction;

  // A Lambert surface sees light on the side of wo only, weighted by cosine: a constant sky is
  // sampled by cosine in that hemisphere. Glossy lobes keep the whole sphere, as a denser light
  // sample takes MIS weight from their better BSDF sample (the helmet's error rose 6% otherwise).
  // The preview weighs no samples: there the ratio of shading to geometric cosine would go
  // unbounded on smooth-shaded meshes.
  const bool skyHemisphere = !preview && !bsdf.choosesLobe() && !bsdf.isTransmissive();
  // Any surface that only reflects takes no light from below its geometric side, lobes and all.
  const Vec3 side = bsdf.isTransmissive() ? Vec3(0) : dot(wo, hit.ng) >= 0 ? hit.ng : -hit.ng;
  const Vec3 upper = skyHemisphere ? side : Vec3(0);
  // Next-event estimation; the shadow ray waits for the round's occlusion packet.
  if (bsdf.hasNonDelta() && !lights_.empty()) {
    float ul = 0;
    if (lights_.choosesLight()) ul = sampler.get1D();
    else sampler.skip();
    auto u = sampler.get2D();
    LightSample ls;
    if (lights_.sample(hit.p, ul, u.first, u.second, scene_, ls, upper, side) && ls.pdf > 0 && !isBlack(ls.radiance)) {
      BsdfEval e = bsdf.eval(ls.wi);
      Vec3 f = e.total();
      if (!isBlack(f)) {
        Ray toLight = shadowRay(hit.p, hit.ng, ls.wi, ls.distance, epsilon_);
        Vec3 vis(1);
        if (!scene_.allOpaque()) {
          ++out.rays;
          vis = transmittance(toLight, out.rays);
        }
        if (!isBlack(vis)) {
          float w = ls.delta || preview ? 1.0f : powerHeuristic(ls.pdf, e.pdf);
          Vec3 scale = beta * ls.radiance * vis * (w / ls.pdf);
          path.lightPending = true;
          path.lightNeedsRay = scene_.allOpaque();
          path.lightRay = toLight;
          path.lightSplit = depth == 0;
          if (depth == 0) {
            for (int c = 0; c < kLobeCategories; ++c) path.lightValue[c] = scale * e.value[c];
          } else {
            path.lightValue[0] = scale * f;
            if (paths_)
              for (int c = 0; c < kLobeCategories; ++c) path.lightParts[c] = scale * e.value[c];
          }
          if (paths_) {
            path.lightEvents = path.events;
            path.lightEmitter = {ls.emitterType, ls.group, ls.labelKey};
            path.lightVertex = hit.shape;
            path.lightDir = ls.wi;
          }
        }
      }
    }
  }

  if (depth >= maxDepth_) {
    // The preview takes light only by light sampling, so nothing is left to collect.
    if (preview) return;
    path.emissionOnly = true;
  }
  // The preview follows its one bounce on a fraction of samples, weighted up to stay unbiased.
  if (preview && depth == 0) {
    if (sampler.get1D() >= kPreviewBounceProbability) return;
    beta *= 1 / kPreviewBounceProbability;
  }

  float uLobe = 0;
  if (bsdf.choosesLobe()) {
    uLobe = sampler.get1D();
    path.choseLobe = true;
  } else {
    sampler.skip();
  }
  auto u = sampler.get2D();
  BsdfSample bs;
  if (!bsdf.sample(uLobe, u.first, u.second, bs)) return;
  if (bs.category == kLobeDiffuse) {
    if (++path.diffuseBounces > params_.maxDepthDiffuse) path.emissionOnly = true;
    path.afterDiffuse = true;
  } else if (bs.category == kLobeReflect) {
    if (++path.glossyBounces > params_.maxDepthGlossy) path.emissionOnly = true;
  } else if (bs.delta) {
    if (++path.refractionBounces > params_.maxDepthRefraction) path.emissionOnly = true;
  } else {
    if (++path.roughRefractionBounces > params_.maxDepthRefractionGlossy) path.emissionOnly = true;
  }

  if (depth == 0) path.firstCategory = bs.category;
  if (paths_)
    paths_->scatter(path.events, bs.transmitted ? kEventTransmit : kEventReflect,
                    bs.delta ? kScatterSingular : bs.category == kLobeDiffuse ? kScatterDiffuse : kScatterGlossy, hit.shape);
  beta *= bs.weight;
  path.lightBeta = beta;
  if (mat.occlusion < 1) beta *= mat.occlusion;
  if (!isFinite(path.lightBeta) || isBlack(path.lightBeta)) return;
  path.deltaBounce = bs.delta;
  path.prevPdf = bs.pdf;
  path.prevP = hit.p;
  path.prevUpper = upper;
  path.prevSide = side;
  if (bs.transmitted && !mat.thinWalled) path.sigma = dot(bs.wi, hit.ng) < 0 ? mat.attenuation : Vec3(0);

  path.coneWidth = hit.footprint;
  if (!bs.delta) path.cone += bs.category == kLobeDiffuse ? 0.5f : 0.1f;

  ++depth;
  if (depth >= kRussianRouletteDepth) {
    // Survival as the square root of the throughput: ending paths in proportion to it saved rays
    // but cost more in noise than it saved in time (measured on the Cornell box; the cube root,
    // no roulette, and starting at depth 2 or 5 all did worse).
    float q = std::max(kMinSurvival, 1 - std::sqrt(maxComponent(path.lightBeta)));
    if (sampler.get1D() < q) return;
    beta *= 1 / (1 - q);
    path.lightBeta *= 1 / (1 - q);
  }
  path.ray = spawnRay(hit.p, hit.ng, bs.wi, epsilon_);
  path.alive = true;
}

}  // namespace zvr::kernel
