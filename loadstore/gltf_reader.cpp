#include "loadstore/gltf_reader.h"

#include <tiny_gltf.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

#include "loadstore/animation_records.h"
#include "loadstore/catcher_flags.h"
#include "loadstore/gltf_accessors.h"
#include "loadstore/gltf_materials.h"
#include "loadstore/light_group_extras.h"
#include "loadstore/load_error.h"
#include "loadstore/mesh_processing.h"
#include "loadstore/scene_framing.h"
#include "loadstore/skin_pose.h"
#include "loadstore/transform_math.h"

namespace zvr::loadstore {

namespace {

// Keeps images encoded: the core decodes them later, once per colour space they are used in.
// The parser hands over an image's buffer view without checking it against its buffer, so the
// view is checked here before a byte of it is read.
bool keepEncodedImage(tinygltf::Image* image, const int index, std::string* err, std::string*, int, int,
                      const unsigned char* bytes, int size, void* modelBeingRead) {
  const auto* model = static_cast<const tinygltf::Model*>(modelBeingRead);
  if (image->bufferView >= 0 && model) {
    const tinygltf::BufferView& view = model->bufferViews[size_t(image->bufferView)];
    const size_t bufferSize = model->buffers[size_t(view.buffer)].data.size();
    if (view.byteOffset > bufferSize || view.byteLength > bufferSize - view.byteOffset) {
      if (err)
        *err += "image " + std::to_string(index) + " reads buffer view " + std::to_string(image->bufferView) +
                " past the end of buffer " + std::to_string(view.buffer);
      return false;
    }
  }
  if (size <= 0) return false;
  image->image.assign(bytes, bytes + size);
  image->width = image->height = image->component = 0;
  return true;
}

std::string sniffMimeType(const std::vector<unsigned char>& b) {
  if (b.size() >= 8 && std::memcmp(b.data(), "\x89PNG", 4) == 0) return "image/png";
  if (b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF) return "image/jpeg";
  return {};
}

uint32_t readU32(const uint8_t* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

// Checks the container before the parser sees it, so no declared length is ever trusted.
void checkGlbContainer(const std::string& file, const std::vector<uint8_t>& b) {
  if (b.size() < 20 || std::memcmp(b.data(), "glTF", 4) != 0) throw LoadError(file, "is not a binary glTF file (bad magic)");
  if (readU32(b.data() + 4) != 2) throw LoadError(file, "is binary glTF version " + std::to_string(readU32(b.data() + 4)) + ", not 2");
  const uint32_t declared = readU32(b.data() + 8);
  if (declared != b.size())
    throw LoadError(file, "declares a length of " + std::to_string(declared) + " bytes but holds " + std::to_string(b.size()));
  size_t at = 12;
  for (int chunk = 0; at < b.size(); ++chunk) {
    if (b.size() - at < 8) throw LoadError(file, "chunk " + std::to_string(chunk) + " header is truncated");
    const uint64_t length = readU32(b.data() + at);
    if (length > b.size() - at - 8)
      throw LoadError(file, "chunk " + std::to_string(chunk) + " declares " + std::to_string(length) + " bytes past the end of the file");
    if (chunk == 0 && std::memcmp(b.data() + at + 4, "JSON", 4) != 0) throw LoadError(file, "first chunk is not JSON");
    at += 8 + length;
  }
}

class GltfReader {
 public:
  GltfReader(const tinygltf::Model& model, const std::string& file) : m_(model), file_(file), accessors_(model, file) {}

  SceneDescription read() {
    readGltfMaterials(m_, file_, &scene_);
    readImages();
    readNodes();
    poseSkins();
    readAnimations();
    return std::move(scene_);
  }

 private:
  [[noreturn]] void fail(const std::string& problem) const { throw LoadError(file_, problem); }

  void readImages() {
    std::vector<bool> used(m_.images.size(), false);
    for (const Material& mat : scene_.materials)
      for (const TextureRef& t : mat.textures)
        if (t.image >= 0) used[t.image] = true;
    for (size_t i = 0; i < m_.images.size(); ++i) {
      const tinygltf::Image& src = m_.images[i];
      Image img;
      img.name = src.name;
      img.encoded.assign(src.image.begin(), src.image.end());
      img.mimeType = src.mimeType.empty() ? sniffMimeType(src.image) : src.mimeType;
      if (used[i] && img.encoded.empty()) {
        const std::string what = src.uri.empty() || src.uri.rfind("data:", 0) == 0 ? "" : " (" + src.uri + ")";
        fail("image " + std::to_string(i) + what + " could not be read");
      }
      scene_.images.push_back(std::move(img));
    }
  }

  std::vector<int> sceneRoots() const {
    int sceneIndex = m_.defaultScene;
    if (sceneIndex < 0 && !m_.scenes.empty()) sceneIndex = 0;
    if (sceneIndex >= int(m_.scenes.size())) fail("default scene " + std::to_string(sceneIndex) + " does not exist");
    if (sceneIndex >= 0) return m_.scenes[sceneIndex].nodes;
    // No scenes at all: every node that no other node names is a root.
    std::vector<bool> child(m_.nodes.size(), false);
    for (const auto& n : m_.nodes)
      for (int c : n.children)
        if (c >= 0 && size_t(c) < child.size()) child[c] = true;
    std::vector<int> roots;
    for (size_t i = 0; i < child.size(); ++i)
      if (!child[i]) roots.push_back(int(i));
    return roots;
  }

  void readNodes() {
    nodeMap_.assign(m_.nodes.size(), -1);
    std::vector<std::pair<int, int>> stack;  // (glTF node, description parent)
    const std::vector<int> roots = sceneRoots();
    for (auto it = roots.rbegin(); it != roots.rend(); ++it) stack.push_back({*it, -1});
    while (!stack.empty()) {
      const auto [index, parent] = stack.back();
      stack.pop_back();
      if (index < 0 || size_t(index) >= m_.nodes.size()) fail("node " + std::to_string(index) + " does not exist");
      if (nodeMap_[index] >= 0) fail("node " + std::to_string(index) + " is reached twice: the node graph has a cycle or a shared child");
      nodeMap_[index] = int(scene_.nodes.size());
      scene_.nodes.push_back(readNode(index, parent));
      const auto& children = m_.nodes[index].children;
      for (auto c = children.rbegin(); c != children.rend(); ++c) stack.push_back({*c, nodeMap_[index]});
    }
  }

  std::string uniqueName(const std::string& name, int index) {
    std::string candidate = name;
    if (candidate.empty() || usedNames_.count(candidate)) candidate = (name.empty() ? "node" : name) + "_" + std::to_string(index);
    for (int suffix = 1; usedNames_.count(candidate); ++suffix)
      candidate = (name.empty() ? "node" : name) + "_" + std::to_string(index) + "_" + std::to_string(suffix);
    usedNames_.insert(candidate);
    return candidate;
  }

  Node readNode(int index, int parent) {
    const tinygltf::Node& src = m_.nodes[index];
    const std::string where = "node " + std::to_string(index);
    Node node;
    node.name = uniqueName(src.name, index);
    node.parent = parent;
    node.sourceIndex = uint32_t(index);
    auto finite = [&](double v) {
      if (!std::isfinite(v)) fail(where + " has a transform that is not finite");
      return float(v);
    };
    if (src.matrix.size() == 16) {
      Matrix4 m;
      for (int i = 0; i < 16; ++i) m[i] = finite(src.matrix[i]);
      if (!decomposeMatrix(m, &node.local)) {
        node.local = Trs{};
        node.local.translation = {m[12], m[13], m[14]};
        node.local.scale = {0.f, 0.f, 0.f};  // a collapsed matrix hides the node, as it would in the file
      }
    } else {
      if (src.translation.size() == 3)
        for (int i = 0; i < 3; ++i) node.local.translation[i] = finite(src.translation[i]);
      if (src.rotation.size() == 4) {
        for (int i = 0; i < 4; ++i) node.local.rotation[i] = finite(src.rotation[i]);
        normalizeQuaternion(node.local.rotation.data());
      }
      if (src.scale.size() == 3)
        for (int i = 0; i < 3; ++i) node.local.scale[i] = finite(src.scale[i]);
    }
    if (src.mesh >= 0) node.mesh = meshFor(src.mesh);
    if (src.mesh >= 0 && src.skin >= 0) skinned_.push_back({int(scene_.nodes.size()), index});
    if (src.camera >= 0) node.camera = cameraFor(src.camera);
    std::string problem;
    node.catcher = catcherFlagsFromExtras(src.extras, &problem);
    if (!problem.empty()) fail(where + ": " + problem);
    const auto light = src.extensions.find("KHR_lights_punctual");
    if (light != src.extensions.end() && light->second.Has("light")) {
      const tinygltf::Value& v = light->second.Get("light");
      if (!v.IsInt()) fail(where + " names a light that is not an index");
      node.light = lightFor(v.GetNumberAsInt());
    }
    return node;
  }

  int meshFor(int index) {
    if (size_t(index) >= m_.meshes.size()) fail("mesh " + std::to_string(index) + " does not exist");
    const auto found = meshMap_.find(index);
    if (found != meshMap_.end()) return found->second;
    Mesh mesh;
    mesh.name = m_.meshes[index].name;
    mesh.sourceIndex = uint32_t(index);
    const auto& prims = m_.meshes[index].primitives;
    for (size_t p = 0; p < prims.size(); ++p) {
      if (prims[p].mode >= 0 && prims[p].mode < 4) continue;  // points and lines do not render
      mesh.primitives.push_back(readPrimitive(index, p));
    }
    meshMap_[index] = int(scene_.meshes.size());
    scene_.meshes.push_back(std::move(mesh));
    return meshMap_[index];
  }

  Primitive readPrimitive(int meshIndex, size_t primIndex) {
    const tinygltf::Primitive& src = m_.meshes[meshIndex].primitives[primIndex];
    const std::string where = "mesh " + std::to_string(meshIndex) + " primitive " + std::to_string(primIndex);
    Primitive out;
    const auto attr = [&](const char* name) {
      const auto it = src.attributes.find(name);
      return it == src.attributes.end() ? -1 : it->second;
    };
    if (attr("POSITION") < 0) fail(where + " has no POSITION attribute");
    out.positions = accessors_.readFloats(attr("POSITION"), 3);
    const size_t n = out.vertexCount();
    const auto stream = [&](const char* name, int comps, std::vector<float>* dst) {
      if (attr(name) < 0) return;
      *dst = accessors_.readFloats(attr(name), comps);
      if (dst->size() != n * size_t(comps))
        fail(where + " has " + std::to_string(dst->size() / comps) + " " + name + " values for " + std::to_string(n) + " vertices");
    };
    stream("NORMAL", 3, &out.normals);
    stream("TANGENT", 4, &out.tangents);
    stream("TEXCOORD_0", 2, &out.texcoords0);
    stream("TEXCOORD_1", 2, &out.texcoords1);
    if (attr("COLOR_0") >= 0) {
      const int comps = accessors_.components(attr("COLOR_0"));
      if (comps != 3 && comps != 4) fail(where + " has COLOR_0 that is neither VEC3 nor VEC4");
      std::vector<float> c;
      stream("COLOR_0", comps, &c);
      if (comps == 4) {
        out.colors = std::move(c);
      } else {
        out.colors.resize(n * 4);
        for (size_t i = 0; i < n; ++i) {
          std::memcpy(&out.colors[i * 4], &c[i * 3], 3 * sizeof(float));
          out.colors[i * 4 + 3] = 1.f;
        }
      }
    }
    std::vector<uint32_t> source;
    if (src.indices >= 0) {
      source = accessors_.readIndices(src.indices);
    } else {
      source.resize(n);
      for (size_t i = 0; i < n; ++i) source[i] = uint32_t(i);
    }
    const int mode = src.mode < 0 ? 4 : src.mode;
    if (!toTriangleList(mode, source, &out.indices))
      fail(where + " has " + std::to_string(source.size()) + " indices, which do not make whole triangles of mode " + std::to_string(mode));
    const std::string bad = checkGeometry(out);
    if (!bad.empty()) fail(where + " " + bad);
    if (src.material >= 0) {
      if (size_t(src.material) >= scene_.materials.size()) fail(where + " names material " + std::to_string(src.material) + ", which does not exist");
      out.material = src.material;
    }
    if (out.normals.empty()) generateNormals(&out);
    const bool normalMapped = out.material >= 0 &&
        (scene_.materials[out.material].texture(TextureSlot::Normal).image >= 0 ||
         scene_.materials[out.material].texture(TextureSlot::ClearcoatNormal).image >= 0);
    if (normalMapped && out.tangents.empty()) generateTangents(&out);
    return out;
  }

  int cameraFor(int index) {
    if (size_t(index) >= m_.cameras.size()) fail("camera " + std::to_string(index) + " does not exist");
    const tinygltf::Camera& src = m_.cameras[index];
    Camera cam;
    cam.name = src.name;
    const auto positive = [&](double v, const char* what) {
      if (!std::isfinite(v) || v < 0) fail("camera " + std::to_string(index) + " has a " + what + " that is not a positive number");
      return float(v);
    };
    if (src.type == "orthographic") {
      cam.orthographic = true;
      cam.xmag = positive(std::fabs(src.orthographic.xmag), "xmag");
      cam.ymag = positive(std::fabs(src.orthographic.ymag), "ymag");
      cam.znear = positive(src.orthographic.znear, "znear");
      cam.zfar = positive(src.orthographic.zfar, "zfar");
    } else if (src.type == "perspective") {
      cam.yfov = positive(src.perspective.yfov, "yfov");
      if (cam.yfov <= 0.f || cam.yfov >= 3.14159f) fail("camera " + std::to_string(index) + " has a field of view outside (0, pi)");
      cam.znear = positive(src.perspective.znear, "znear");
      cam.zfar = positive(src.perspective.zfar, "zfar");
    } else {
      fail("camera " + std::to_string(index) + " has an unknown type \"" + src.type + "\"");
    }
    scene_.cameras.push_back(cam);
    return int(scene_.cameras.size()) - 1;
  }

  int lightFor(int index) {
    if (index < 0 || size_t(index) >= m_.lights.size()) fail("light " + std::to_string(index) + " does not exist");
    const tinygltf::Light& src = m_.lights[index];
    Light light;
    light.name = src.name;
    if (src.type == "point") light.type = LightType::Point;
    else if (src.type == "spot") light.type = LightType::Spot;
    else if (src.type == "directional") light.type = LightType::Directional;
    else fail("light " + std::to_string(index) + " has an unknown type \"" + src.type + "\"");
    if (src.color.size() == 3)
      for (int i = 0; i < 3; ++i) light.color[i] = float(src.color[i]);
    light.intensity = float(src.intensity);
    light.innerCone = float(src.spot.innerConeAngle);
    light.outerCone = float(src.spot.outerConeAngle);
    for (float v : {light.color[0], light.color[1], light.color[2], light.intensity, light.innerCone, light.outerCone})
      if (!std::isfinite(v) || v < 0) fail("light " + std::to_string(index) + " has a value that is not a non-negative number");
    std::string problem;
    light.lightGroup = lightGroupFromExtras(src.extras, &problem);
    if (!problem.empty()) fail("light " + std::to_string(index) + " " + problem);
    scene_.lights.push_back(light);
    return int(scene_.lights.size()) - 1;
  }

  Matrix4 fileLocal(int index) const {
    const tinygltf::Node& n = m_.nodes[index];
    Matrix4 m = identityMatrix();
    if (n.matrix.size() == 16) {
      for (int i = 0; i < 16; ++i) m[i] = float(n.matrix[i]);
    } else {
      Trs trs;
      for (size_t i = 0; i < 3 && n.translation.size() == 3; ++i) trs.translation[i] = float(n.translation[i]);
      for (size_t i = 0; i < 4 && n.rotation.size() == 4; ++i) trs.rotation[i] = float(n.rotation[i]);
      for (size_t i = 0; i < 3 && n.scale.size() == 3; ++i) trs.scale[i] = float(n.scale[i]);
      normalizeQuaternion(trs.rotation.data());
      m = matrixFromTrs(trs);
    }
    for (float v : m)
      if (!std::isfinite(v)) fail("node " + std::to_string(index) + " has a transform that is not finite");
    return m;
  }

  // World matrix of any node, also one outside the rendered scene (joints may be).
  Matrix4 fileWorld(int index) const {
    Matrix4 world = fileLocal(index);
    size_t steps = 0;
    for (int p = fileParent_[index]; p >= 0; p = fileParent_[p]) {
      if (++steps > m_.nodes.size()) fail("node " + std::to_string(index) + " has a cycle among its parents");
      world = multiply(fileLocal(p), world);
    }
    return world;
  }

  // Skinned meshes are posed at their bind pose: the joints' matrices are applied to the
  // vertices, expressed relative to the node that holds the mesh (its group).
  void poseSkins() {
    if (skinned_.empty()) return;
    fileParent_.assign(m_.nodes.size(), -1);
    for (size_t p = 0; p < m_.nodes.size(); ++p)
      for (int c : m_.nodes[p].children)
        if (c >= 0 && size_t(c) < m_.nodes.size() && fileParent_[c] < 0) fileParent_[c] = int(p);
    for (const auto& [descIndex, index] : skinned_) {
      const tinygltf::Node& src = m_.nodes[index];
      const std::string where = "skin " + std::to_string(src.skin);
      if (size_t(src.skin) >= m_.skins.size()) fail("node " + std::to_string(index) + " names " + where + ", which does not exist");
      const tinygltf::Skin& skin = m_.skins[src.skin];
      std::vector<float> inverseBind;
      if (skin.inverseBindMatrices >= 0) {
        inverseBind = accessors_.readFloats(skin.inverseBindMatrices, 16);
        if (inverseBind.size() < skin.joints.size() * 16) fail(where + " has fewer inverse bind matrices than joints");
      }
      Matrix4 nodeInverse;
      if (!invertAffine(fileWorld(index), &nodeInverse)) continue;  // a collapsed node shows nothing anyway
      std::vector<Matrix4> jointMatrices;
      for (size_t j = 0; j < skin.joints.size(); ++j) {
        const int joint = skin.joints[j];
        if (joint < 0 || size_t(joint) >= m_.nodes.size()) fail(where + " names joint node " + std::to_string(joint) + ", which does not exist");
        Matrix4 bind = identityMatrix();
        if (!inverseBind.empty()) std::copy(inverseBind.begin() + long(j * 16), inverseBind.begin() + long(j * 16 + 16), bind.begin());
        jointMatrices.push_back(multiply(nodeInverse, multiply(fileWorld(joint), bind)));
      }
      Mesh posed = scene_.meshes[scene_.nodes[descIndex].mesh];
      const auto& prims = m_.meshes[src.mesh].primitives;
      size_t d = 0;
      for (size_t p = 0; p < prims.size(); ++p) {
        if (prims[p].mode >= 0 && prims[p].mode < 4) continue;
        Primitive& target = posed.primitives[d++];
        const auto jointsAttr = prims[p].attributes.find("JOINTS_0");
        const auto weightsAttr = prims[p].attributes.find("WEIGHTS_0");
        if (jointsAttr == prims[p].attributes.end() || weightsAttr == prims[p].attributes.end()) continue;
        const std::vector<float> jointValues = accessors_.readFloats(jointsAttr->second, 4);
        const std::vector<float> weights = accessors_.readFloats(weightsAttr->second, 4);
        if (jointValues.size() != target.vertexCount() * 4 || weights.size() != jointValues.size())
          fail("mesh " + std::to_string(src.mesh) + " primitive " + std::to_string(p) + " has joints or weights not matching its vertices");
        std::vector<uint32_t> joints(jointValues.size());
        for (size_t i = 0; i < joints.size(); ++i) {
          if (!(jointValues[i] >= 0.f) || jointValues[i] >= float(jointMatrices.size()))
            fail("mesh " + std::to_string(src.mesh) + " primitive " + std::to_string(p) + " names a joint past the end of " + where);
          joints[i] = uint32_t(jointValues[i]);
        }
        applySkinning(joints, weights, jointMatrices, &target);
      }
      scene_.nodes[descIndex].mesh = int(scene_.meshes.size());
      scene_.meshes.push_back(std::move(posed));
    }
  }

  void readAnimations() {
    for (size_t a = 0; a < m_.animations.size(); ++a) {
      const tinygltf::Animation& anim = m_.animations[a];
      for (size_t c = 0; c < anim.channels.size(); ++c) {
        const tinygltf::AnimationChannel& ch = anim.channels[c];
        const std::string where = "animation " + std::to_string(a) + " channel " + std::to_string(c);
        uint32_t kind = 0;
        if (ch.target_path == "translation") kind = 1;
        else if (ch.target_path == "rotation") kind = 2;
        else if (ch.target_path == "scale") kind = 3;
        else continue;  // morph weights have no transform group to move
        if (ch.target_node < 0 || size_t(ch.target_node) >= m_.nodes.size()) fail(where + " targets a node that does not exist");
        if (nodeMap_[ch.target_node] < 0) continue;  // not part of the rendered scene
        if (ch.sampler < 0 || size_t(ch.sampler) >= anim.samplers.size()) fail(where + " names a sampler that does not exist");
        const tinygltf::AnimationSampler& s = anim.samplers[ch.sampler];
        uint32_t interpolation = 0;
        if (s.interpolation == "STEP") interpolation = 1;
        else if (s.interpolation == "CUBICSPLINE") interpolation = 2;
        else if (!s.interpolation.empty() && s.interpolation != "LINEAR") fail(where + " has an unknown interpolation \"" + s.interpolation + "\"");
        AnimationChannel out;
        out.animationIndex = uint32_t(a);
        out.node = nodeMap_[ch.target_node];
        out.kind = kind;
        const std::vector<float> times = accessors_.readFloats(s.input, 1);
        const std::vector<float> values = accessors_.readFloats(s.output, int(out.componentCount()));
        std::string problem;
        if (!convertToLinearKeys(interpolation, out.componentCount(), times, values, &out, &problem)) fail(where + " " + problem);
        scene_.animations.push_back(std::move(out));
      }
    }
  }

  const tinygltf::Model& m_;
  const std::string& file_;
  AccessorReader accessors_;
  SceneDescription scene_;
  std::vector<int> nodeMap_;
  std::map<int, int> meshMap_;
  std::set<std::string> usedNames_;
  std::vector<std::pair<int, int>> skinned_;  // (description node, file node)
  std::vector<int> fileParent_;
};

}  // namespace

SceneDescription readGltf(const std::string& path, const std::vector<uint8_t>& bytes, bool binary) {
  if (binary) checkGlbContainer(path, bytes);
  tinygltf::TinyGLTF loader;
  tinygltf::Model model;
  loader.SetImageLoader(keepEncodedImage, &model);
  std::string err, warn;
  const size_t slash = path.find_last_of('/');
  const std::string baseDir = slash == std::string::npos ? "." : path.substr(0, slash);
  const bool ok = binary ? loader.LoadBinaryFromMemory(&model, &err, &warn, bytes.data(), unsigned(bytes.size()), baseDir)
                         : loader.LoadASCIIFromString(&model, &err, &warn, reinterpret_cast<const char*>(bytes.data()),
                                                      unsigned(bytes.size()), baseDir);
  if (!ok) {
    while (!err.empty() && (err.back() == '\n' || err.back() == ' ')) err.pop_back();
    throw LoadError(path, err.empty() ? "is not valid glTF" : err);
  }
  static const std::set<std::string> kUnderstood = {
      "KHR_lights_punctual", "KHR_materials_emissive_strength", "KHR_materials_transmission", "KHR_materials_ior",
      "KHR_materials_volume", "KHR_materials_clearcoat", "KHR_materials_specular", "KHR_materials_sheen",
      "KHR_texture_transform", "KHR_materials_unlit", "KHR_mesh_quantization"};
  for (const std::string& required : model.extensionsRequired)
    if (!kUnderstood.count(required)) throw LoadError(path, "requires the extension " + required + ", which is not supported");
  return GltfReader(model, path).read();
}

}  // namespace zvr::loadstore
