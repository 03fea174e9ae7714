#include "kernel/catcher.h"

#include "engine/ZvrCore.h"

namespace zvr::kernel {

CatcherResult CatcherShading::shade(uint32_t flags, const SurfaceHit& hit, const ShadedPoint& sp, Vec3 wo,
                                    Sampler& sampler) const {
  CatcherResult out;
  Vec3 n = dot(sp.shading.n, wo) >= 0 ? sp.shading.n : -sp.shading.n;
  if (flags & ZVR_CATCHER_SHADOW) shadow(hit, n, sampler, out);
  if (flags & ZVR_CATCHER_REFLECTION) reflection(hit, sp, wo, sampler, out);
  return out;
}

// A white diffuse surface's light: one sample with and without its shadow ray, and the mean of that
// sample and kUnoccludedSamples more, which trace no ray.
void CatcherShading::shadow(const SurfaceHit& hit, Vec3 n, Sampler& sampler, CatcherResult& out) const {
  constexpr int kUnoccludedSamples = 15;
  out.lit = out.unoccluded = 0;
  out.litFraction = 1;
  if (lights_.empty()) return;
  Ray shadowRay;
  float total = 0;
  bool first = true;
  for (int i = 0; i <= kUnoccludedSamples; ++i) {
    const float ul = sampler.get1D();
    auto u = sampler.get2D();
    LightSample ls;
    float value = 0;
    if (lights_.sample(hit.p, ul, u.first, u.second, scene_, ls) && ls.pdf > 0) {
      value = luminance(ls.radiance) * std::max(0.0f, dot(n, ls.wi)) / (kPi * ls.pdf);
      if (!std::isfinite(value)) value = 0;
    }
    total += value;
    if (first && value > 0) {
      const Vec3 ng = dot(hit.ng, n) >= 0 ? hit.ng : -hit.ng;
      shadowRay = kernel::shadowRay(hit.p, ng, ls.wi, ls.distance, epsilon_);
      out.lit = out.unoccluded = value;
    }
    first = false;
  }
  if (out.lit > 0) {
    ++out.rays;
    if (scene_.occluded(shadowRay)) out.lit = 0;
  }
  const float mean = total / (kUnoccludedSamples + 1);
  if (mean > 0) out.litFraction = out.lit / mean;
}

void CatcherShading::reflection(const SurfaceHit& hit, const ShadedPoint& sp, Vec3 wo, Sampler& sampler,
                                CatcherResult& out) const {
  Bsdf bsdf(sp.material, sp.shading, sp.coat, hit.ng, wo);
  const float uLobe = sampler.get1D();
  auto u = sampler.get2D();
  BsdfSample bs;
  if (!bsdf.sample(uLobe, u.first, u.second, bs) || bs.transmitted || !isFinite(bs.weight) || isBlack(bs.weight)) return;
  SurfaceHit seen;
  ++out.rays;
  if (!scene_.intersect(spawnRay(hit.p, hit.ng, bs.wi, epsilon_), seen)) return;  // the sky is not an object
  if (scene_.shapes()[seen.shape].catcher != 0) return;
  out.reflection = bs.weight * directLight(seen, -bs.wi, sampler, out.rays);
}

Vec3 CatcherShading::directLight(SurfaceHit& hit, Vec3 wo, Sampler& sampler, uint32_t& rays) const {
  ShadedPoint sp;
  evaluateMaterial(scene_, hit, params_.mipLodOffset, sp);
  const MaterialSample& mat = sp.material;
  if (mat.unlit) return mat.baseColor;
  Vec3 result;
  if (mat.doubleSided || dot(wo, hit.ng) > 0) result += mat.emission;
  Bsdf bsdf(mat, sp.shading, sp.coat, hit.ng, wo);
  if (!bsdf.hasNonDelta() || lights_.empty()) return result;
  const float ul = sampler.get1D();
  auto u = sampler.get2D();
  LightSample ls;
  if (!lights_.sample(hit.p, ul, u.first, u.second, scene_, ls) || !(ls.pdf > 0)) return result;
  const Vec3 f = bsdf.eval(ls.wi).total();
  if (isBlack(f)) return result;
  ++rays;
  if (scene_.occluded(shadowRay(hit.p, hit.ng, ls.wi, ls.distance, epsilon_))) return result;
  const Vec3 light = f * ls.radiance * (1 / ls.pdf);
  return isFinite(light) ? result + light : result;
}

}  // namespace zvr::kernel
