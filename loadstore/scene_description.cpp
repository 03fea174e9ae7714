#include "loadstore/scene_description.h"

#include <cstring>

namespace zvr::loadstore {

namespace {
constexpr const char* kSlotNames[kTextureSlotCount] = {
    "base_color", "metallic_roughness", "normal", "occlusion", "emissive", "transmission", "thickness",
    "clearcoat", "clearcoat_roughness", "clearcoat_normal", "specular", "specular_color", "sheen_color",
    "sheen_roughness"};
}

const char* textureSlotName(TextureSlot slot) { return kSlotNames[static_cast<size_t>(slot)]; }

bool textureSlotIsSrgb(TextureSlot slot) {
  return slot == TextureSlot::BaseColor || slot == TextureSlot::Emissive || slot == TextureSlot::SpecularColor ||
         slot == TextureSlot::SheenColor;
}

bool textureSlotFromName(const std::string& name, TextureSlot* out) {
  for (size_t i = 0; i < kTextureSlotCount; ++i) {
    if (name == kSlotNames[i]) {
      *out = static_cast<TextureSlot>(i);
      return true;
    }
  }
  return false;
}

bool Material::emits() const {
  if (emissiveStrength <= 0.f) return false;
  const bool colour = emissive[0] > 0.f || emissive[1] > 0.f || emissive[2] > 0.f;
  return colour;  // an emissive texture is multiplied by this factor, so it alone cannot emit
}

}  // namespace zvr::loadstore
