#include "kernel/scene.h"

#include <limits>

#include "kernel/material.h"
#include "kernel/ray_packet.h"

namespace zvr::kernel {
namespace {

std::string shapeName(const ShapeData& s) { return "shape " + std::to_string(s.id); }

// Checks one mesh's streams against each other; the text names the stream and what is wrong.
bool validateMesh(const ShapeData& shape, std::string* error) {
  const MeshData& m = *shape.mesh;
  auto fail = [&](const std::string& what) {
    if (error) *error = shapeName(shape) + ": " + what;
    return false;
  };
  if (m.positions.size() % 3) return fail("position stream of " + std::to_string(m.positions.size()) + " floats is not a multiple of 3");
  size_t n = m.positions.size() / 3;
  if (m.indices.size() % 3) return fail("index count " + std::to_string(m.indices.size()) + " is not a multiple of 3");
  auto stream = [&](const std::vector<float>& s, size_t per, const char* name) {
    if (!s.empty() && s.size() != n * per)
      return fail(std::string(name) + " stream holds " + std::to_string(s.size()) + " floats, expected " +
                  std::to_string(n * per) + " for " + std::to_string(n) + " vertices");
    return true;
  };
  if (!stream(m.normals, 3, "normal") || !stream(m.tangents, 4, "tangent") || !stream(m.texcoords0, 2, "texcoord0") ||
      !stream(m.texcoords1, 2, "texcoord1") || !stream(m.colors, 4, "colour"))
    return false;
  for (size_t i = 0; i < m.indices.size(); ++i)
    if (m.indices[i] >= n)
      return fail("index " + std::to_string(i) + " of triangle " + std::to_string(i / 3) + " is " +
                  std::to_string(m.indices[i]) + ", past the " + std::to_string(n) + " vertices");
  for (float v : m.positions)
    if (!std::isfinite(v)) return fail("position stream holds a value that is not finite");
  return true;
}

bool isColorSlot(int slot) {
  return slot == kTexBaseColor || slot == kTexEmissive || slot == kTexSpecularColor || slot == kTexSheenColor;
}

const TextureBinding& bindingOf(const MaterialData& m, int slot) {
  const TextureBinding* all[kTextureSlots] = {
      &m.baseColorTexture, &m.metallicRoughnessTexture, &m.normalTexture, &m.occlusionTexture, &m.emissiveTexture,
      &m.transmissionTexture, &m.thicknessTexture, &m.clearcoatTexture, &m.clearcoatRoughnessTexture,
      &m.clearcoatNormalTexture, &m.specularTexture, &m.specularColorTexture, &m.sheenColorTexture,
      &m.sheenRoughnessTexture};
  return *all[slot];
}

}  // namespace

Scene::Scene(RTCDevice device, DeviceErrors* errors) : device_(device), errors_(errors) {
  defaultMaterial_.data = std::make_shared<MaterialData>();
}

Scene::~Scene() {
  if (scene_) rtcReleaseScene(scene_);
}

bool Scene::update(const SceneSnapshot& snapshot, const RenderParams& params, float textureBudgetScale,
                   const std::function<bool(const ShapeData&)>& include, std::string* error) {
  std::vector<uint64_t> included;
  std::vector<uint64_t> ids;
  // What the BVH and the material table were built from; compared as well as the revisions, so a
  // snapshot that changed without a new revision is still rendered as it is.
  std::vector<const void*> meshes, materials;
  std::vector<float> transforms;
  for (const auto& s : snapshot.shapes) {
    ids.push_back(s.id);
    if (include(s)) included.push_back(s.id);
    meshes.push_back(s.mesh.get());
    materials.push_back(s.material.get());
    transforms.insert(transforms.end(), s.transform.m, s.transform.m + 16);
  }
  bool geometryChanged = !built_ || snapshot.geometryRevision != geometryRevision_ ||
                         snapshot.transformRevision != transformRevision_ || included != includedIds_ || ids != shapeIds_ ||
                         meshes != builtMeshes_ || transforms != builtTransforms_;
  bool materialsChanged = geometryChanged || snapshot.materialRevision != materialRevision_ || materials != builtMaterials_ ||
                          params.textureGamma != textureGamma_ || params.textureCacheMB != textureCacheMB_ ||
                          params.normalizeLightIntensity != normalizeLights_ ||
                          textureBudgetScale != textureBudgetScale_;
  if (geometryChanged) {
    built_ = false;
    if (!rebuildGeometry(snapshot, include, error)) return false;
    geometryRevision_ = snapshot.geometryRevision;
    transformRevision_ = snapshot.transformRevision;
    includedIds_ = std::move(included);
    shapeIds_ = std::move(ids);
    builtMeshes_ = std::move(meshes);
    builtTransforms_ = std::move(transforms);
  }
  if (materialsChanged) {
    resolveMaterials(snapshot, params, textureBudgetScale);
    materialRevision_ = snapshot.materialRevision;
    builtMaterials_ = std::move(materials);
    ++version_;
  }
  built_ = true;
  // Catcher flags change no geometry or material: they are taken on every update.
  for (size_t i = 0; i < shapes_.size() && i < snapshot.shapes.size(); ++i) shapes_[i].catcher = snapshot.shapes[i].catcher;
  float eps = params.rayEpsilon > 0 && std::isfinite(params.rayEpsilon) ? params.rayEpsilon : 1e-4f;
  float extent = std::max(length(boundsMax_), length(boundsMin_));
  epsilon_ = std::max(eps * diagonal_, 1e-6f * std::max(1.0f, extent));
  return true;
}

bool Scene::rebuildGeometry(const SceneSnapshot& snapshot, const std::function<bool(const ShapeData&)>& include,
                            std::string* error) {
  for (const auto& s : snapshot.shapes)
    if (s.mesh && !validateMesh(s, error)) return false;
  if (scene_) rtcReleaseScene(scene_);
  scene_ = rtcNewScene(device_);
  // Robust traversal costs about a tenth of the ray rate, but without it rays aimed at the shared
  // edges and corners of a closed mesh slip through (a few percent of such rays on a cube).
  rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
  rtcSetSceneBuildQuality(scene_, RTC_BUILD_QUALITY_HIGH);
  shapes_.clear();
  shapes_.resize(snapshot.shapes.size());
  float inf = std::numeric_limits<float>::infinity();
  boundsMin_ = Vec3(inf);
  boundsMax_ = Vec3(-inf);
  bool any = false;
  for (size_t i = 0; i < snapshot.shapes.size(); ++i) {
    const ShapeData& src = snapshot.shapes[i];
    ShapeRecord& rec = shapes_[i];
    rec.mesh = src.mesh;
    rec.objectId = src.objectId;
    rec.meshId = src.meshId;
    rec.groupId = src.groupId;
    if (!src.mesh || src.mesh->indices.empty() || !include(src)) continue;
    const MeshData& m = *src.mesh;
    size_t n = m.positions.size() / 3;
    float inv[9];
    if (!invert3x3(src.transform, inv)) continue;  // a collapsed transform has no surface to hit
    const float* a = src.transform.m;
    float det = a[0] * (a[5] * a[10] - a[6] * a[9]) - a[1] * (a[4] * a[10] - a[6] * a[8]) + a[2] * (a[4] * a[9] - a[5] * a[8]);
    rec.flipWinding = det < 0;
    rec.positions.resize(n);
    for (size_t v = 0; v < n; ++v) {
      const Vec3 q = transformPoint(src.transform, Vec3(m.positions[3 * v], m.positions[3 * v + 1], m.positions[3 * v + 2]));
      float reach = maxAbsComponent(q);
      if (!(reach <= kMaxTraceableCoordinate)) {
        if (error)
          *error = shapeName(src) + ": vertex " + std::to_string(v) + " lies at coordinate " + formatCoordinate(reach) +
                   " once placed, beyond the ray tracer's range of +-" + formatCoordinate(kMaxTraceableCoordinate);
        return false;
      }
      rec.positions[v] = q;
      for (int k = 0; k < 3; ++k) {
        boundsMin_[k] = std::min(boundsMin_[k], q[k]);
        boundsMax_[k] = std::max(boundsMax_[k], q[k]);
      }
    }
    if (!m.normals.empty()) {
      rec.normals.resize(n);
      for (size_t v = 0; v < n; ++v)
        rec.normals[v] = normalize(transformNormal(inv, Vec3(m.normals[3 * v], m.normals[3 * v + 1], m.normals[3 * v + 2])));
    }
    if (!m.tangents.empty()) {
      rec.tangents.resize(4 * n);
      for (size_t v = 0; v < n; ++v) {
        Vec3 t = normalize(transformVector(src.transform, Vec3(m.tangents[4 * v], m.tangents[4 * v + 1], m.tangents[4 * v + 2])));
        rec.tangents[4 * v] = t.x;
        rec.tangents[4 * v + 1] = t.y;
        rec.tangents[4 * v + 2] = t.z;
        rec.tangents[4 * v + 3] = (m.tangents[4 * v + 3] < 0 ? -1.0f : 1.0f) * (rec.flipWinding ? -1.0f : 1.0f);
      }
    }
    rec.triangleCount = uint32_t(m.indices.size() / 3);
    computeFaces(rec);
    RTCGeometry geom = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
    auto* vb = static_cast<float*>(rtcSetNewGeometryBuffer(geom, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), n));
    auto* ib = static_cast<uint32_t*>(
        rtcSetNewGeometryBuffer(geom, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(uint32_t), rec.triangleCount));
    if (!vb || !ib) {
      rtcReleaseGeometry(geom);
      std::lock_guard<std::mutex> lock(errors_->mutex);
      if (error) *error = shapeName(src) + ": the ray tracing device could not allocate its buffers" +
                          (errors_->text.empty() ? std::string() : ": " + errors_->text);
      return false;
    }
    for (size_t v = 0; v < n; ++v) {
      vb[3 * v] = rec.positions[v].x;
      vb[3 * v + 1] = rec.positions[v].y;
      vb[3 * v + 2] = rec.positions[v].z;
    }
    std::copy(m.indices.begin(), m.indices.end(), ib);
    rtcCommitGeometry(geom);
    rtcAttachGeometryByID(scene_, geom, uint32_t(i));
    rtcReleaseGeometry(geom);
    rec.attached = true;
    any = true;
  }
  rtcCommitScene(scene_);
  if (!any) {
    boundsMin_ = Vec3(0);
    boundsMax_ = Vec3(0);
  }
  diagonal_ = std::max(1e-3f, length(boundsMax_ - boundsMin_));
  std::lock_guard<std::mutex> lock(errors_->mutex);
  if (!errors_->text.empty()) {
    if (error) *error = "scene build failed: " + errors_->text;
    errors_->text.clear();
    return false;
  }
  return true;
}

void Scene::resolveMaterials(const SceneSnapshot& snapshot, const RenderParams& params, float textureBudgetScale) {
  textures_.clear();
  materials_.clear();
  textureGamma_ = params.textureGamma;
  textureCacheMB_ = params.textureCacheMB;
  normalizeLights_ = params.normalizeLightIntensity;
  textureBudgetScale_ = textureBudgetScale;
  float gamma = params.textureGamma > 0 && std::isfinite(params.textureGamma) ? params.textureGamma : 1;
  std::vector<std::pair<const MaterialData*, MaterialRuntime*>> known;
  allOpaque_ = true;
  auto resolve = [&](MaterialRuntime& rt) {
    const MaterialData& m = *rt.data;
    rt.texturedSlots = 0;
    for (int slot = 0; slot < kTextureSlots; ++slot) {
      const TextureBinding& b = bindingOf(m, slot);
      rt.bindings[slot] = &b;
      rt.textures[slot] = textures_.get(b.image, isColorSlot(slot), gamma);
      if (!rt.textures[slot]) continue;
      rt.texturedSlots |= 1u << slot;
      const Texture& tex = *rt.textures[slot];
      const float scale = std::sqrt(std::fabs(b.scale[0] * b.scale[1]));
      rt.lodBias[slot] = std::log2(std::sqrt(float(tex.baseWidth()) * float(tex.baseHeight())) * (scale > 0 ? scale : 1));
      rt.transformsTexcoords[slot] = b.rotation != 0 || b.scale[0] != 1 || b.scale[1] != 1 || b.offset[0] != 0 || b.offset[1] != 0;
    }
    rt.factors = materialFactors(m);
    rt.opaque = m.alphaMode == 0 || m.unlit;
    rt.emissive = maxComponent(Vec3(m.emissive[0], m.emissive[1], m.emissive[2])) * m.emissiveStrength > 0 && !m.unlit;
  };
  resolve(defaultMaterial_);
  for (size_t i = 0; i < snapshot.shapes.size() && i < shapes_.size(); ++i) {
    const auto& mat = snapshot.shapes[i].material;
    MaterialRuntime* rt = &defaultMaterial_;
    if (mat) {
      auto it = std::find_if(known.begin(), known.end(), [&](auto& k) { return k.first == mat.get(); });
      if (it != known.end()) {
        rt = it->second;
      } else {
        materials_.push_back(std::make_unique<MaterialRuntime>());
        rt = materials_.back().get();
        rt->data = mat;
        resolve(*rt);
        known.emplace_back(mat.get(), rt);
      }
    }
    shapes_[i].material = rt;
    // Tagged with the material revision, like the material it belongs with.
    shapes_[i].lightGroup = snapshot.shapes[i].lightGroup;
    if (shapes_[i].attached && !rt->opaque) allOpaque_ = false;
    // Normalised emitters give the same power whatever their size: radiance divided by area.
    shapes_[i].emissionScale = 1;
    if (params.normalizeLightIntensity && rt->emissive && shapes_[i].attached) {
      double area = 0;
      for (uint32_t t = 0; t < shapes_[i].triangleCount; ++t) {
        Vec3 p, n;
        float a = 0;
        trianglePoint(uint32_t(i), t, 0, 0, p, n, a);
        area += a;
      }
      if (area > 0) shapes_[i].emissionScale = float(1 / area);
    }
  }
  if (params.textureCacheMB > 0) {
    double budget = double(params.textureCacheMB) * 1024.0 * 1024.0 * std::max(0.0f, textureBudgetScale);
    textures_.enforceLimit(std::max<size_t>(1, size_t(budget)));
  }
}

namespace {

void setRay(const Ray& ray, RTCRay& r) {
  r.org_x = ray.origin.x;
  r.org_y = ray.origin.y;
  r.org_z = ray.origin.z;
  r.dir_x = ray.direction.x;
  r.dir_y = ray.direction.y;
  r.dir_z = ray.direction.z;
  r.tnear = ray.tMin;
  r.tfar = ray.tMax;
  r.mask = 0xffffffffu;
  r.flags = 0;
  r.time = 0;
}

}  // namespace

bool Scene::intersect(const Ray& ray, SurfaceHit& hit) const {
  if (!isTraceable(ray)) return false;
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  RTCRayHit rh;
  setRay(ray, rh.ray);
  rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  rh.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(scene_, &context, &rh);
  if (rh.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;
  hit.t = rh.ray.tfar;
  fillSurface(rh.hit.geomID, rh.hit.primID, rh.hit.u, rh.hit.v, hit);
  return true;
}

bool Scene::occluded(const Ray& ray) const {
  if (!isTraceable(ray)) return true;
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  RTCRay r;
  setRay(ray, r);
  rtcOccluded1(scene_, &context, &r);
  return r.tfar < 0;
}

void Scene::intersect16(const Ray* rays, const bool* active, SurfaceHit* hits, bool* found, bool coherent) const {
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  if (coherent) context.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
  alignas(64) int valid[kPacketSize];
  alignas(64) RTCRayHit16 rh;
  bool any = packRays(rays, active, valid, rh.ray);
  for (int k = 0; k < kPacketSize; ++k) {
    rh.hit.geomID[k] = RTC_INVALID_GEOMETRY_ID;
    rh.hit.instID[0][k] = RTC_INVALID_GEOMETRY_ID;
  }
  if (any) rtcIntersect16(valid, scene_, &context, &rh);
  for (int k = 0; k < kPacketSize; ++k) {
    if (!active[k]) continue;
    found[k] = rh.hit.geomID[k] != RTC_INVALID_GEOMETRY_ID;
    if (!found[k]) continue;
    hits[k].t = rh.ray.tfar[k];
    fillSurface(rh.hit.geomID[k], rh.hit.primID[k], rh.hit.u[k], rh.hit.v[k], hits[k]);
  }
}

void Scene::occluded16(const Ray* rays, const bool* active, bool* blocked) const {
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  alignas(64) int valid[kPacketSize];
  alignas(64) RTCRay16 r;
  if (packRays(rays, active, valid, r)) rtcOccluded16(valid, scene_, &context, &r);
  for (int k = 0; k < kPacketSize; ++k)
    if (active[k]) blocked[k] = r.tfar[k] < 0;
}

namespace {

void faceOf(Vec3 p0, Vec3 p1, Vec3 p2, bool flip, Vec3& n, float& area) {
  Vec3 c = cross(p1 - p0, p2 - p0);
  float len = length(c);
  area = 0.5f * len;
  n = len > 0 ? c / len : Vec3(0, 0, 1);
  if (flip) n = -n;
}

}  // namespace

void Scene::computeFaces(ShapeRecord& rec) {
  rec.faceNormals.resize(rec.triangleCount);
  rec.faceAreas.resize(rec.triangleCount);
  const uint32_t* idx = rec.mesh->indices.data();
  for (uint32_t t = 0; t < rec.triangleCount; ++t)
    faceOf(rec.positions[idx[3 * t]], rec.positions[idx[3 * t + 1]], rec.positions[idx[3 * t + 2]], rec.flipWinding,
           rec.faceNormals[t], rec.faceAreas[t]);
}

void Scene::trianglePoint(uint32_t shape, uint32_t prim, float b1, float b2, Vec3& p, Vec3& n, float& area) const {
  const ShapeRecord& s = shapes_[shape];
  const uint32_t* idx = &s.mesh->indices[3 * prim];
  Vec3 p0 = s.positions[idx[0]], p1 = s.positions[idx[1]], p2 = s.positions[idx[2]];
  p = p0 * (1 - b1 - b2) + p1 * b1 + p2 * b2;
  // Normals and areas belong to the triangle, not the ray: made once when the scene is built.
  n = s.faceNormals[prim];
  area = s.faceAreas[prim];
}

void Scene::fillSurface(uint32_t shape, uint32_t prim, float b1, float b2, SurfaceHit& hit) const {
  const ShapeRecord& s = shapes_[shape];
  const MeshData& m = *s.mesh;
  const uint32_t* idx = &m.indices[3 * prim];
  uint32_t i0 = idx[0], i1 = idx[1], i2 = idx[2];
  float b0 = 1 - b1 - b2;
  hit.shape = shape;
  hit.prim = prim;
  hit.b1 = b1;
  hit.b2 = b2;
  float area = 0;
  trianglePoint(shape, prim, b1, b2, hit.p, hit.ng, area);
  if (!s.normals.empty()) {
    hit.ns = normalize(s.normals[i0] * b0 + s.normals[i1] * b1 + s.normals[i2] * b2);
    if (dot(hit.ns, hit.ng) < 0) hit.ns = -hit.ns;
  } else {
    hit.ns = hit.ng;
  }
  const std::vector<float>* sets[2] = {&m.texcoords0, &m.texcoords1};
  for (int k = 0; k < 2; ++k) {
    const auto& t = *sets[k];
    if (t.empty()) {
      hit.uv[k][0] = hit.uv[k][1] = 0;
      hit.uvDensity[k] = 0;
      continue;
    }
    hit.uv[k][0] = t[2 * i0] * b0 + t[2 * i1] * b1 + t[2 * i2] * b2;
    hit.uv[k][1] = t[2 * i0 + 1] * b0 + t[2 * i1 + 1] * b1 + t[2 * i2 + 1] * b2;
    float du1 = t[2 * i1] - t[2 * i0], dv1 = t[2 * i1 + 1] - t[2 * i0 + 1];
    float du2 = t[2 * i2] - t[2 * i0], dv2 = t[2 * i2 + 1] - t[2 * i0 + 1];
    float uvArea = 0.5f * std::fabs(du1 * dv2 - du2 * dv1);
    hit.uvDensity[k] = area > 0 ? std::sqrt(uvArea / area) : 0;
  }
  if (!m.colors.empty()) {
    const float* c0 = &m.colors[4 * i0];
    const float* c1 = &m.colors[4 * i1];
    const float* c2 = &m.colors[4 * i2];
    hit.color = {c0[0] * b0 + c1[0] * b1 + c2[0] * b2, c0[1] * b0 + c1[1] * b1 + c2[1] * b2,
                 c0[2] * b0 + c1[2] * b1 + c2[2] * b2, c0[3] * b0 + c1[3] * b1 + c2[3] * b2};
  } else {
    hit.color = Vec4{1, 1, 1, 1};
  }
  hit.hasTangent = false;
  if (!s.tangents.empty()) {
    const float* t = s.tangents.data();
    hit.tangent = normalize(Vec3(t[4 * i0], t[4 * i0 + 1], t[4 * i0 + 2]) * b0 + Vec3(t[4 * i1], t[4 * i1 + 1], t[4 * i1 + 2]) * b1 +
                            Vec3(t[4 * i2], t[4 * i2 + 1], t[4 * i2 + 2]) * b2);
    hit.tangentSign = t[4 * i0 + 3];
    hit.hasTangent = true;
  } else if (!m.texcoords0.empty()) {
    // Tangent from the texture-coordinate gradient of the triangle.
    const auto& t = m.texcoords0;
    Vec3 e1 = s.positions[i1] - s.positions[i0], e2 = s.positions[i2] - s.positions[i0];
    float du1 = t[2 * i1] - t[2 * i0], dv1 = t[2 * i1 + 1] - t[2 * i0 + 1];
    float du2 = t[2 * i2] - t[2 * i0], dv2 = t[2 * i2 + 1] - t[2 * i0 + 1];
    float det = du1 * dv2 - du2 * dv1;
    if (std::fabs(det) > 1e-12f) {
      Vec3 dpdu = (e1 * dv2 - e2 * dv1) / det;
      Vec3 dpdv = (e2 * du1 - e1 * du2) / det;
      hit.tangent = normalize(dpdu);
      // v runs down the image while a normal map's green points up: the bitangent follows -dp/dv.
      hit.tangentSign = dot(cross(hit.ng, hit.tangent), dpdv) < 0 ? 1.0f : -1.0f;
      hit.hasTangent = length(dpdu) > 0;
    }
  }
}

}  // namespace zvr::kernel
