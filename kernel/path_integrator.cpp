#include "path_integrator.h"

namespace zvr::kernel {
namespace {

constexpr int kMaxAlphaPasses = 64;
constexpr uint32_t kRussianRouletteDepth = 3;
constexpr float kPreviewBounceProbability = 0.25f;

}  // namespace

PathIntegrator::PathIntegrator(const Scene& scene, const LightSet& lights, const Camera& camera, const RenderParams& params,
                               const IntegratorSettings& settings)
    : scene_(scene), lights_(lights), camera_(camera), params_(params), settings_(settings) {
  epsilon_ = scene.rayEpsilon();
  aoRadius_ = 0.1f * scene.diagonal();
  maxDepth_ = params.maxDepth;
  if (settings.mode == IntegratorMode::Direct) maxDepth_ = 0;
  if (settings.mode == IntegratorMode::Preview) maxDepth_ = std::min(maxDepth_, 1u);
}

Ray PathIntegrator::spawn(Vec3 p, Vec3 ng, Vec3 dir, float distance) const {
  Ray r;
  // Offset along the geometric normal towards the side the ray leaves by.
  r.origin = p + ng * (dot(dir, ng) >= 0 ? epsilon_ : -epsilon_);
  r.direction = dir;
  r.tMin = 0;
  r.tMax = distance;
  return r;
}

Vec3 PathIntegrator::clampContribution(Vec3 c) const {
  if (!isFinite(c)) return Vec3(0);
  float m = maxComponent(c);
  if (m > params_.radianceClamp && params_.radianceClamp > 0) c *= params_.radianceClamp / m;
  return c;
}

// Visibility of a light: 0 behind opaque geometry, partial through alpha-blended surfaces.
Vec3 PathIntegrator::transmittance(Vec3 from, Vec3 dir, float distance, Vec3 ng, uint32_t& rays) const {
  float shorten = distance < 1e29f ? 2 * epsilon_ : 0;
  Ray ray = spawn(from, ng, dir, std::max(0.0f, distance - shorten));
  ++rays;
  if (scene_.allOpaque()) return scene_.occluded(ray) ? Vec3(0) : Vec3(1);
  float visibility = 1;
  for (uint32_t passes = 0;; ++passes) {
    SurfaceHit hit;
    if (!scene_.intersect(ray, hit)) return Vec3(visibility);
    hit.footprint = 0;
    float opacity = evaluateOpacity(scene_, hit, params_.mipLodOffset);
    if (opacity >= 1 || passes >= params_.maxDepthShadow) return Vec3(0);
    visibility *= 1 - opacity;
    if (visibility <= 0) return Vec3(0);
    float remaining = ray.tMax - hit.t;
    ray = spawn(hit.p, hit.ng, dir, remaining);
    ++rays;
  }
}

float PathIntegrator::ambientOcclusion(const SurfaceHit& hit, Vec3 n, Sampler& sampler, uint32_t& rays) const {
  ++rays;
  auto u = sampler.get2D();
  Frame f(n);
  Vec3 dir = f.toWorld(squareToCosineHemisphere(u.first, u.second));
  return scene_.occluded(spawn(hit.p, hit.ng, dir, aoRadius_)) ? 0.0f : 1.0f;
}

void PathIntegrator::trace(float filmX, float filmY, Sampler& sampler, SampleResult& out) const {
  out = SampleResult{};
  Ray ray;
  if (!camera_.generateRay(filmX, filmY, ray)) return;

  Vec3 beta(1);
  bool deltaBounce = true;
  float prevPdf = 0;
  Vec3 prevP;
  int firstCategory = -1;
  bool afterDiffuse = false;
  uint32_t depth = 0, diffuseBounces = 0, glossyBounces = 0, refractionBounces = 0, roughRefractionBounces = 0;
  int alphaPasses = 0;
  float distanceSoFar = 0;
  float cone = camera_.pixelSpread();
  float coneWidth = camera_.pixelWidth();
  Vec3 sigma(0);  // extinction of the medium the ray travels in
  // After the last bounce a path still follows its BSDF sample to collect emission, the other half
  // of the MIS pair whose light-sampling half was taken at that vertex.
  bool emissionOnly = false;
  // The preview lights by light sampling alone (no MIS) and stops after its bounce's light sample.
  const bool preview = settings_.mode == IntegratorMode::Preview;

  auto add = [&](Vec3 value, bool direct) {
    value = clampContribution(value);
    int c = firstCategory < 0 ? kLobeDiffuse : firstCategory;
    if (direct) out.direct[c] += value;
    else out.indirect[c] += value;
  };

  for (;;) {
    SurfaceHit hit;
    ++out.rays;
    if (!scene_.intersect(ray, hit)) {
      Vec3 le = lights_.environment(ray.direction);
      if (!isBlack(le)) {
        if (depth == 0) {
          out.background += clampContribution(beta * le);
        } else if (deltaBounce || !preview) {
          float w = deltaBounce ? 1.0f : powerHeuristic(prevPdf, lights_.environmentPdf(ray.direction));
          add(beta * le * w, depth == 1);
        }
      }
      break;
    }
    hit.footprint = coneWidth + cone * hit.t;
    Vec3 wo = -ray.direction;
    if (!isBlack(sigma)) beta *= exp(-sigma * hit.t);

    ShadedPoint sp;
    evaluateMaterial(scene_, hit, params_.mipLodOffset, sp);
    const MaterialSample& mat = sp.material;

    // Stochastic transparency: pass through with probability 1 - opacity, not counted as a bounce.
    if (mat.opacity < 1) {
      float u = sampler.get1D();
      if (u >= mat.opacity && alphaPasses < kMaxAlphaPasses) {
        ++alphaPasses;
        if (depth == 0) distanceSoFar += hit.t;
        ray = spawn(hit.p, hit.ng, ray.direction);
        continue;
      }
    }

    if (depth == 0 && !out.hit) {
      const ShapeRecord& shape = scene_.shapes()[hit.shape];
      out.hit = true;
      out.opacity = 1;
      out.position = hit.p;
      out.normalGeom = dot(hit.ng, wo) >= 0 || !mat.doubleSided ? hit.ng : -hit.ng;
      out.normal = sp.shading.n;
      out.cameraNormal = camera_.toCameraSpace(sp.shading.n);
      out.uv[0] = hit.uv[0][0];
      out.uv[1] = hit.uv[0][1];
      out.depth = distanceSoFar + hit.t;
      out.materialId = sp.data->materialId;
      out.objectId = shape.objectId;
      out.meshId = shape.meshId;
      out.groupId = shape.groupId;
      out.albedo = mat.unlit ? Vec3(0) : mat.baseColor * ((1 - clamp01(mat.metallic)) * (1 - clamp01(mat.transmission)));
      if (settings_.wantAo || settings_.mode == IntegratorMode::AmbientOcclusion) {
        Vec3 n = dot(sp.shading.n, wo) >= 0 ? sp.shading.n : -sp.shading.n;
        Vec3 ng = dot(hit.ng, wo) >= 0 ? hit.ng : -hit.ng;
        SurfaceHit aoHit = hit;
        aoHit.ng = ng;
        Sampler aoSampler = sampler.fork(1);
        out.ao = ambientOcclusion(aoHit, n, aoSampler, out.rays);
      }
      if (settings_.mode == IntegratorMode::AmbientOcclusion) {
        out.direct[kLobeDiffuse] = Vec3(out.ao);
        break;
      }
    }

    // Light emitted by the surface itself.
    if (mat.unlit) {
      if (depth == 0) out.emission += clampContribution(beta * mat.baseColor);
      else add(beta * mat.baseColor, depth == 1);
      break;
    }
    if (!isBlack(mat.emission)) {
      if (depth == 0) {
        out.emission += clampContribution(beta * mat.emission);
      } else if (deltaBounce || !preview) {
        float w = 1;
        if (!deltaBounce)
          w = powerHeuristic(prevPdf, lights_.trianglePdf(scene_, hit.shape, hit.prim, prevP, hit.p, hit.ng));
        add(beta * mat.emission * w, depth == 1);
      }
    }

    if (emissionOnly) break;

    float minRoughness = afterDiffuse && settings_.causticsReduction < 1 ? clamp01(1 - settings_.causticsReduction) : 0;
    Bsdf bsdf(mat, sp.shading, sp.coat, hit.ng, wo, minRoughness);

    // Next-event estimation.
    if (bsdf.hasNonDelta() && !lights_.empty()) {
      float ul = sampler.get1D();
      auto u = sampler.get2D();
      LightSample ls;
      if (lights_.sample(hit.p, ul, u.first, u.second, scene_, ls) && ls.pdf > 0 && !isBlack(ls.radiance)) {
        BsdfEval e = bsdf.eval(ls.wi);
        Vec3 f = e.total();
        if (!isBlack(f)) {
          Vec3 vis = transmittance(hit.p, ls.wi, ls.distance, hit.ng, out.rays);
          if (!isBlack(vis)) {
            float w = ls.delta || preview ? 1.0f : powerHeuristic(ls.pdf, e.pdf);
            Vec3 scale = beta * ls.radiance * vis * (w / ls.pdf);
            if (depth == 0) {
              for (int c = 0; c < kLobeCategories; ++c) out.direct[c] += clampContribution(scale * e.value[c]);
            } else {
              add(scale * f, false);
            }
          }
        }
      }
    }

    if (depth >= maxDepth_) {
      // The preview takes light only by light sampling, so nothing is left to collect.
      if (preview) break;
      emissionOnly = true;
    }
    // The preview follows its one bounce on a fraction of samples, weighted up to stay unbiased.
    if (preview && depth == 0) {
      if (sampler.get1D() >= kPreviewBounceProbability) break;
      beta *= 1 / kPreviewBounceProbability;
    }

    float uLobe = sampler.get1D();
    auto u = sampler.get2D();
    BsdfSample bs;
    if (!bsdf.sample(uLobe, u.first, u.second, bs)) break;
    if (bs.category == kLobeDiffuse) {
      if (++diffuseBounces > params_.maxDepthDiffuse) emissionOnly = true;
      afterDiffuse = true;
    } else if (bs.category == kLobeReflect) {
      if (++glossyBounces > params_.maxDepthGlossy) emissionOnly = true;
    } else if (bs.delta) {
      if (++refractionBounces > params_.maxDepthRefraction) emissionOnly = true;
    } else {
      if (++roughRefractionBounces > params_.maxDepthRefractionGlossy) emissionOnly = true;
    }

    if (depth == 0) firstCategory = bs.category;
    beta *= bs.weight;
    if (!isFinite(beta) || isBlack(beta)) break;
    deltaBounce = bs.delta;
    prevPdf = bs.pdf;
    prevP = hit.p;
    if (bs.transmitted && !mat.thinWalled) sigma = dot(bs.wi, hit.ng) < 0 ? mat.attenuation : Vec3(0);

    coneWidth = hit.footprint;
    if (!bs.delta) cone += bs.category == kLobeDiffuse ? 0.5f : 0.1f;

    ++depth;
    if (depth >= kRussianRouletteDepth) {
      float q = std::max(0.05f, 1 - maxComponent(beta));
      if (sampler.get1D() < q) break;
      beta *= 1 / (1 - q);
    }
    ray = spawn(hit.p, hit.ng, bs.wi);
  }

  out.color = out.emission + out.background;
  for (int c = 0; c < kLobeCategories; ++c) out.color += out.direct[c] + out.indirect[c];
}

}  // namespace zvr::kernel
