// The renderable scene: world-space triangle meshes in an Embree BVH, their materials with
// resolved textures, and the surface data of a hit. Rebuilt only when the snapshot's revisions say so.
#pragma once

#include <embree3/rtcore.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kernel/bsdf.h"
#include "kernel/camera.h"
#include "kernel/texture.h"

namespace zvr::kernel {

// Rays per packet query: Embree's widest packet.
constexpr int kPacketSize = 16;

// Embree traces rays whose origin and direction components stay within about 1.8e18 and stops the
// process on any other. Scenes and cameras are refused beyond this bound per coordinate, which
// keeps the sums isTraceable() tests within Embree's bound.
constexpr float kMaxTraceableCoordinate = 5e17f;

// A coordinate for messages: "1e+30" rather than thirty-one digits.
inline std::string formatCoordinate(float v) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", double(v));
  return text;
}

// Whether Embree accepts the ray: finite, in range, and an interval it can search. Sums of
// magnitudes, compared without branches, keep this to a few instructions per ray; NaN fails it.
inline bool isTraceable(const Ray& r) {
  constexpr float m = 3 * kMaxTraceableCoordinate;
  const Vec3& o = r.origin;
  const Vec3& d = r.direction;
  return (std::fabs(o.x) + std::fabs(o.y) + std::fabs(o.z) <= m) & (std::fabs(d.x) + std::fabs(d.y) + std::fabs(d.z) <= m) &
         (r.tMin >= 0) & (r.tMin <= r.tMax);
}

enum TextureSlot : int {
  kTexBaseColor, kTexMetallicRoughness, kTexNormal, kTexOcclusion, kTexEmissive, kTexTransmission, kTexThickness,
  kTexClearcoat, kTexClearcoatRoughness, kTexClearcoatNormal, kTexSpecular, kTexSpecularColor, kTexSheenColor,
  kTexSheenRoughness, kTextureSlots
};

struct MaterialRuntime {
  std::shared_ptr<const MaterialData> data;
  const Texture* textures[kTextureSlots] = {};
  const TextureBinding* bindings[kTextureSlots] = {};
  uint32_t texturedSlots = 0;  // bit per slot with a texture
  // Per slot: log2 of the texels per unit of uv footprint, and whether the texture transform
  // moves coordinates at all.
  float lodBias[kTextureSlots] = {};
  bool transformsTexcoords[kTextureSlots] = {};
  MaterialSample factors;      // the inputs before textures and vertex colours
  bool opaque = true;    // no alpha mask or blend
  bool emissive = false;
};

struct ShapeRecord {
  std::shared_ptr<const MeshData> mesh;
  const MaterialRuntime* material = nullptr;
  std::vector<Vec3> positions, normals;  // world space
  std::vector<float> tangents;           // world space xyz + handedness
  std::vector<Vec3> faceNormals;         // outward, per triangle
  std::vector<float> faceAreas;
  uint32_t objectId = 0, meshId = 0, groupId = 0, triangleCount = 0;
  int32_t lightGroup = -1;
  bool attached = false;
  float emissionScale = 1;               // 1 / area when emitters are normalised to unit power per area
  bool flipWinding = false;              // the transform mirrors
  uint32_t catcher = 0;                  // ZvrCatcherFlags
};

struct SurfaceHit {
  Vec3 p, ng, ns;       // ng from the winding; ns interpolated, same side as ng
  float t = 0;
  uint32_t shape = 0, prim = 0;
  float b1 = 0, b2 = 0;
  float uv[2][2] = {};
  Vec4 color;
  Vec3 tangent;
  float tangentSign = 1;
  bool hasTangent = false;
  float uvDensity[2] = {0, 0};  // sqrt(uv area / world area) of the triangle, per UV set
  float footprint = 0;          // world-space width of the ray cone at the hit
};

// Collects Embree's error texts for the device it is attached to.
struct DeviceErrors {
  std::mutex mutex;
  std::string text;
};

class Scene {
 public:
  explicit Scene(RTCDevice device, DeviceErrors* errors);
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // Brings the scene up to the snapshot; `include` filters shapes (visibility, render layers).
  // Returns false with `error` set when the snapshot holds invalid data.
  bool update(const SceneSnapshot& snapshot, const RenderParams& params, float textureBudgetScale,
              const std::function<bool(const ShapeData&)>& include, std::string* error);

  // A ray that is not traceable (a numerical accident: a NaN direction) misses and is blocked.
  bool intersect(const Ray& ray, SurfaceHit& hit) const;
  bool occluded(const Ray& ray) const;
  // A packet of rays at once: `rays` and `active` hold kPacketSize entries each, all of them read;
  // lanes with `active` false are left untouched. `coherent` tells Embree the rays start together
  // and fan out little (camera rays of a pixel block).
  void intersect16(const Ray* rays, const bool* active, SurfaceHit* hits, bool* found, bool coherent) const;
  void occluded16(const Ray* rays, const bool* active, bool* blocked) const;

  const std::vector<ShapeRecord>& shapes() const { return shapes_; }
  float diagonal() const { return diagonal_; }
  Vec3 center() const { return (boundsMin_ + boundsMax_) * 0.5f; }
  float rayEpsilon() const { return epsilon_; }
  bool allOpaque() const { return allOpaque_; }
  // Grows whenever geometry or materials were rebuilt.
  uint64_t version() const { return version_; }
  RTCScene handle() const { return scene_; }
  // Position and outward normal of a point on a triangle.
  void trianglePoint(uint32_t shape, uint32_t prim, float b1, float b2, Vec3& p, Vec3& n, float& area) const;
  // Fills texture coordinates and the like at barycentrics (b1, b2) of a triangle.
  void fillSurface(uint32_t shape, uint32_t prim, float b1, float b2, SurfaceHit& hit) const;

 private:
  bool rebuildGeometry(const SceneSnapshot& snapshot, const std::function<bool(const ShapeData&)>& include,
                       std::string* error);
  static void computeFaces(ShapeRecord& rec);
  void resolveMaterials(const SceneSnapshot& snapshot, const RenderParams& params, float textureBudgetScale);

  RTCDevice device_;
  DeviceErrors* errors_;
  RTCScene scene_ = nullptr;
  std::vector<ShapeRecord> shapes_;
  std::vector<std::unique_ptr<MaterialRuntime>> materials_;
  MaterialRuntime defaultMaterial_;
  TextureCache textures_;
  Vec3 boundsMin_, boundsMax_;
  float diagonal_ = 1, epsilon_ = 1e-4f;
  bool allOpaque_ = true;
  bool built_ = false;
  uint64_t version_ = 0;
  uint64_t geometryRevision_ = 0, transformRevision_ = 0, materialRevision_ = 0;
  std::vector<uint64_t> includedIds_;
  float textureGamma_ = 1, textureBudgetScale_ = 1;
  uint32_t textureCacheMB_ = 0, normalizeLights_ = 0;
  std::vector<uint64_t> shapeIds_;
  std::vector<const void*> builtMeshes_, builtMaterials_;
  std::vector<float> builtTransforms_;
};

}  // namespace zvr::kernel
