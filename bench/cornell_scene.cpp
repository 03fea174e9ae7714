#include "bench/cornell_scene.h"

#include <tiny_gltf.h>

#include <cmath>
#include <functional>
#include <memory>

namespace zvr::bench {
namespace {

Matrix4 multiply(const Matrix4& a, const Matrix4& b) {  // row vectors: p * a * b
  Matrix4 r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) {
      float s = 0;
      for (int k = 0; k < 4; ++k) s += a.m[4 * i + k] * b.m[4 * k + j];
      r.m[4 * i + j] = s;
    }
  return r;
}

Matrix4 nodeMatrix(const tinygltf::Node& n) {
  Matrix4 m;
  if (n.matrix.size() == 16) {
    for (int i = 0; i < 16; ++i) m.m[i] = float(n.matrix[i]);  // column-major = our row-vector layout
    return m;
  }
  double t[3] = {0, 0, 0}, q[4] = {0, 0, 0, 1}, s[3] = {1, 1, 1};
  for (size_t i = 0; i < n.translation.size() && i < 3; ++i) t[i] = n.translation[i];
  for (size_t i = 0; i < n.rotation.size() && i < 4; ++i) q[i] = n.rotation[i];
  for (size_t i = 0; i < n.scale.size() && i < 3; ++i) s[i] = n.scale[i];
  double x = q[0], y = q[1], z = q[2], w = q[3];
  double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
                    {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
                    {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)}};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) m.m[4 * i + j] = float(r[i][j] * s[i]);
  m.m[12] = float(t[0]);
  m.m[13] = float(t[1]);
  m.m[14] = float(t[2]);
  return m;
}

template <typename T>
bool readAccessor(const tinygltf::Model& model, int index, int components, std::vector<T>& out, std::string* error) {
  if (index < 0 || index >= int(model.accessors.size())) {
    *error = "accessor " + std::to_string(index) + " does not exist";
    return false;
  }
  const auto& acc = model.accessors[index];
  const auto& view = model.bufferViews.at(acc.bufferView);
  const auto& buffer = model.buffers.at(view.buffer);
  size_t elementSize = size_t(tinygltf::GetComponentSizeInBytes(acc.componentType)) * components;
  size_t stride = view.byteStride ? view.byteStride : elementSize;
  size_t start = view.byteOffset + acc.byteOffset;
  if (acc.count == 0 || start + stride * (acc.count - 1) + elementSize > buffer.data.size()) {
    *error = "accessor " + std::to_string(index) + " reads past the end of its buffer";
    return false;
  }
  out.resize(acc.count * components);
  for (size_t i = 0; i < acc.count; ++i)
    for (int c = 0; c < components; ++c) {
      const unsigned char* p = buffer.data.data() + start + stride * i + size_t(c) * tinygltf::GetComponentSizeInBytes(acc.componentType);
      switch (acc.componentType) {
        case TINYGLTF_COMPONENT_TYPE_FLOAT: out[i * components + c] = T(*reinterpret_cast<const float*>(p)); break;
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT: out[i * components + c] = T(*reinterpret_cast<const uint32_t*>(p)); break;
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: out[i * components + c] = T(*reinterpret_cast<const uint16_t*>(p)); break;
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE: out[i * components + c] = T(*p); break;
        default:
          *error = "accessor " + std::to_string(index) + " has an unsupported component type";
          return false;
      }
    }
  return true;
}

}  // namespace

bool loadGltfSnapshot(const std::string& path, SceneSnapshot& out, std::string* error) {
  tinygltf::Model model;
  tinygltf::TinyGLTF loader;
  std::string err, warn;
  bool binary = path.size() > 4 && path.substr(path.size() - 4) == ".glb";
  bool ok = binary ? loader.LoadBinaryFromFile(&model, &err, &warn, path) : loader.LoadASCIIFromFile(&model, &err, &warn, path);
  if (!ok) {
    *error = path + ": " + err;
    return false;
  }
  std::vector<std::shared_ptr<MaterialData>> materials;
  for (size_t i = 0; i < model.materials.size(); ++i) {
    const auto& src = model.materials[i];
    auto m = std::make_shared<MaterialData>();
    m->id = i + 1;
    m->materialId = uint32_t(i);
    for (int k = 0; k < 4; ++k) m->baseColor[k] = float(src.pbrMetallicRoughness.baseColorFactor[k]);
    m->metallic = float(src.pbrMetallicRoughness.metallicFactor);
    m->roughness = float(src.pbrMetallicRoughness.roughnessFactor);
    for (int k = 0; k < 3; ++k) m->emissive[k] = float(src.emissiveFactor[k]);
    m->doubleSided = src.doubleSided;
    auto ext = src.extensions.find("KHR_materials_emissive_strength");
    if (ext != src.extensions.end() && ext->second.Has("emissiveStrength"))
      m->emissiveStrength = float(ext->second.Get("emissiveStrength").GetNumberAsDouble());
    ext = src.extensions.find("KHR_materials_specular");
    if (ext != src.extensions.end() && ext->second.Has("specularFactor"))
      m->specular = float(ext->second.Get("specularFactor").GetNumberAsDouble());
    materials.push_back(m);
  }
  uint64_t nextId = 1;
  std::function<bool(int, const Matrix4&)> visit = [&](int nodeIndex, const Matrix4& parent) {
    const auto& node = model.nodes.at(nodeIndex);
    Matrix4 world = multiply(nodeMatrix(node), parent);
    if (node.mesh >= 0) {
      for (const auto& prim : model.meshes.at(node.mesh).primitives) {
        if (prim.mode != TINYGLTF_MODE_TRIANGLES && prim.mode != -1) continue;
        auto mesh = std::make_shared<MeshData>();
        auto pos = prim.attributes.find("POSITION");
        if (pos == prim.attributes.end()) continue;
        if (!readAccessor(model, pos->second, 3, mesh->positions, error)) return false;
        auto nrm = prim.attributes.find("NORMAL");
        if (nrm != prim.attributes.end() && !readAccessor(model, nrm->second, 3, mesh->normals, error)) return false;
        if (prim.indices >= 0) {
          if (!readAccessor(model, prim.indices, 1, mesh->indices, error)) return false;
        } else {
          for (uint32_t i = 0; i < mesh->positions.size() / 3; ++i) mesh->indices.push_back(i);
        }
        ShapeData s;
        s.id = nextId++;
        s.mesh = mesh;
        if (prim.material >= 0) s.material = materials.at(prim.material);
        s.transform = world;
        s.objectId = uint32_t(nodeIndex);
        out.shapes.push_back(s);
      }
    }
    if (node.camera >= 0 && !out.hasCamera) {
      const auto& cam = model.cameras.at(node.camera);
      out.hasCamera = true;
      out.camera.transform = world;
      out.camera.fovY = float(cam.perspective.yfov);
      out.camera.nearPlane = float(cam.perspective.znear);
      out.camera.farPlane = cam.perspective.zfar > 0 ? float(cam.perspective.zfar) : 1e30f;
    }
    for (int child : node.children)
      if (!visit(child, world)) return false;
    return true;
  };
  int sceneIndex = model.defaultScene >= 0 ? model.defaultScene : 0;
  if (model.scenes.empty()) {
    *error = path + ": no scene";
    return false;
  }
  for (int n : model.scenes[sceneIndex].nodes)
    if (!visit(n, Matrix4{})) {
      *error = path + ": " + *error;
      return false;
    }
  out.geometryRevision = out.transformRevision = out.materialRevision = out.lightRevision = 1;
  return true;
}

}  // namespace zvr::bench
