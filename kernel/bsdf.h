// The layered glTF metallic-roughness BSDF: Lambert diffuse, GGX reflection (metal and dielectric),
// rough or smooth dielectric transmission, clearcoat and sheen, sampled by one-sample MIS over lobes.
#pragma once

#include "kernel/sampling.h"
#include "kernel/vector_math.h"

namespace zvr::kernel {

// Material inputs at one surface point, textures applied.
struct MaterialSample {
  Vec3 baseColor{1, 1, 1};
  float opacity = 1;
  float metallic = 1, roughness = 1;
  float specular = 1;
  Vec3 specularColor{1, 1, 1};
  float ior = 1.5f;
  float transmission = 0;
  bool thinWalled = true;
  float clearcoat = 0, clearcoatRoughness = 0;
  Vec3 sheenColor{0, 0, 0};
  float sheenRoughness = 0;
  Vec3 emission{0, 0, 0};
  bool unlit = false;
  bool doubleSided = false;
  float occlusion = 1;       // share of indirect light that reaches the point (glTF occlusion)
  Vec3 attenuation{0, 0, 0};  // Beer extinction per unit length inside a volume
};

enum LobeCategory : int { kLobeDiffuse = 0, kLobeReflect = 1, kLobeRefract = 2, kLobeCategories = 3 };

struct BsdfSample {
  Vec3 wi;
  Vec3 weight;          // f * |cos| / pdf
  float pdf = 0;        // solid angle, or the discrete lobe probability for delta lobes
  int category = kLobeDiffuse;
  bool delta = false;
  bool transmitted = false;
};

struct BsdfEval {
  Vec3 value[kLobeCategories];  // f * |cos| per lobe category
  float pdf = 0;
  Vec3 total() const { return value[0] + value[1] + value[2]; }
};

// The Lambert lobe alone, cosine-weighted: f = color * scale per unit solid angle. Shared by Bsdf
// and LambertBsdf, so that the two agree bit for bit.
namespace lambert_lobe {

inline BsdfEval eval(const Frame& frame, Vec3 ng, Vec3 wo, Vec3 color, float scale, Vec3 wi) {
  BsdfEval result;
  if (dot(wi, ng) * dot(wo, ng) <= 0) return result;
  float cosI = dot(wi, frame.n);
  if (cosI <= 0) return result;
  result.pdf = cosI * kInvPi;
  result.value[kLobeDiffuse] = color * (scale * cosI);
  return result;
}

inline bool sample(const Frame& frame, Vec3 ng, Vec3 wo, Vec3 color, float scale, float u1, float u2, BsdfSample& out) {
  // The cosine-weighted direction cancels the cosine: the weight is the albedo term alone.
  Vec3 local = squareToCosineHemisphere(u1, u2);
  Vec3 wi = frame.toWorld(local);
  if (local.z <= 0 || dot(wi, ng) * dot(wo, ng) <= 0) return false;
  out.wi = wi;
  out.pdf = local.z * kInvPi;
  out.category = kLobeDiffuse;
  out.delta = false;
  out.transmitted = false;
  out.weight = color * (scale * kPi);
  return !isBlack(out.weight);
}

// The shading frame turned to the side of wo: mirroring n and t keeps it orthonormal and
// right-handed without renormalising.
inline Frame facing(Frame frame, Vec3 wo) {
  if (dot(wo, frame.n) < 0) {
    frame.n = -frame.n;
    frame.t = -frame.t;
  }
  return frame;
}

}  // namespace lambert_lobe

class Bsdf {
 public:
  // `shading` and `coat` are frames whose normals point outward (the geometric front side);
  // `ng` is the outward geometric normal; `wo` points away from the surface. `minRoughness`
  // roughens glossy lobes (caustics reduction).
  Bsdf(const MaterialSample& material, const Frame& shading, const Frame& coat, Vec3 ng, Vec3 wo, float minRoughness = 0);
  BsdfEval eval(Vec3 wi) const;
  float pdf(Vec3 wi) const;
  bool sample(float uLobe, float u1, float u2, BsdfSample& out) const;
  // Whether any lobe can be evaluated for a given direction (light sampling is worth it).
  bool hasNonDelta() const { return nonDelta_; }
  Vec3 diffuseAlbedo() const { return diffuseColor_; }
  bool isTransmissive() const { return weights_[kRefractLobe] > 0; }
  // Whether sample() reads its lobe-choice number (Lambert alone has no choice to make).
  bool choosesLobe() const { return !lambertOnly_; }
  // Lambert alone: no metal, transmission, specular, clearcoat or sheen.
  static bool isPlainLambert(const MaterialSample& m);
  // Diffuse, rough GGX reflection and its multiple scattering, nothing else, with finite lobe
  // weights that sum above zero at every angle: the materials the glossy vector bounce takes.
  static bool isRoughReflector(const MaterialSample& m, float minRoughness);

 private:
  // kMultiScatterLobe returns the energy the rough reflection lobe loses to single scattering.
  enum Lobe { kDiffuseLobe, kReflectLobe, kRefractLobe, kCoatLobe, kSheenLobe, kMultiScatterLobe, kLobeCount };
  static int categoryOf(int lobe);
  void initLambert(const Frame& shading);
  void initLayered(const Frame& shading, const Frame& coat, float minRoughness);
  Vec3 reflectFresnel(float cosH) const;
  void initMultiScatter(float cosO);
  void initGlassCompensation(float cosO);
  Vec3 dielectricFresnel(float cosH) const;
  float dielectricReflectance(float cosH) const;
  Vec3 evalLobe(int lobe, Vec3 woL, Vec3 wiL, Vec3 woC, Vec3 wiC, float* pdf) const;
  Frame frame_, coatFrame_;
  Vec3 ng_, wo_, woLocal_, woCoat_;
  MaterialSample m_;
  Vec3 diffuseColor_;
  float alpha_, coatAlpha_, eta_, baseScale_, sheenAlpha_, specular_, f0_;
  Vec3 tintedF0_;
  bool volume_, nonDelta_, lambertOnly_;
  float lambertScale_;
  Vec3 msColor_;           // Fresnel tint of the multiply scattered light
  float msLossO_ = 0;      // 1 - E(mu_o): what single scattering loses towards wo
  float msScale_ = 0;      // 1 / (pi (1 - E_avg))
  float dielectricReflectScale_ = 1;  // rough glass: 1 / E on the transmissive share of the reflection
  float refractScale_ = 1;            // rough glass: 1 / E on the transmission
  float weights_[kLobeCount] = {};
};

// A plain Lambert material's BSDF without the layered set-up: a fifth of Bsdf's bytes, which took 5%
// of a Cornell box sample to fill. Bsdf answers the same for such materials, bit for bit.
class LambertBsdf {
 public:
  // Whether LambertBsdf stands in for Bsdf: a plain Lambert material that reflects some light.
  static bool handles(const MaterialSample& m) { return Bsdf::isPlainLambert(m) && luminance(m.baseColor) > 0; }
  LambertBsdf(Vec3 color, const Frame& shading, Vec3 ng, Vec3 wo)
      : frame_(lambert_lobe::facing(shading, wo)), ng_(ng), wo_(wo), color_(color) {}
  BsdfEval eval(Vec3 wi) const { return lambert_lobe::eval(frame_, ng_, wo_, color_, kInvPi, wi); }
  bool sample(float /*uLobe*/, float u1, float u2, BsdfSample& out) const {
    return lambert_lobe::sample(frame_, ng_, wo_, color_, kInvPi, u1, u2, out);
  }
  bool hasNonDelta() const { return true; }
  bool isTransmissive() const { return false; }
  bool choosesLobe() const { return false; }

 private:
  Frame frame_;
  Vec3 ng_, wo_, color_;
};

// Directional albedo of the sheen lobe with a white colour (tabulated once).
float sheenAlbedo(float cosO, float sheenRoughness);

}  // namespace zvr::kernel
