#include "loadstore/instantiate.h"

#include <limits>
#include <map>

#include "loadstore/load_error.h"
#include "loadstore/scene_framing.h"

namespace zvr::loadstore {

namespace {

std::string lastCoreError(ZvrContext context) {
  size_t size = 0;
  if (zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, 0, nullptr, &size) != ZVR_SUCCESS || size == 0) return {};
  std::string text(size, '\0');
  if (zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, size, text.data(), nullptr) != ZVR_SUCCESS) return {};
  text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
  return text;
}

class Instantiator {
 public:
  Instantiator(const SceneDescription& scene, const std::string& file, ZvrContext context, ZvrMaterialSystem system,
               ImportResult* result, std::vector<CreatedObject>* created)
      : d_(scene), file_(LoadError::fileLabel(file)), context_(context), system_(system), result_(result), created_(created) {}

  ZvrScene run() {
    try {
      check(zvrContextCreateScene(context_, &scene_), "creating the scene");
      materials_.assign(d_.materials.size(), nullptr);
      for (size_t i = 0; i < d_.nodes.size(); ++i) createNode(i);
      addDefaults();
      check(zvrContextSetScene(context_, scene_), "making the scene the context's scene");
      recordGroupsAndAnimations();
      return scene_;
    } catch (...) {
      // Nothing half-made stays behind: the caller sees either a whole scene or none.
      for (auto it = created_->rbegin(); it != created_->rend(); ++it) zvrObjectDelete(it->handle);
      created_->clear();
      if (scene_) zvrObjectDelete(scene_);
      throw;
    }
  }

 private:
  void check(ZvrStatus status, const std::string& what) {
    if (status == ZVR_SUCCESS) return;
    const std::string core = lastCoreError(context_);
    throw CoreCallError(status, file_ + ": " + what + " failed" + (core.empty() ? "" : ": " + core));
  }

  template <typename Handle>
  Handle keep(Handle h, ZvrObjectType kind) {
    created_->push_back({h, context_, kind});
    return h;
  }

  ZvrImage image(int index, bool srgb) {
    const auto key = std::make_pair(index, srgb);
    const auto found = images_.find(key);
    if (found != images_.end()) return found->second;
    const Image& img = d_.images.at(size_t(index));
    ZvrImage handle = nullptr;
    check(zvrContextCreateImageFromMemory(context_, img.encoded.data(), img.encoded.size(),
                                          srgb ? ZVR_IMAGE_COLORSPACE_SRGB : ZVR_IMAGE_COLORSPACE_LINEAR, &handle),
          "decoding image " + std::to_string(index) + (img.name.empty() ? "" : " \"" + img.name + "\""));
    keep(handle, ZVR_OBJECT_IMAGE);
    if (!img.name.empty()) zvrObjectSetName(handle, img.name.c_str());
    images_[key] = handle;
    return handle;
  }

  ZvrMaterialNode material(int index) {
    if (index < 0) return nullptr;
    if (materials_[index]) return materials_[index];
    const Material& m = d_.materials[index];
    const std::string what = "setting up material " + std::to_string(index);
    ZvrMaterialNode node = nullptr;
    check(zvrMaterialSystemCreateNode(system_, ZVR_MATERIAL_NODE_PBR, &node), "creating material " + std::to_string(index));
    keep(node, ZVR_OBJECT_MATERIAL_NODE);
    if (!m.name.empty()) zvrObjectSetName(node, m.name.c_str());
    check(zvrMaterialNodeSetParameter4f(node, "base_color", m.baseColor[0], m.baseColor[1], m.baseColor[2], m.baseColor[3]), what);
    const std::pair<const char*, float> scalars[] = {
        {"metallic", m.metallic}, {"roughness", m.roughness}, {"normal_scale", m.normalScale},
        {"occlusion_strength", m.occlusionStrength}, {"emissive_strength", m.emissiveStrength},
        {"alpha_cutoff", m.alphaCutoff}, {"ior", m.ior}, {"transmission", m.transmission}, {"thickness", m.thickness},
        {"attenuation_distance", m.attenuationDistance}, {"clearcoat", m.clearcoat},
        {"clearcoat_roughness", m.clearcoatRoughness}, {"clearcoat_normal_scale", m.clearcoatNormalScale},
        {"specular", m.specular}, {"sheen_roughness", m.sheenRoughness}};
    for (const auto& [name, value] : scalars) check(zvrMaterialNodeSetParameter1f(node, name, value), what + " (" + name + ")");
    const std::pair<const char*, const std::array<float, 3>*> colours[] = {
        {"emissive", &m.emissive}, {"attenuation_color", &m.attenuationColor},
        {"specular_color", &m.specularColor}, {"sheen_color", &m.sheenColor}};
    for (const auto& [name, c] : colours)
      check(zvrMaterialNodeSetParameter3f(node, name, (*c)[0], (*c)[1], (*c)[2]), what + " (" + name + ")");
    check(zvrMaterialNodeSetParameter1u(node, "alpha_mode", m.alphaMode), what + " (alpha_mode)");
    check(zvrMaterialNodeSetParameter1u(node, "double_sided", m.doubleSided), what + " (double_sided)");
    check(zvrMaterialNodeSetParameter1u(node, "unlit", m.unlit), what + " (unlit)");
    check(zvrMaterialNodeSetParameter1u(node, "material_id", uint32_t(index)), what + " (material_id)");
    for (size_t s = 0; s < kTextureSlotCount; ++s) {
      const TextureRef& t = m.textures[s];
      if (t.image < 0) continue;
      const TextureSlot slot = TextureSlot(s);
      ZvrTextureSlot sampling{};
      sampling.texcoord = t.texcoord;
      sampling.wrapS = t.wrapS;
      sampling.wrapT = t.wrapT;
      sampling.magFilter = t.magFilter;
      sampling.minFilter = t.minFilter;
      sampling.offset[0] = t.offset[0];
      sampling.offset[1] = t.offset[1];
      sampling.rotation = t.rotation;
      sampling.scale[0] = t.scale[0];
      sampling.scale[1] = t.scale[1];
      check(zvrMaterialNodeSetTexture(node, textureSlotName(slot), image(t.image, textureSlotIsSrgb(slot)), &sampling),
            what + " (texture " + textureSlotName(slot) + ")");
    }
    materials_[index] = node;
    return node;
  }

  void createNode(size_t index) {
    const Node& n = d_.nodes[index];
    if (n.mesh >= 0) {
      const Mesh& mesh = d_.meshes[n.mesh];
      for (size_t p = 0; p < mesh.primitives.size(); ++p) createShape(n, mesh, p);
    }
    if (n.camera >= 0) createCamera(n, d_.cameras[n.camera]);
    if (n.light >= 0) createLight(n, d_.lights[n.light]);
  }

  void createShape(const Node& n, const Mesh& mesh, size_t p) {
    const Primitive& prim = mesh.primitives[p];
    ZvrMeshDesc desc{};
    desc.positions = prim.positions.data();
    desc.normals = prim.normals.empty() ? nullptr : prim.normals.data();
    desc.tangents = prim.tangents.empty() ? nullptr : prim.tangents.data();
    desc.texcoords0 = prim.texcoords0.empty() ? nullptr : prim.texcoords0.data();
    desc.texcoords1 = prim.texcoords1.empty() ? nullptr : prim.texcoords1.data();
    desc.colors = prim.colors.empty() ? nullptr : prim.colors.data();
    desc.vertexCount = prim.vertexCount();
    desc.indices = prim.indices.data();
    desc.indexCount = prim.indices.size();
    const std::string what = "creating mesh " + std::to_string(mesh.sourceIndex) + " primitive " + std::to_string(p) +
                             " of group \"" + n.name + "\"";
    ZvrShape shape = nullptr;
    check(zvrContextCreateMesh(context_, &desc, &shape), what);
    keep(shape, ZVR_OBJECT_SHAPE);
    const std::string name = mesh.primitives.size() == 1
                                 ? n.name
                                 : (mesh.name.empty() ? "mesh" + std::to_string(mesh.sourceIndex) : mesh.name) + "_" + std::to_string(p);
    check(zvrObjectSetName(shape, name.c_str()), what);
    check(zvrShapeSetMaterial(shape, material(prim.material)), what);
    if (prim.material >= 0 && d_.materials[prim.material].lightGroup >= 0)
      check(zvrShapeSetLightGroup(shape, d_.materials[prim.material].lightGroup), what);
    check(zvrShapeSetObjectId(shape, uint32_t(result_->shapes.size())), what);
    check(zvrShapeSetMeshId(shape, mesh.sourceIndex), what);
    check(zvrShapeSetGroupId(shape, n.sourceIndex), what);
    if (n.catcher) check(zvrShapeSetCatcher(shape, n.catcher), what);
    check(zvrSceneAttachShape(scene_, shape), what);
    result_->shapes.push_back(shape);
    result_->parentGroups[shape] = n.name;
  }

  void createCamera(const Node& n, const Camera& c) {
    const std::string what = "creating the camera of group \"" + n.name + "\"";
    ZvrCamera camera = nullptr;
    check(zvrContextCreateCamera(context_, &camera), what);
    keep(camera, ZVR_OBJECT_CAMERA);
    check(zvrObjectSetName(camera, (c.name.empty() ? n.name : c.name).c_str()), what);
    check(zvrCameraSetType(camera, c.orthographic ? ZVR_CAMERA_ORTHOGRAPHIC : ZVR_CAMERA_PERSPECTIVE), what);
    if (c.orthographic) check(zvrCameraSetOrthoHeight(camera, 2.f * c.ymag), what);
    else check(zvrCameraSetFovY(camera, c.yfov), what);
    const float farPlane = c.zfar > c.znear ? c.zfar : std::numeric_limits<float>::max();
    check(zvrCameraSetClipping(camera, c.znear, farPlane), what);
    if (result_->cameras.empty()) check(zvrSceneSetCamera(scene_, camera), what);
    result_->cameras.push_back(camera);
    result_->parentGroups[camera] = n.name;
  }

  void createLight(const Node& n, const Light& l) {
    const std::string what = "creating the light of group \"" + n.name + "\"";
    ZvrLight light = nullptr;
    check(zvrContextCreateLight(context_, static_cast<uint32_t>(l.type), &light), what);
    keep(light, ZVR_OBJECT_LIGHT);
    check(zvrObjectSetName(light, (l.name.empty() ? n.name : l.name).c_str()), what);
    check(zvrLightSetRadiance(light, l.color[0] * l.intensity, l.color[1] * l.intensity, l.color[2] * l.intensity), what);
    if (l.type == LightType::Spot) check(zvrLightSetSpotCone(light, l.innerCone, l.outerCone), what);
    if (l.lightGroup >= 0) check(zvrLightSetGroup(light, l.lightGroup), what);
    check(zvrSceneAttachLight(scene_, light), what);
    result_->lights.push_back(light);
    result_->parentGroups[light] = n.name;
  }

  void addDefaults() {
    if (result_->cameras.empty()) {
      // No group: the program leaves it where it is placed here, in world space.
      const Framing f = frameBounds(sceneBounds(d_, worldMatrices(d_)));
      const std::string what = "creating a camera for a scene without one";
      ZvrCamera camera = nullptr;
      check(zvrContextCreateCamera(context_, &camera), what);
      keep(camera, ZVR_OBJECT_CAMERA);
      check(zvrObjectSetName(camera, "default camera"), what);
      check(zvrCameraSetType(camera, ZVR_CAMERA_PERSPECTIVE), what);
      check(zvrCameraSetFovY(camera, f.fovY), what);
      check(zvrCameraSetClipping(camera, f.nearPlane, f.farPlane), what);
      check(zvrCameraLookAt(camera, f.eye[0], f.eye[1], f.eye[2], f.target[0], f.target[1], f.target[2], f.up[0], f.up[1], f.up[2]),
            what);
      check(zvrSceneSetCamera(scene_, camera), what);
      result_->cameras.push_back(camera);
    }
    if (d_.environment.present) {
      // Owned by the scene and deleted with it: not one of the imported objects to delete.
      const Environment& e = d_.environment;
      const std::string what = "creating the scene's environment";
      ZvrLight light = nullptr;
      check(zvrSceneCreateEnvironmentLight(scene_, &light), what);
      check(zvrObjectSetName(light, "environment"), what);
      check(zvrLightSetRadiance(light, e.color[0], e.color[1], e.color[2]), what);
      check(zvrLightSetIntensity(light, e.intensity), what);
      check(zvrLightSetRotation(light, e.rotation), what);
      if (e.image >= 0) check(zvrLightSetImage(light, image(e.image, false)), what);
    } else if (!sceneHasLightOrEmission(d_)) {
      const std::string what = "creating an environment light for a scene without light";
      ZvrLight light = nullptr;
      check(zvrContextCreateLight(context_, ZVR_LIGHT_ENVIRONMENT, &light), what);
      keep(light, ZVR_OBJECT_LIGHT);
      check(zvrObjectSetName(light, "default environment"), what);
      check(zvrLightSetRadiance(light, 1.f, 1.f, 1.f), what);
      check(zvrSceneAttachLight(scene_, light), what);
      result_->lights.push_back(light);
    }
  }

  void recordGroupsAndAnimations() {
    for (const Node& n : d_.nodes)
      result_->groups[n.name] = {n.parent < 0 ? std::string() : d_.nodes[n.parent].name, n.local};
    result_->animations = d_.animations;
    for (const AnimationChannel& a : d_.animations) result_->animationGroupNames.push_back(d_.nodes[a.node].name);
  }

  const SceneDescription& d_;
  const std::string file_;
  ZvrContext context_;
  ZvrMaterialSystem system_;
  ImportResult* result_;
  std::vector<CreatedObject>* created_;
  ZvrScene scene_ = nullptr;
  std::vector<ZvrMaterialNode> materials_;
  std::map<std::pair<int, bool>, ZvrImage> images_;
};

}  // namespace

ZvrScene instantiateScene(const SceneDescription& scene, const std::string& file, ZvrContext context,
                          ZvrMaterialSystem materialSystem, ImportResult* result, std::vector<CreatedObject>* created) {
  return Instantiator(scene, file, context, materialSystem, result, created).run();
}

}  // namespace zvr::loadstore
