#include "kernel/material.h"

namespace zvr::kernel {
namespace {

// log2 of a hit's uv footprint per texture-coordinate set, worked out on the first lookup that
// needs it and shared by the slots' levels of detail; untextured materials take no logarithm.
class UvFootprint {
 public:
  explicit UvFootprint(const SurfaceHit& hit) : hit_(hit) {}
  // False without a footprint: lookups then take the finest level.
  bool has(int set) const { return hit_.footprint * hit_.uvDensity[set] > 0; }
  float log2Size(int set) const {
    if (!(known_ >> set & 1)) {
      log2Size_[set] = std::log2(hit_.footprint * hit_.uvDensity[set]);
      known_ |= 1u << set;
    }
    return log2Size_[set];
  }

 private:
  const SurfaceHit& hit_;
  mutable float log2Size_[2] = {};
  mutable uint32_t known_ = 0;
};

void sampleSlot(const MaterialRuntime& rt, int slot, const SurfaceHit& hit, const UvFootprint& footprint, float lodOffset,
                Vec4& out) {
  const Texture* tex = rt.textures[slot];
  const TextureBinding& b = *rt.bindings[slot];
  uint32_t set = b.texcoord == 1 ? 1 : 0;
  float u = hit.uv[set][0], v = hit.uv[set][1];
  if (rt.transformsTexcoords[slot]) transformTexcoord(b, u, v);
  // The bias stays out of the finest-level case, where an infinite one would turn it coarsest.
  const float lod = (footprint.has(set) ? footprint.log2Size(set) + rt.lodBias[slot] : -1e9f) + lodOffset;
  out = tex->sample(u, v, lod, b.wrapS, b.wrapT, b.magFilter != 1, b.minFilter != 1);
}

// Most materials bind no texture at all: the mask check keeps them off the lookup path.
inline bool lookup(const MaterialRuntime& rt, int slot, const SurfaceHit& hit, const UvFootprint& footprint, float lodOffset,
                   Vec4& out) {
  if (!(rt.texturedSlots & (1u << slot))) return false;
  sampleSlot(rt, slot, hit, footprint, lodOffset, out);
  return true;
}

// Without the mip offset: light samples, which have no shading context, find the same emission
// as a path that hits the surface.
Vec3 emissionOf(const Scene& scene, const MaterialRuntime& rt, const SurfaceHit& hit, const UvFootprint& footprint) {
  if (!rt.emissive) return Vec3(0);
  const MaterialData& m = *rt.data;
  Vec3 e = Vec3(m.emissive[0], m.emissive[1], m.emissive[2]) * (m.emissiveStrength * scene.shapes()[hit.shape].emissionScale);
  Vec4 t;
  if (lookup(rt, kTexEmissive, hit, footprint, 0, t)) e *= Vec3(t.x, t.y, t.z);
  return e;
}

}  // namespace

Vec3 volumeAttenuation(const MaterialData& m) {
  Vec3 a(0);
  if (m.attenuationDistance > 0 && std::isfinite(m.attenuationDistance))
    for (int k = 0; k < 3; ++k) a[k] = -std::log(std::max(1e-6f, std::min(1.0f, m.attenuationColor[k]))) / m.attenuationDistance;
  return a;
}

MaterialSample materialFactors(const MaterialData& m) {
  MaterialSample s;
  s.baseColor = Vec3(m.baseColor[0], m.baseColor[1], m.baseColor[2]);
  s.opacity = 1;
  s.metallic = m.metallic;
  s.roughness = m.roughness;
  s.emission = Vec3(0);
  s.unlit = m.unlit;
  s.doubleSided = m.doubleSided;
  s.ior = m.ior;
  s.transmission = m.transmission;
  s.thinWalled = !(m.thickness > 0);
  s.attenuation = s.thinWalled ? Vec3(0) : volumeAttenuation(m);
  s.specular = m.specular;
  s.specularColor = Vec3(m.specularColor[0], m.specularColor[1], m.specularColor[2]);
  s.clearcoat = m.clearcoat;
  s.clearcoatRoughness = m.clearcoatRoughness;
  s.sheenColor = Vec3(m.sheenColor[0], m.sheenColor[1], m.sheenColor[2]);
  s.sheenRoughness = m.sheenRoughness;
  return s;
}

Vec3 surfaceEmission(const Scene& scene, const SurfaceHit& hit) {
  return emissionOf(scene, *scene.shapes()[hit.shape].material, hit, UvFootprint(hit));
}

float evaluateOpacity(const Scene& scene, const SurfaceHit& hit, float lodOffset) {
  const MaterialRuntime& rt = *scene.shapes()[hit.shape].material;
  if (rt.opaque) return 1;
  const MaterialData& m = *rt.data;
  float a = m.baseColor[3] * hit.color.w;
  Vec4 t;
  if (lookup(rt, kTexBaseColor, hit, UvFootprint(hit), lodOffset, t)) a *= t.w;
  if (m.alphaMode == 1) return a >= m.alphaCutoff ? 1.0f : 0.0f;
  return clamp01(a);
}

void evaluateMaterial(const Scene& scene, const SurfaceHit& hit, float lodOffset, ShadedPoint& out) {
  const MaterialRuntime& rt = *scene.shapes()[hit.shape].material;
  const MaterialData& m = *rt.data;
  out.data = &m;
  MaterialSample& s = out.material;
  // The factors were resolved once per material; only vertex colours, textures and emission vary.
  s = rt.factors;
  const UvFootprint footprint(hit);
  Vec4 t;
  s.baseColor = s.baseColor * Vec3(hit.color.x, hit.color.y, hit.color.z);
  float alpha = m.baseColor[3] * hit.color.w;
  if (rt.texturedSlots == 0) {
    if (m.alphaMode != 0 && !m.unlit) s.opacity = m.alphaMode == 1 ? (alpha >= m.alphaCutoff ? 1.0f : 0.0f) : clamp01(alpha);
    if (rt.emissive) s.emission = emissionOf(scene, rt, hit, footprint);
  } else {
    if (lookup(rt, kTexBaseColor, hit, footprint, lodOffset, t)) {
      s.baseColor *= Vec3(t.x, t.y, t.z);
      alpha *= t.w;
    }
    s.opacity = m.alphaMode == 0 || m.unlit ? 1.0f : (m.alphaMode == 1 ? (alpha >= m.alphaCutoff ? 1.0f : 0.0f) : clamp01(alpha));
    if (lookup(rt, kTexMetallicRoughness, hit, footprint, lodOffset, t)) {
      s.roughness *= t.y;
      s.metallic *= t.z;
    }
    if (rt.emissive) s.emission = emissionOf(scene, rt, hit, footprint);
    if (lookup(rt, kTexOcclusion, hit, footprint, lodOffset, t)) s.occlusion = clamp01(1 + m.occlusionStrength * (t.x - 1));
    if (lookup(rt, kTexTransmission, hit, footprint, lodOffset, t)) s.transmission *= t.x;
    if (lookup(rt, kTexThickness, hit, footprint, lodOffset, t)) {
      s.thinWalled = !(m.thickness * t.y > 0);
      s.attenuation = s.thinWalled ? Vec3(0) : volumeAttenuation(m);
    }
    if (lookup(rt, kTexSpecular, hit, footprint, lodOffset, t)) s.specular *= t.w;
    if (lookup(rt, kTexSpecularColor, hit, footprint, lodOffset, t)) s.specularColor *= Vec3(t.x, t.y, t.z);
    if (lookup(rt, kTexClearcoat, hit, footprint, lodOffset, t)) s.clearcoat *= t.x;
    if (lookup(rt, kTexClearcoatRoughness, hit, footprint, lodOffset, t)) s.clearcoatRoughness *= t.y;
    if (lookup(rt, kTexSheenColor, hit, footprint, lodOffset, t)) s.sheenColor *= Vec3(t.x, t.y, t.z);
    if (lookup(rt, kTexSheenRoughness, hit, footprint, lodOffset, t)) s.sheenRoughness *= t.w;
  }

  Vec3 n = hit.ns;
  if (!hit.hasTangent) {
    // Without tangents nothing perturbs the normal, and any basis around it will do.
    out.shading = Frame(n);
    out.coat = out.shading;
    return;
  }
  Frame base(n, hit.tangent);
  auto perturb = [&](int slot, float scale, Frame& frame) {
    if (!lookup(rt, slot, hit, footprint, lodOffset, t)) return;
    Vec3 tn(2 * t.x - 1, 2 * t.y - 1, 2 * t.z - 1);
    tn.x *= scale;
    tn.y *= scale;
    Vec3 bitangent = cross(n, base.s) * hit.tangentSign;
    Vec3 mapped = normalize(base.s * tn.x + bitangent * tn.y + n * std::max(tn.z, 1e-3f));
    if (dot(mapped, hit.ng) <= 0) return;  // keep the shading normal on the geometric side
    frame = Frame(mapped, base.s);
  };
  out.shading = base;
  perturb(kTexNormal, m.normalScale, out.shading);
  out.coat = base;
  perturb(kTexClearcoatNormal, m.clearcoatNormalScale, out.coat);
}

}  // namespace zvr::kernel
