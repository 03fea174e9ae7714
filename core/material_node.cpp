#include <cmath>
#include <cstring>

#include "core/failure.h"
#include "core/info_reply.h"
#include "core/scene_objects.h"

namespace zvr::core {
namespace {

struct FloatParameter {
  const char* name;
  int count;
  float* (*field)(zvr::MaterialData&);
};

#define ZVR_FIELD(expr) [](zvr::MaterialData& d) -> float* { return expr; }
const FloatParameter kFloatParameters[] = {
    {"base_color", 4, ZVR_FIELD(d.baseColor)},
    {"metallic", 1, ZVR_FIELD(&d.metallic)},
    {"roughness", 1, ZVR_FIELD(&d.roughness)},
    {"normal_scale", 1, ZVR_FIELD(&d.normalScale)},
    {"occlusion_strength", 1, ZVR_FIELD(&d.occlusionStrength)},
    {"emissive", 3, ZVR_FIELD(d.emissive)},
    {"attenuation_color", 3, ZVR_FIELD(d.attenuationColor)},
    {"specular_color", 3, ZVR_FIELD(d.specularColor)},
    {"sheen_color", 3, ZVR_FIELD(d.sheenColor)},
    {"emissive_strength", 1, ZVR_FIELD(&d.emissiveStrength)},
    {"alpha_cutoff", 1, ZVR_FIELD(&d.alphaCutoff)},
    {"ior", 1, ZVR_FIELD(&d.ior)},
    {"transmission", 1, ZVR_FIELD(&d.transmission)},
    {"thickness", 1, ZVR_FIELD(&d.thickness)},
    {"attenuation_distance", 1, ZVR_FIELD(&d.attenuationDistance)},
    {"clearcoat", 1, ZVR_FIELD(&d.clearcoat)},
    {"clearcoat_roughness", 1, ZVR_FIELD(&d.clearcoatRoughness)},
    {"clearcoat_normal_scale", 1, ZVR_FIELD(&d.clearcoatNormalScale)},
    {"specular", 1, ZVR_FIELD(&d.specular)},
    {"sheen_roughness", 1, ZVR_FIELD(&d.sheenRoughness)},
};
#undef ZVR_FIELD

const char* const kUintParameters[] = {"alpha_mode", "double_sided", "unlit", "material_id"};

struct TextureParameter {
  const char* name;
  zvr::TextureBinding zvr::MaterialData::*binding;
};
const TextureParameter kTextures[] = {
    {"base_color", &zvr::MaterialData::baseColorTexture},
    {"metallic_roughness", &zvr::MaterialData::metallicRoughnessTexture},
    {"normal", &zvr::MaterialData::normalTexture},
    {"occlusion", &zvr::MaterialData::occlusionTexture},
    {"emissive", &zvr::MaterialData::emissiveTexture},
    {"transmission", &zvr::MaterialData::transmissionTexture},
    {"thickness", &zvr::MaterialData::thicknessTexture},
    {"clearcoat", &zvr::MaterialData::clearcoatTexture},
    {"clearcoat_roughness", &zvr::MaterialData::clearcoatRoughnessTexture},
    {"clearcoat_normal", &zvr::MaterialData::clearcoatNormalTexture},
    {"specular", &zvr::MaterialData::specularTexture},
    {"specular_color", &zvr::MaterialData::specularColorTexture},
    {"sheen_color", &zvr::MaterialData::sheenColorTexture},
    {"sheen_roughness", &zvr::MaterialData::sheenRoughnessTexture},
};

const FloatParameter* findFloat(const std::string& name) {
  for (const auto& p : kFloatParameters)
    if (name == p.name) return &p;
  return nullptr;
}

bool isUint(const std::string& name) {
  for (const char* p : kUintParameters)
    if (name == p) return true;
  return false;
}

const TextureParameter* findTexture(const std::string& name) {
  for (const auto& t : kTextures)
    if (name == t.name) return &t;
  return nullptr;
}

std::string checkedName(const char* name) {
  if (!name) fail(ZVR_ERROR_INVALID_ARGUMENT, "material parameter name is null");
  return name;
}

}  // namespace

MaterialNode::MaterialNode(Context* context, MaterialSystem* system)
    : Object(ZVR_OBJECT_MATERIAL_NODE, context), system(system) {
  data_.id = nextDataId();
}

void MaterialNode::setParameter(const char* rawName, const float* values, int count) {
  const std::string name = checkedName(rawName);
  const FloatParameter* p = findFloat(name);
  if (!p) {
    if (isUint(name)) fail(ZVR_ERROR_INVALID_ARGUMENT, "material parameter \"" + name + "\" takes an unsigned integer (1u)");
    fail(ZVR_ERROR_UNKNOWN_KEY, "material node has no parameter \"" + name + "\"");
  }
  if (p->count != count)
    fail(ZVR_ERROR_INVALID_ARGUMENT, "material parameter \"" + name + "\" takes " + std::to_string(p->count) +
                                         " floats, not " + std::to_string(count));
  for (int i = 0; i < count; ++i)
    if (!std::isfinite(values[i]))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "material parameter \"" + name + "\": value " + std::to_string(i) + " is not finite");
  std::memcpy(p->field(data_), values, sizeof(float) * count);
  snapshot_.reset();
}

void MaterialNode::setParameterUint(const char* rawName, uint32_t value) {
  const std::string name = checkedName(rawName);
  if (!isUint(name)) {
    if (const FloatParameter* p = findFloat(name))
      fail(ZVR_ERROR_INVALID_ARGUMENT,
           "material parameter \"" + name + "\" takes " + std::to_string(p->count) + " floats, not an unsigned integer");
    fail(ZVR_ERROR_UNKNOWN_KEY, "material node has no parameter \"" + name + "\"");
  }
  if (name == "alpha_mode") {
    if (value > ZVR_ALPHA_BLEND) fail(ZVR_ERROR_INVALID_ARGUMENT, "alpha_mode " + std::to_string(value) + " is not 0, 1 or 2");
    data_.alphaMode = value;
  } else if (name == "double_sided") {
    data_.doubleSided = value != 0;
  } else if (name == "unlit") {
    data_.unlit = value != 0;
  } else {
    data_.materialId = value;
  }
  snapshot_.reset();
}

void MaterialNode::setTexture(const char* rawSlot, Image* image, const ZvrTextureSlot* sampling) {
  const std::string slot = checkedName(rawSlot);
  const TextureParameter* t = findTexture(slot);
  if (!t) fail(ZVR_ERROR_UNKNOWN_KEY, "material node has no texture slot \"" + slot + "\"");
  zvr::TextureBinding binding;
  if (image) {
    binding.image = image->data;
    if (sampling) {
      if (sampling->texcoord > 1) fail(ZVR_ERROR_INVALID_ARGUMENT, "texture slot \"" + slot + "\": texcoord must be 0 or 1");
      if (sampling->wrapS > ZVR_WRAP_MIRROR || sampling->wrapT > ZVR_WRAP_MIRROR)
        fail(ZVR_ERROR_INVALID_ARGUMENT, "texture slot \"" + slot + "\": unknown wrap mode");
      if (sampling->magFilter > ZVR_FILTER_NEAREST || sampling->minFilter > ZVR_FILTER_NEAREST)
        fail(ZVR_ERROR_INVALID_ARGUMENT, "texture slot \"" + slot + "\": unknown filter mode");
      binding.texcoord = sampling->texcoord;
      binding.wrapS = sampling->wrapS;
      binding.wrapT = sampling->wrapT;
      binding.magFilter = sampling->magFilter;
      binding.minFilter = sampling->minFilter;
      binding.offset[0] = sampling->offset[0];
      binding.offset[1] = sampling->offset[1];
      binding.rotation = sampling->rotation;
      binding.scale[0] = sampling->scale[0];
      binding.scale[1] = sampling->scale[1];
    }
  }
  data_.*(t->binding) = binding;
  bool found = false;
  for (auto& entry : slotImages_)
    if (entry.first == slot) {
      entry.second = image;
      found = true;
    }
  if (!found) slotImages_.emplace_back(slot, image);
  snapshot_.reset();
}

void MaterialNode::forgetImage(Image* image) {
  for (auto& entry : slotImages_)
    if (entry.second == image) entry.second = nullptr;  // the pixels stay shared with the material
}

void MaterialNode::getParameter(const char* rawName, size_t size, void* out, size_t* outSize) const {
  const std::string name = checkedName(rawName);
  zvr::MaterialData& data = const_cast<zvr::MaterialData&>(data_);  // accessors are shared with the setters
  if (const FloatParameter* p = findFloat(name)) {
    // A name that is both a factor and a texture slot answers the texture when asked for 8 bytes.
    if (!(size == sizeof(ZvrImage) && findTexture(name))) {
      replyBytes("material parameter \"" + name + "\"", p->field(data), sizeof(float) * p->count, size, out, outSize);
      return;
    }
  }
  if (isUint(name)) {
    uint32_t value = name == "alpha_mode" ? data_.alphaMode
                     : name == "double_sided" ? uint32_t(data_.doubleSided)
                     : name == "unlit"        ? uint32_t(data_.unlit)
                                              : data_.materialId;
    replyValue("material parameter \"" + name + "\"", value, size, out, outSize);
    return;
  }
  if (findTexture(name)) {
    ZvrImage handle = nullptr;
    for (const auto& entry : slotImages_)
      if (entry.first == name && entry.second) handle = entry.second->handle();
    replyValue("texture slot \"" + name + "\"", handle, size, out, outSize);
    return;
  }
  fail(ZVR_ERROR_UNKNOWN_KEY, "material node has no parameter \"" + name + "\"");
}

std::shared_ptr<const zvr::MaterialData> MaterialNode::snapshot() {
  if (!snapshot_) snapshot_ = std::make_shared<const zvr::MaterialData>(data_);
  return snapshot_;
}

}  // namespace zvr::core
