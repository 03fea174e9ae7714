#include "kernel/bsdf.h"

#include <array>

#include "kernel/dielectric_albedo.h"
#include "kernel/microfacet.h"
#include "kernel/microfacet_albedo.h"
#include "kernel/sampling.h"

namespace zvr::kernel {
namespace {

constexpr float kCoatIor = 1.5f;
constexpr int kSheenTableSize = 32;

}  // namespace

float sheenAlbedo(float cosO, float sheenRoughness) {
  // E(cos, roughness) by quadrature over the hemisphere, computed once.
  static const std::array<float, kSheenTableSize * kSheenTableSize> table = [] {
    std::array<float, kSheenTableSize * kSheenTableSize> t{};
    constexpr int n = 48;
    for (int ri = 0; ri < kSheenTableSize; ++ri) {
      float alpha = std::max(0.07f, sqr((ri + 0.5f) / kSheenTableSize));
      for (int ci = 0; ci < kSheenTableSize; ++ci) {
        float c = (ci + 0.5f) / kSheenTableSize;
        Vec3 wo(std::sqrt(1 - c * c), 0, c);
        double sum = 0;
        for (int i = 0; i < n; ++i)
          for (int j = 0; j < n; ++j) {
            Vec3 wi = squareToCosineHemisphere((i + 0.5f) / n, (j + 0.5f) / n);
            if (wi.z <= 0) continue;
            Vec3 h = normalize(wo + wi);
            // f * cos / (cos / pi)
            sum += charlieD(h, alpha) * sheenVisibility(wo.z, wi.z) * kPi;
          }
        t[ri * kSheenTableSize + ci] = std::min(1.0f, float(sum / (n * n)));
      }
    }
    return t;
  }();
  int ci = std::min(kSheenTableSize - 1, int(clamp01(cosO) * kSheenTableSize));
  int ri = std::min(kSheenTableSize - 1, int(clamp01(sheenRoughness) * kSheenTableSize));
  return table[ri * kSheenTableSize + ci];
}

Bsdf::Bsdf(const MaterialSample& material, const Frame& shading, const Frame& coat, Vec3 ng, Vec3 wo, float minRoughness)
    : ng_(ng), wo_(wo), m_(material) {
  if (isPlainLambert(material)) {
    initLambert(shading);
  } else {
    initLayered(shading, coat, minRoughness);
  }
  bool glossyDelta = alpha_ < kDeltaAlpha;
  nonDelta_ = weights_[kDiffuseLobe] > 0 || weights_[kSheenLobe] > 0 || weights_[kMultiScatterLobe] > 0 ||
              (!glossyDelta && (weights_[kReflectLobe] > 0 || weights_[kRefractLobe] > 0)) ||
              (weights_[kCoatLobe] > 0 && coatAlpha_ >= kDeltaAlpha);
}

bool Bsdf::isPlainLambert(const MaterialSample& m) {
  return clamp01(m.metallic) == 0 && clamp01(m.transmission) == 0 && clamp01(m.specular) == 0 && !(m.clearcoat > 0) &&
         !(clamp01(maxComponent(m.sheenColor)) > 0);
}

// Not Lambert alone, as specular is above zero or the surface all metal. A finite base colour with
// luminance, under a specular colour that is not negative, keeps the diffuse or the reflection lobe
// weighted at any angle, so the weights have a positive, finite sum.
bool Bsdf::isRoughReflector(const MaterialSample& m, float minRoughness) {
  const Vec3 tint = m.specularColor;
  return clamp01(m.transmission) == 0 && !(m.clearcoat > 0) && !(clamp01(maxComponent(m.sheenColor)) > 0) &&
         (clamp01(m.metallic) >= 1 || clamp01(m.specular) > 0) && isFinite(m.baseColor) && luminance(m.baseColor) > 0 &&
         tint.x >= 0 && tint.y >= 0 && tint.z >= 0 &&
         roughnessToAlpha(std::max(clamp01(m.roughness), minRoughness)) >= kDeltaAlpha;
}

// Lambert alone, the common case: the values the layered set-up would compute with every other
// lobe at zero, without the Fresnel, sheen and roughness work no Lambert lobe reads.
void Bsdf::initLambert(const Frame& shading) {
  // Worked on in registers: reading the members back right after copying them in stalled on
  // store forwarding (2.5% of a Cornell box sample).
  const Vec3 wo = wo_;
  const Frame frame = lambert_lobe::facing(shading, wo);
  frame_ = coatFrame_ = frame;
  woLocal_ = frame.toLocal(wo);
  woLocal_.z = std::max(woLocal_.z, 1e-6f);
  woCoat_ = woLocal_;
  m_.metallic = 0;
  m_.transmission = 0;
  volume_ = false;
  m_.ior = m_.ior >= 1.0f ? m_.ior : 1.5f;
  eta_ = m_.ior;
  specular_ = 0;
  f0_ = 0;
  tintedF0_ = Vec3(0);
  alpha_ = coatAlpha_ = sheenAlpha_ = 1;
  diffuseColor_ = m_.baseColor;
  baseScale_ = 1;
  for (float& w : weights_) w = 0;
  weights_[kDiffuseLobe] = luminance(diffuseColor_) > 0 ? 1.0f : 0.0f;
  lambertOnly_ = weights_[kDiffuseLobe] == 1;
  lambertScale_ = kInvPi;
}

void Bsdf::initLayered(const Frame& shading, const Frame& coat, float minRoughness) {
  const Vec3 wo = wo_, ng = ng_;
  bool outside = dot(wo, ng) >= 0;
  frame_ = shading;
  coatFrame_ = coat;
  // Lobes work with wo in the upper hemisphere: flip the frames to the side of wo.
  if (dot(wo, frame_.n) < 0) frame_ = Frame{-frame_.n, frame_.s};
  if (dot(wo, coatFrame_.n) < 0) coatFrame_ = Frame{-coatFrame_.n, coatFrame_.s};
  woLocal_ = frame_.toLocal(wo);
  woLocal_.z = std::max(woLocal_.z, 1e-6f);
  woCoat_ = coatFrame_.toLocal(wo);
  woCoat_.z = std::max(woCoat_.z, 1e-6f);

  float metallic = clamp01(m_.metallic), transmission = clamp01(m_.transmission);
  m_.metallic = metallic;
  m_.transmission = transmission;
  volume_ = transmission > 0 && !m_.thinWalled;
  float ior = m_.ior >= 1.0f ? m_.ior : 1.5f;
  m_.ior = ior;
  eta_ = volume_ ? (outside ? ior : 1 / ior) : ior;
  specular_ = metallic < 1 ? clamp01(m_.specular) : 0;
  f0_ = specular_ > 0 ? fresnelDielectric(1, eta_) : 0;
  tintedF0_ = Vec3(std::min(1.0f, f0_ * m_.specularColor.x), std::min(1.0f, f0_ * m_.specularColor.y),
                   std::min(1.0f, f0_ * m_.specularColor.z));
  alpha_ = roughnessToAlpha(std::max(clamp01(m_.roughness), minRoughness));
  coatAlpha_ = roughnessToAlpha(std::max(clamp01(m_.clearcoatRoughness), minRoughness));
  sheenAlpha_ = std::max(0.07f, sqr(clamp01(m_.sheenRoughness)));
  diffuseColor_ = m_.baseColor * ((1 - metallic) * (1 - transmission));

  float cosO = woLocal_.z;
  initGlassCompensation(cosO);
  float coatF = m_.clearcoat > 0 ? clamp01(m_.clearcoat) * fresnelDielectric(woCoat_.z, kCoatIor) : 0;
  float maxSheen = clamp01(maxComponent(m_.sheenColor));
  float sheenE = maxSheen > 0 ? maxSheen * sheenAlbedo(cosO, m_.sheenRoughness) : 0;
  baseScale_ = (1 - coatF) * (1 - sheenE);

  Vec3 reflectance = reflectFresnel(cosO);
  float fd = m_.metallic < 1 ? maxComponent(dielectricFresnel(cosO)) : 0;
  weights_[kDiffuseLobe] = luminance(diffuseColor_) * (1 - fd) * baseScale_;
  weights_[kReflectLobe] = maxComponent(reflectance) * baseScale_;
  // Beyond the critical angle a smooth surface reflects everything, yet tilted microfacets of a
  // rough one still let light through: the lobe keeps a share so that light is sampled at all.
  float transmitted = 1 - specular_ * fresnelDielectric(cosO, eta_);
  if (alpha_ >= kDeltaAlpha) transmitted = std::max(transmitted, 0.25f);
  weights_[kRefractLobe] = transmission > 0 ? (1 - metallic) * transmission * std::max(luminance(m_.baseColor), 1e-3f) *
                                                  transmitted * baseScale_ * refractScale_
                                            : 0;
  weights_[kCoatLobe] = coatF;
  weights_[kSheenLobe] = sheenE * (1 - coatF);
  initMultiScatter(cosO);
  float sum = 0;
  for (float w : weights_) sum += w;
  for (float& w : weights_) w = sum > 0 ? w / sum : 0;
  // Lambert alone (the common case): eval can skip the lobe loop. The factor is what the diffuse
  // lobe computes, in the same order, so results do not change.
  lambertOnly_ = weights_[kDiffuseLobe] == 1 && specular_ <= 0;
  lambertScale_ = (1 - dielectricReflectance(woLocal_.z)) * baseScale_ * kInvPi;
}

// A rough interface lets some light bounce between microfacets before it leaves, above or below;
// single scattering drops it. Dividing the glass's reflection and transmission by the energy they
// keep towards wo (E(mu_o)) gives it back, so a white rough glass neither darkens nor brightens.
// The opaque share of the reflection keeps the conductor-style lobe instead.
void Bsdf::initGlassCompensation(float cosO) {
  dielectricReflectScale_ = refractScale_ = 1;
  if (!(m_.transmission > 0) || alpha_ < kDeltaAlpha) return;
  // A thin wall mirrors the refracted half back into the reflection's geometry: together they
  // keep exactly the white reflector's albedo.
  float kept = volume_ ? roughDielectricAlbedo(cosO, alpha_, eta_) : ggxDirectionalAlbedo(cosO, alpha_);
  if (!(kept > 0)) return;
  refractScale_ = 1 / kept;
  dielectricReflectScale_ = 1 + m_.transmission * (refractScale_ - 1);
}

// Rough reflection loses the light that would bounce between microfacets more than once. The
// extra lobe (f_ms = F_ms (1 - E(mu_o)) (1 - E(mu_i)) / (pi (1 - E_avg))) gives it back so a white
// rough metal reflects all light, while coloured metals keep their saturation through F_ms.
void Bsdf::initMultiScatter(float cosO) {
  msColor_ = Vec3(0);
  weights_[kMultiScatterLobe] = 0;
  if (alpha_ < kDeltaAlpha || !(weights_[kReflectLobe] > 0)) return;
  float eAvg = ggxAverageAlbedo(alpha_);
  float lossO = 1 - ggxDirectionalAlbedo(cosO, alpha_);
  if (!(eAvg < 1) || !(lossO > 0)) return;
  Vec3 metal(0), dielectric(0);
  if (m_.metallic > 0) {
    // The Schlick Fresnel's average is F0 + (1 - F0) / 21.
    for (int k = 0; k < 3; ++k) {
      float f0 = clamp01(m_.baseColor[k]);
      metal[k] = multiScatterFresnel(f0 + (1 - f0) / 21, eAvg);
    }
  }
  if (m_.metallic < 1 && specular_ > 0) {
    // The same remapping of the Fresnel curve as dielectricFresnel, applied to its average.
    float fAvg = averageDielectricFresnel(eta_);
    float w = f0_ < 1 ? clamp01((fAvg - f0_) / (1 - f0_)) : 1;
    for (int k = 0; k < 3; ++k) dielectric[k] = multiScatterFresnel((tintedF0_[k] * (1 - w) + w) * specular_, eAvg);
    // The transmissive share is compensated by scaling instead.
    dielectric = dielectric * (1 - m_.transmission);
  }
  msColor_ = metal * m_.metallic + dielectric * (1 - m_.metallic);
  msLossO_ = lossO;
  msScale_ = 1 / (kPi * (1 - eAvg));
  weights_[kMultiScatterLobe] = maxComponent(msColor_) * lossO * baseScale_;
}

int Bsdf::categoryOf(int lobe) {
  if (lobe == kRefractLobe) return kLobeRefract;
  if (lobe == kReflectLobe || lobe == kCoatLobe || lobe == kMultiScatterLobe) return kLobeReflect;
  return kLobeDiffuse;
}

// The dielectric's reflectance with the specular colour tinting normal incidence only.
Vec3 Bsdf::dielectricFresnel(float cosH) const {
  if (specular_ <= 0) return Vec3(0);
  float f = fresnelDielectric(cosH, eta_);
  float w = f0_ < 1 ? clamp01((f - f0_) / (1 - f0_)) : 1;
  return (tintedF0_ * (1 - w) + Vec3(w)) * specular_;
}

float Bsdf::dielectricReflectance(float cosH) const {
  return m_.metallic < 1 ? maxComponent(dielectricFresnel(cosH)) : 0;
}

Vec3 Bsdf::reflectFresnel(float cosH) const {
  Vec3 metal = m_.metallic > 0 ? fresnelSchlick(m_.baseColor, cosH) : Vec3(0);
  return metal * m_.metallic + dielectricFresnel(cosH) * ((1 - m_.metallic) * dielectricReflectScale_);
}

Vec3 Bsdf::evalLobe(int lobe, Vec3 wo, Vec3 wi, Vec3 woC, Vec3 wiC, float* pdf) const {
  *pdf = 0;
  switch (lobe) {
    case kDiffuseLobe: {
      if (wi.z <= 0) return Vec3(0);
      *pdf = wi.z * kInvPi;
      return diffuseColor_ * ((1 - dielectricReflectance(wo.z)) * baseScale_ * kInvPi * wi.z);
    }
    case kMultiScatterLobe: {
      if (wi.z <= 0) return Vec3(0);
      *pdf = wi.z * kInvPi;
      float lossI = 1 - ggxDirectionalAlbedo(wi.z, alpha_);
      return msColor_ * (msLossO_ * lossI * msScale_ * baseScale_ * wi.z);
    }
    case kSheenLobe: {
      if (wi.z <= 0) return Vec3(0);
      *pdf = wi.z * kInvPi;
      Vec3 h = normalize(wo + wi);
      float coatF = m_.clearcoat > 0 ? clamp01(m_.clearcoat) * fresnelDielectric(woCoat_.z, kCoatIor) : 0;
      return m_.sheenColor * (charlieD(h, sheenAlpha_) * sheenVisibility(wo.z, wi.z) * wi.z * (1 - coatF));
    }
    case kReflectLobe: {
      if (wi.z <= 0 || alpha_ < kDeltaAlpha) return Vec3(0);
      Vec3 h = normalize(wo + wi);
      float cosH = dot(wo, h);
      if (cosH <= 0) return Vec3(0);
      *pdf = ggxVisiblePdf(wo, h, alpha_) / (4 * cosH);
      return reflectFresnel(cosH) * (baseScale_ * ggxD(h, alpha_) * ggxG(wo, wi, alpha_) / (4 * wo.z));
    }
    case kCoatLobe: {
      if (wiC.z <= 0 || coatAlpha_ < kDeltaAlpha) return Vec3(0);
      Vec3 h = normalize(woC + wiC);
      float cosH = dot(woC, h);
      if (cosH <= 0) return Vec3(0);
      *pdf = ggxVisiblePdf(woC, h, coatAlpha_) / (4 * cosH);
      float f = clamp01(m_.clearcoat) * fresnelDielectric(cosH, kCoatIor);
      return Vec3(f * ggxD(h, coatAlpha_) * ggxG(woC, wiC, coatAlpha_) / (4 * woC.z));
    }
    case kRefractLobe: {
      if (wi.z >= 0 || alpha_ < kDeltaAlpha) return Vec3(0);
      Vec3 tint = m_.baseColor * ((1 - m_.metallic) * m_.transmission * baseScale_ * refractScale_);
      if (!volume_) {
        Vec3 mirrored(wi.x, wi.y, -wi.z);
        Vec3 h = normalize(wo + mirrored);
        float cosH = dot(wo, h);
        if (cosH <= 0) return Vec3(0);
        *pdf = ggxVisiblePdf(wo, h, alpha_) / (4 * cosH);
        float t = 1 - clamp01(m_.specular) * fresnelDielectric(cosH, eta_);
        return tint * (t * ggxD(h, alpha_) * ggxG(wo, mirrored, alpha_) / (4 * wo.z));
      }
      Vec3 h = wi * eta_ + wo;
      if (dot(h, h) <= 0) return Vec3(0);
      h = normalize(h);
      if (h.z < 0) h = -h;
      float dO = dot(wo, h), dI = dot(wi, h);
      if (dO <= 0 || dI >= 0) return Vec3(0);
      float denom = sqr(dI + dO / eta_);
      float t = 1 - clamp01(m_.specular) * fresnelDielectric(dO, eta_);
      *pdf = ggxVisiblePdf(wo, h, alpha_) * std::fabs(dI) / denom;
      float f = ggxD(h, alpha_) * ggxG(wo, wi, alpha_) * std::fabs(dI * dO) / (wo.z * denom);
      return tint * (t * f / (eta_ * eta_));
    }
  }
  return Vec3(0);
}

BsdfEval Bsdf::eval(Vec3 wi) const {
  BsdfEval result;
  if (lambertOnly_) return lambert_lobe::eval(frame_, ng_, wo_, diffuseColor_, lambertScale_, wi);
  Vec3 wiL = frame_.toLocal(wi), wiC = coatFrame_.toLocal(wi);
  bool sameSide = dot(wi, ng_) * dot(wo_, ng_) > 0;
  for (int lobe = 0; lobe < kLobeCount; ++lobe) {
    if (weights_[lobe] <= 0) continue;
    bool transmits = lobe == kRefractLobe;
    if (transmits == sameSide) continue;
    float p = 0;
    Vec3 f = evalLobe(lobe, woLocal_, wiL, woCoat_, wiC, &p);
    result.value[categoryOf(lobe)] += f;
    result.pdf += weights_[lobe] * p;
  }
  return result;
}

float Bsdf::pdf(Vec3 wi) const { return eval(wi).pdf; }

bool Bsdf::sample(float uLobe, float u1, float u2, BsdfSample& out) const {
  if (lambertOnly_) return lambert_lobe::sample(frame_, ng_, wo_, diffuseColor_, lambertScale_, u1, u2, out);
  int lobe = 0;
  float acc = 0;
  for (lobe = 0; lobe < kLobeCount - 1; ++lobe) {
    acc += weights_[lobe];
    if (uLobe < acc && weights_[lobe] > 0) break;
  }
  while (lobe > 0 && weights_[lobe] <= 0) --lobe;
  float sel = weights_[lobe];
  if (sel <= 0) return false;
  const Vec3 wo = woLocal_;
  out.category = categoryOf(lobe);
  out.transmitted = lobe == kRefractLobe;

  // Perfectly smooth lobes.
  if ((lobe == kReflectLobe || lobe == kRefractLobe) && alpha_ < kDeltaAlpha) {
    Vec3 wiL;
    Vec3 f;
    if (lobe == kReflectLobe) {
      wiL = Vec3(-wo.x, -wo.y, wo.z);
      f = reflectFresnel(wo.z) * baseScale_;
    } else {
      float t = 1 - clamp01(m_.specular) * fresnelDielectric(wo.z, eta_);
      Vec3 tint = m_.baseColor * ((1 - m_.metallic) * m_.transmission * baseScale_ * t);
      if (volume_) {
        if (!refract(wo, Vec3(0, 0, 1), eta_, wiL)) return false;
        f = tint / (eta_ * eta_);
      } else {
        wiL = -wo;
        f = tint;
      }
    }
    out.wi = frame_.toWorld(wiL);
    if ((dot(out.wi, ng_) * dot(wo_, ng_) > 0) == out.transmitted) return false;
    out.delta = true;
    out.pdf = sel;
    out.weight = f / sel;
    return true;
  }
  if (lobe == kCoatLobe && coatAlpha_ < kDeltaAlpha) {
    Vec3 wiC(-woCoat_.x, -woCoat_.y, woCoat_.z);
    out.wi = coatFrame_.toWorld(wiC);
    if (dot(out.wi, ng_) * dot(wo_, ng_) <= 0) return false;
    out.delta = true;
    out.pdf = sel;
    out.weight = Vec3(clamp01(m_.clearcoat) * fresnelDielectric(woCoat_.z, kCoatIor) / sel);
    return true;
  }

  Vec3 wi;
  switch (lobe) {
    case kDiffuseLobe:
    case kSheenLobe:
    case kMultiScatterLobe:
      wi = frame_.toWorld(squareToCosineHemisphere(u1, u2));
      break;
    case kReflectLobe: {
      Vec3 h = ggxSampleVisible(wo, alpha_, u1, u2);
      Vec3 wiL = reflect(wo, h);
      // A direction outside the lobe's hemisphere belongs to no lobe's density: reject it.
      if (wiL.z <= 0) return false;
      wi = frame_.toWorld(wiL);
      break;
    }
    case kCoatLobe: {
      Vec3 h = ggxSampleVisible(woCoat_, coatAlpha_, u1, u2);
      Vec3 wiC = reflect(woCoat_, h);
      if (wiC.z <= 0) return false;
      wi = coatFrame_.toWorld(wiC);
      break;
    }
    case kRefractLobe: {
      Vec3 h = ggxSampleVisible(wo, alpha_, u1, u2);
      Vec3 wiL;
      if (volume_) {
        if (!refract(wo, h, eta_, wiL)) return false;
      } else {
        wiL = reflect(wo, h);
        wiL.z = -wiL.z;
      }
      if (wiL.z >= 0) return false;
      wi = frame_.toWorld(wiL);
      break;
    }
  }
  BsdfEval e = eval(wi);
  if (e.pdf <= 0) return false;
  Vec3 f = e.total();
  if (isBlack(f)) return false;
  out.wi = wi;
  out.pdf = e.pdf;
  out.delta = false;
  out.weight = f / e.pdf;
  return true;
}

}  // namespace zvr::kernel
