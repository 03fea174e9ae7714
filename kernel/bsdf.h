// The layered glTF metallic-roughness BSDF: Lambert diffuse, GGX reflection (metal and dielectric),
// rough or smooth dielectric transmission, clearcoat and sheen, sampled by one-sample MIS over lobes.
#pragma once

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

 private:
  // kMultiScatterLobe returns the energy the rough reflection lobe loses to single scattering.
  enum Lobe { kDiffuseLobe, kReflectLobe, kRefractLobe, kCoatLobe, kSheenLobe, kMultiScatterLobe, kLobeCount };
  static int categoryOf(int lobe);
  static bool isPlainLambert(const MaterialSample& m);
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

// Directional albedo of the sheen lobe with a white colour (tabulated once).
float sheenAlbedo(float cosO, float sheenRoughness);

}  // namespace zvr::kernel
