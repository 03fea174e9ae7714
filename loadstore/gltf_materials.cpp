#include "loadstore/gltf_materials.h"

#include <tiny_gltf.h>

#include "loadstore/light_group_extras.h"
#include "loadstore/load_error.h"

namespace zvr::loadstore {

namespace {

class MaterialReader {
 public:
  MaterialReader(const tinygltf::Model& model, const std::string& file) : model_(model), file_(file) {}

  Material read(size_t index) {
    const tinygltf::Material& m = model_.materials[index];
    where_ = "material " + std::to_string(index);
    Material out;
    out.name = m.name;
    const auto& pbr = m.pbrMetallicRoughness;
    if (pbr.baseColorFactor.size() == 4)
      for (int i = 0; i < 4; ++i) out.baseColor[i] = finite(pbr.baseColorFactor[i]);
    out.metallic = finite(pbr.metallicFactor);
    out.roughness = finite(pbr.roughnessFactor);
    setTexture(&out, TextureSlot::BaseColor, pbr.baseColorTexture.index, pbr.baseColorTexture.texCoord,
               pbr.baseColorTexture.extensions);
    setTexture(&out, TextureSlot::MetallicRoughness, pbr.metallicRoughnessTexture.index,
               pbr.metallicRoughnessTexture.texCoord, pbr.metallicRoughnessTexture.extensions);
    setTexture(&out, TextureSlot::Normal, m.normalTexture.index, m.normalTexture.texCoord, m.normalTexture.extensions);
    out.normalScale = finite(m.normalTexture.scale);
    setTexture(&out, TextureSlot::Occlusion, m.occlusionTexture.index, m.occlusionTexture.texCoord,
               m.occlusionTexture.extensions);
    out.occlusionStrength = finite(m.occlusionTexture.strength);
    setTexture(&out, TextureSlot::Emissive, m.emissiveTexture.index, m.emissiveTexture.texCoord, m.emissiveTexture.extensions);
    if (m.emissiveFactor.size() == 3)
      for (int i = 0; i < 3; ++i) out.emissive[i] = finite(m.emissiveFactor[i]);
    if (m.alphaMode == "MASK") out.alphaMode = 1;
    else if (m.alphaMode == "BLEND") out.alphaMode = 2;
    else if (!m.alphaMode.empty() && m.alphaMode != "OPAQUE") fail("has an unknown alpha mode \"" + m.alphaMode + "\"");
    out.alphaCutoff = finite(m.alphaCutoff);
    out.doubleSided = m.doubleSided;
    readExtensions(m.extensions, &out);
    std::string problem;
    out.lightGroup = lightGroupFromExtras(m.extras, &problem);
    if (!problem.empty()) fail(problem);
    return out;
  }

 private:
  [[noreturn]] void fail(const std::string& problem) const { throw LoadError(file_, where_ + " " + problem); }

  float finite(double v) const {
    if (!std::isfinite(v)) fail("has a factor that is not a finite number");
    return float(v);
  }

  float number(const tinygltf::Value& object, const char* key, float fallback) const {
    if (!object.IsObject() || !object.Has(key)) return fallback;
    const tinygltf::Value& v = object.Get(key);
    if (!v.IsNumber()) fail(std::string("has a \"") + key + "\" that is not a number");
    return finite(v.GetNumberAsDouble());
  }

  template <size_t N>
  void numbers(const tinygltf::Value& object, const char* key, std::array<float, N>* out) const {
    if (!object.IsObject() || !object.Has(key)) return;
    const tinygltf::Value& v = object.Get(key);
    if (!v.IsArray() || v.ArrayLen() != N) fail(std::string("has a \"") + key + "\" of the wrong length");
    for (size_t i = 0; i < N; ++i) {
      if (!v.Get(int(i)).IsNumber()) fail(std::string("has a \"") + key + "\" that is not numbers");
      (*out)[i] = finite(v.Get(int(i)).GetNumberAsDouble());
    }
  }

  void setTexture(Material* out, TextureSlot slot, int textureIndex, int texCoord, const tinygltf::ExtensionMap& ext) {
    if (textureIndex < 0) return;
    if (size_t(textureIndex) >= model_.textures.size())
      fail("names texture " + std::to_string(textureIndex) + ", which does not exist");
    const tinygltf::Texture& texture = model_.textures[textureIndex];
    if (texture.source < 0 || size_t(texture.source) >= model_.images.size())
      fail("uses texture " + std::to_string(textureIndex) + ", whose image does not exist");
    TextureRef& ref = out->texture(slot);
    ref.image = texture.source;
    if (texCoord < 0 || texCoord > 1) fail("uses UV set " + std::to_string(texCoord) + "; only sets 0 and 1 exist");
    ref.texcoord = uint32_t(texCoord);
    if (texture.sampler >= 0) {
      if (size_t(texture.sampler) >= model_.samplers.size())
        fail("uses texture " + std::to_string(textureIndex) + ", whose sampler does not exist");
      const tinygltf::Sampler& s = model_.samplers[texture.sampler];
      ref.wrapS = wrapMode(s.wrapS);
      ref.wrapT = wrapMode(s.wrapT);
      ref.magFilter = s.magFilter == TINYGLTF_TEXTURE_FILTER_NEAREST ? 1 : 0;
      ref.minFilter = (s.minFilter == TINYGLTF_TEXTURE_FILTER_NEAREST ||
                       s.minFilter == TINYGLTF_TEXTURE_FILTER_NEAREST_MIPMAP_NEAREST) ? 1 : 0;
    }
    const auto transform = ext.find("KHR_texture_transform");
    if (transform != ext.end()) {
      numbers(transform->second, "offset", &ref.offset);
      ref.rotation = number(transform->second, "rotation", 0.f);
      numbers(transform->second, "scale", &ref.scale);
      const float uv = number(transform->second, "texCoord", float(ref.texcoord));
      if (uv != 0.f && uv != 1.f) fail("has a texture transform onto a UV set other than 0 and 1");
      ref.texcoord = uint32_t(uv);
    }
  }

  static uint32_t wrapMode(int mode) {
    if (mode == TINYGLTF_TEXTURE_WRAP_CLAMP_TO_EDGE) return 1;
    if (mode == TINYGLTF_TEXTURE_WRAP_MIRRORED_REPEAT) return 2;
    return 0;
  }

  // Extension textures arrive as plain JSON objects rather than typed texture infos.
  void setTextureFromValue(Material* out, TextureSlot slot, const tinygltf::Value& object, const char* key) {
    if (!object.IsObject() || !object.Has(key)) return;
    const tinygltf::Value& info = object.Get(key);
    if (!info.IsObject() || !info.Has("index") || !info.Get("index").IsInt())
      fail(std::string("has a \"") + key + "\" without a texture index");
    tinygltf::ExtensionMap ext;
    if (info.Has("extensions") && info.Get("extensions").IsObject()) {
      const tinygltf::Value& e = info.Get("extensions");
      if (e.Has("KHR_texture_transform")) ext["KHR_texture_transform"] = e.Get("KHR_texture_transform");
    }
    const int texCoord = info.Has("texCoord") && info.Get("texCoord").IsInt() ? info.Get("texCoord").GetNumberAsInt() : 0;
    setTexture(out, slot, info.Get("index").GetNumberAsInt(), texCoord, ext);
  }

  void readExtensions(const tinygltf::ExtensionMap& ext, Material* out) {
    auto find = [&](const char* name) -> const tinygltf::Value* {
      const auto it = ext.find(name);
      return it == ext.end() ? nullptr : &it->second;
    };
    if (const auto* e = find("KHR_materials_emissive_strength")) out->emissiveStrength = number(*e, "emissiveStrength", 1.f);
    if (const auto* e = find("KHR_materials_transmission")) {
      out->transmission = number(*e, "transmissionFactor", 0.f);
      setTextureFromValue(out, TextureSlot::Transmission, *e, "transmissionTexture");
    }
    if (const auto* e = find("KHR_materials_ior")) out->ior = number(*e, "ior", 1.5f);
    if (const auto* e = find("KHR_materials_volume")) {
      out->thickness = number(*e, "thicknessFactor", 0.f);
      setTextureFromValue(out, TextureSlot::Thickness, *e, "thicknessTexture");
      out->attenuationDistance = number(*e, "attenuationDistance", 0.f);
      numbers(*e, "attenuationColor", &out->attenuationColor);
    }
    if (const auto* e = find("KHR_materials_clearcoat")) {
      out->clearcoat = number(*e, "clearcoatFactor", 0.f);
      out->clearcoatRoughness = number(*e, "clearcoatRoughnessFactor", 0.f);
      setTextureFromValue(out, TextureSlot::Clearcoat, *e, "clearcoatTexture");
      setTextureFromValue(out, TextureSlot::ClearcoatRoughness, *e, "clearcoatRoughnessTexture");
      setTextureFromValue(out, TextureSlot::ClearcoatNormal, *e, "clearcoatNormalTexture");
      if (e->Has("clearcoatNormalTexture")) out->clearcoatNormalScale = number(e->Get("clearcoatNormalTexture"), "scale", 1.f);
    }
    if (const auto* e = find("KHR_materials_specular")) {
      out->specular = number(*e, "specularFactor", 1.f);
      numbers(*e, "specularColorFactor", &out->specularColor);
      setTextureFromValue(out, TextureSlot::Specular, *e, "specularTexture");
      setTextureFromValue(out, TextureSlot::SpecularColor, *e, "specularColorTexture");
    }
    if (const auto* e = find("KHR_materials_sheen")) {
      numbers(*e, "sheenColorFactor", &out->sheenColor);
      out->sheenRoughness = number(*e, "sheenRoughnessFactor", 0.f);
      setTextureFromValue(out, TextureSlot::SheenColor, *e, "sheenColorTexture");
      setTextureFromValue(out, TextureSlot::SheenRoughness, *e, "sheenRoughnessTexture");
    }
    if (find("KHR_materials_unlit")) out->unlit = true;
  }

  const tinygltf::Model& model_;
  const std::string& file_;
  std::string where_;
};

}  // namespace

void readGltfMaterials(const tinygltf::Model& model, const std::string& file, SceneDescription* scene) {
  MaterialReader reader(model, file);
  scene->materials.reserve(model.materials.size());
  for (size_t i = 0; i < model.materials.size(); ++i) scene->materials.push_back(reader.read(i));
}

}  // namespace zvr::loadstore
