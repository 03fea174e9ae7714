// The glossy bounce on the vector unit: Bsdf's set-up, eval and sample for a material
// with only its diffuse, GGX reflection and multiple-scattering lobes, written out per lane from
// the same inline functions Bsdf calls, in the same order, so that each lane gets Bsdf's numbers
// to the bit. Every lobe is computed in every lane and the lane's own chosen by a blend.
#include <algorithm>
#include <cmath>

#include "kernel/bounce_lanes.h"
#include "kernel/bsdf.h"
#include "kernel/lane_stage.h"
#include "kernel/microfacet.h"
#include "kernel/microfacet_albedo.h"
#include "kernel/sampling.h"

namespace zvr::kernel {
namespace {

using namespace lane_stage;

// One lane's Bsdf, with transmission, clearcoat and sheen at zero: their factors of one (the base
// scale, the glass compensation) are left out, as multiplying by one changes no value.
struct Reflector {
  Vec3 s, t, n;  // Bsdf's frame_, turned to wo's side
  Vec3 ng, wo, woLocal;
  Vec3 base, diffuse, tintedF0, msColor;
  float metallic, specular, eta, f0, alpha;
  float fd;  // dielectricReflectance(woLocal.z)
  float msLossO, msScale;
  float weightDiffuse, weightReflect, weightMultiScatter;

  [[gnu::always_inline]] Vec3 toLocal(Vec3 v) const { return {dot(v, s), dot(v, t), dot(v, n)}; }
  [[gnu::always_inline]] Vec3 toWorld(Vec3 v) const { return s * v.x + t * v.y + n * v.z; }

  [[gnu::always_inline]] Vec3 dielectricFresnel(float cosH) const {
    const float f = fresnelDielectric(cosH, eta);
    const float w = f0 < 1 ? clamp01((f - f0) / (1 - f0)) : 1;
    return select(specular <= 0, Vec3(0), (tintedF0 * (1 - w) + Vec3(w)) * specular);
  }
  [[gnu::always_inline]] Vec3 reflectFresnel(float cosH) const {
    const Vec3 metal = select(metallic > 0, fresnelSchlick(base, cosH), Vec3(0));
    return metal * metallic + dielectricFresnel(cosH) * (1 - metallic);
  }

  // Bsdf::eval: f |cos| per category (diffuse, reflection) and the density over the lobes. Lobes
  // are gated by Bsdf's own test of their weights; admitted materials have finite weights.
  [[gnu::always_inline]] void eval(Vec3 wi, Vec3& diffuseValue, Vec3& reflectValue, float& pdf) const {
    const Vec3 wiL = toLocal(wi);
    const bool sameSide = dot(wi, ng) * dot(wo, ng) > 0;
    const bool above = sameSide & !(wiL.z <= 0);
    const bool diffuseOn = above & !(weightDiffuse <= 0);
    const bool multiScatterOn = above & !(weightMultiScatter <= 0);
    const Vec3 h = normalize(woLocal + wiL);
    const float cosH = dot(woLocal, h);
    const bool reflectOn = above & !(weightReflect <= 0) & !(cosH <= 0);

    const float cosinePdf = wiL.z * kInvPi;
    const Vec3 fDiffuse = diffuse * ((1 - fd) * kInvPi * wiL.z);
    const float reflectPdf = ggxVisiblePdf(woLocal, h, alpha) / (4 * cosH);
    const Vec3 fReflect = reflectFresnel(cosH) * (ggxD(h, alpha) * ggxG(woLocal, wiL, alpha) / (4 * woLocal.z));
    const float lossI = 1 - ggxDirectionalAlbedo(wiL.z, alpha);
    const Vec3 fMultiScatter = msColor * (msLossO * lossI * msScale * wiL.z);

    diffuseValue = select(diffuseOn, Vec3(0) + fDiffuse, Vec3(0));
    reflectValue = select(reflectOn, Vec3(0) + fReflect, Vec3(0));
    reflectValue = select(multiScatterOn, reflectValue + fMultiScatter, reflectValue);
    pdf = 0;
    pdf = diffuseOn ? pdf + weightDiffuse * cosinePdf : pdf;
    pdf = reflectOn ? pdf + weightReflect * reflectPdf : pdf;
    pdf = multiScatterOn ? pdf + weightMultiScatter * cosinePdf : pdf;
  }
};

// Bsdf's constructor (initLayered) for a lane.
[[gnu::always_inline]] inline Reflector reflectorOf(const BounceLanes& l, int k) {
  Reflector r;
  r.ng = at(l.ng, k);
  r.wo = at(l.wo, k);
  // The frame turned to wo's side as Bsdf turns it, by Frame{-n, s}: s made orthogonal to the new
  // normal and normalised, or Duff's basis of that normal where s cannot be. Written out, as the
  // constructor's early return keeps the loop from becoming vector code.
  const Vec3 n0 = at(l.n, k), s0 = at(l.s, k), t0 = at(l.t, k);
  const bool flip = dot(r.wo, n0) < 0;
  const Vec3 fn = -n0;
  const Vec3 ts = s0 - fn * dot(fn, s0);
  const float tl = length(ts);
  const Frame duff(fn);
  const bool degenerate = tl < 1e-6f;
  const Vec3 fs = select(degenerate, duff.s, ts / tl);
  const Vec3 ft = select(degenerate, duff.t, cross(fn, fs));
  r.n = select(flip, fn, n0);
  r.s = select(flip, fs, s0);
  r.t = select(flip, ft, t0);
  r.woLocal = r.toLocal(r.wo);
  r.woLocal.z = std::max(r.woLocal.z, 1e-6f);

  r.base = at(l.color, k);
  r.tintedF0 = at(l.tintedF0, k);
  r.metallic = l.metallic[k];
  r.specular = l.specular[k];
  r.eta = l.eta[k];
  r.f0 = l.f0[k];
  r.alpha = l.alpha[k];
  r.diffuse = r.base * (1 - r.metallic);

  const float cosO = r.woLocal.z;
  const Vec3 reflectance = r.reflectFresnel(cosO);
  r.fd = r.metallic < 1 ? maxComponent(r.dielectricFresnel(cosO)) : 0;
  float weightDiffuse = luminance(r.diffuse) * (1 - r.fd);
  float weightReflect = maxComponent(reflectance);

  // initMultiScatter
  const float eAvg = ggxAverageAlbedo(r.alpha);
  const float lossO = 1 - ggxDirectionalAlbedo(cosO, r.alpha);
  const bool multiScatter = (weightReflect > 0) & (eAvg < 1) & (lossO > 0);
  const float fAvg = averageDielectricFresnel(r.eta);
  const float w = r.f0 < 1 ? clamp01((fAvg - r.f0) / (1 - r.f0)) : 1;
  const bool hasDielectric = (r.metallic < 1) & (r.specular > 0);
  // Per channel by name: an indexed Vec3 lives in memory, and a store under a condition is a branch.
  auto metalChannel = [&](float base) {
    const float f0 = clamp01(base);
    return r.metallic > 0 ? multiScatterFresnel(f0 + (1 - f0) / 21, eAvg) : 0.0f;
  };
  auto dielectricChannel = [&](float tint) {
    return hasDielectric ? multiScatterFresnel((tint * (1 - w) + w) * r.specular, eAvg) : 0.0f;
  };
  const Vec3 metal(metalChannel(r.base.x), metalChannel(r.base.y), metalChannel(r.base.z));
  const Vec3 dielectric(dielectricChannel(r.tintedF0.x), dielectricChannel(r.tintedF0.y), dielectricChannel(r.tintedF0.z));
  r.msColor = select(multiScatter, metal * r.metallic + dielectric * (1 - r.metallic), Vec3(0));
  r.msLossO = lossO;
  r.msScale = 1 / (kPi * (1 - eAvg));
  float weightMultiScatter = multiScatter ? maxComponent(r.msColor) * lossO : 0.0f;

  // The lobes' weights normalised, summed in Bsdf's order with its three empty lobes. Bsdf's test
  // that the sum is above zero always passes for the materials isRoughReflector takes; left out, it
  // no longer hides the weights' signs from the vector code.
  float sum = 0;
  sum += weightDiffuse;
  sum += weightReflect;
  sum += 0.0f;
  sum += 0.0f;
  sum += 0.0f;
  sum += weightMultiScatter;
  r.weightDiffuse = weightDiffuse / sum;
  r.weightReflect = weightReflect / sum;
  r.weightMultiScatter = weightMultiScatter / sum;
  return r;
}

// On a local copy of the lanes: stores to the caller's might alias the albedo table for all the
// compiler knows, which keeps the table's lookups from becoming gathers, and a load that only one
// side of a choice needs may only be hoisted out of it from memory known to be there.
[[gnu::always_inline]] inline void shade(BounceLanes& lanes, float epsilon, float minSurvival) {
  BounceLanes l = lanes;
  for (int k = 0; k < kBounceLanes; ++k) {
    const Reflector r = reflectorOf(l, k);

    Vec3 diffuseValue, reflectValue;
    float pdf;
    r.eval(at(l.lightWi, k), diffuseValue, reflectValue, pdf);
    weighLightSample(l, k, !black(diffuseValue + reflectValue + Vec3(0)), pdf, epsilon);
    put(l.lightValue, k, diffuseValue);
    put(l.lightReflectValue, k, reflectValue);

    // Bsdf::sample: the lobe by its weight (the scan over all six finds the last one that has
    // weight when the number passes the first two), its direction, and eval there.
    const float u = l.lobeU[k], u1 = l.bsdfU1[k], u2 = l.bsdfU2[k];
    float acc = 0;
    acc += r.weightDiffuse;
    const bool pickDiffuse = (u < acc) & (r.weightDiffuse > 0);
    acc += r.weightReflect;
    const bool pickReflect = (u < acc) & (r.weightReflect > 0);
    // Past the first two, the scan steps back from the last lobe to the nearest one with weight.
    const bool lastHasWeight = !(r.weightMultiScatter <= 0);
    const bool reflect = (!pickDiffuse) & (pickReflect | (!lastHasWeight & !(r.weightReflect <= 0)));
    const bool multiScatter = !(pickDiffuse | pickReflect) & lastHasWeight;
    // Bsdf rejects a chosen lobe without weight. Only the diffuse one could be, chosen last; for the
    // materials admitted its weight is then 1, so this mirrors Bsdf rather than filtering anything.
    const bool chosenHasWeight = reflect | multiScatter | !(r.weightDiffuse <= 0);
    const Vec3 cosineLocal = squareToCosineHemisphere(u1, u2);
    const Vec3 mirrored = kernel::reflect(r.woLocal, ggxSampleVisible(r.woLocal, r.alpha, u1, u2));
    const Vec3 wi = r.toWorld(select(reflect, mirrored, cosineLocal));
    Vec3 sampledDiffuse, sampledReflect;
    float sampledPdf;
    r.eval(wi, sampledDiffuse, sampledReflect, sampledPdf);
    const Vec3 f = sampledDiffuse + sampledReflect + Vec3(0);
    const bool scattered = chosenHasWeight & !(reflect & (mirrored.z <= 0)) & !(sampledPdf <= 0) & !black(f);
    l.category[k] = reflect | multiScatter ? kLobeReflect : kLobeDiffuse;
    continuePath(l, k, scattered, wi, sampledPdf, f / sampledPdf, epsilon, minSurvival);
  }
  copyResults(l, lanes);
}

}  // namespace

// Bsdf::initLayered's numbers, with no transmission.
void putGlossyMaterial(const MaterialSample& mat, float minRoughness, BounceLanes& lanes, int lane) {
  const float metallic = clamp01(mat.metallic);
  const float ior = mat.ior >= 1.0f ? mat.ior : 1.5f;
  const float specular = metallic < 1 ? clamp01(mat.specular) : 0;
  const float f0 = specular > 0 ? fresnelDielectric(1, ior) : 0;
  lanes.metallic[lane] = metallic;
  lanes.specular[lane] = specular;
  lanes.eta[lane] = ior;
  lanes.f0[lane] = f0;
  put(lanes.tintedF0, lane,
      {std::min(1.0f, f0 * mat.specularColor.x), std::min(1.0f, f0 * mat.specularColor.y),
       std::min(1.0f, f0 * mat.specularColor.z)});
  lanes.alpha[lane] = roughnessToAlpha(std::max(clamp01(mat.roughness), minRoughness));
}

void shadeGlossyLanes(BounceLanes& lanes, int count, float epsilon, float minSurvival, VectorIsa isa) {
  if (count > 0) run<shade>(isa, lanes, epsilon, minSurvival);
}

}  // namespace zvr::kernel
