#include "post_effects.h"

#include <algorithm>
#include <cstring>

#include "program/failure.h"

uint32_t readPostEffectType(ZvrPostEffect effect, ZvrStatus& status) {
  size_t size = 0;
  status = zvrPostEffectGetInfo(effect, ZVR_POST_EFFECT_TYPE, 0, nullptr, &size);
  if (status != ZVR_SUCCESS) return 0;
  std::vector<unsigned char> value(std::max<size_t>(size, sizeof(uint32_t)), 0);
  status = zvrPostEffectGetInfo(effect, ZVR_POST_EFFECT_TYPE, size, value.data(), nullptr);
  uint32_t type = 0;
  std::memcpy(&type, value.data(), sizeof(type));
  return type;
}

const char* postEffectTypeName(uint32_t type) {
  static const char* const names[] = {"tonemap", "whitebalance", "simpletonemap", "normalization",
                                      "gammacorrection", "bloom"};
  return type < 6 ? names[type] : nullptr;
}

namespace {

// Creates and attaches an effect of `type`; a refused creation is passed over in silence.
void addOwnedEffect(ZvrContext context, uint32_t type, std::vector<PostEffectEntry>& effects) {
  PostEffectEntry entry;
  const ZvrStatus created = zvrContextCreatePostEffect(context, type, &entry.handle);
  if (created != ZVR_SUCCESS) return;
  CHECK_STATUS(created, context, "ZVR posteffect creation failed.", Critical);
  CHECK_STATUS(zvrContextAttachPostEffect(context, entry.handle), context, "ZVR posteffect attachment failed.",
               Critical);
  entry.owned = true;
  effects.push_back(entry);
}

}  // namespace

std::vector<PostEffectEntry> SetupPostEffects(const ConfigDocument& /*document*/, ZvrContext context,
                                              const RenderSettings& settings) {
  uint32_t count = 0;
  CHECK_STATUS(zvrContextGetAttachedPostEffectCount(context, &count), context,
               "ZVR posteffect getting attached posteffect count failed.", Critical);
  std::vector<PostEffectEntry> effects(count);
  for (uint32_t i = 0; i < count; ++i) {
    CHECK_STATUS(zvrContextGetAttachedPostEffect(context, i, &effects[i].handle), context,
                 "ZVR post effect getting attached posteffect failed.", Critical);
  }

  bool toneOrGamma = false;
  bool normalization = false;
  for (const PostEffectEntry& entry : effects) {
    size_t size = 0;
    CHECK_STATUS(zvrPostEffectGetInfo(entry.handle, ZVR_POST_EFFECT_TYPE, 0, nullptr, &size), context,
                 "ZVR posteffect getting type failed.", Critical);
    std::vector<unsigned char> value(std::max<size_t>(size, sizeof(uint32_t)), 0);
    CHECK_STATUS(zvrPostEffectGetInfo(entry.handle, ZVR_POST_EFFECT_TYPE, size, value.data(), nullptr), context,
                 "ZVR posteffect getting type failed.", Critical);
    uint32_t type = 0;
    std::memcpy(&type, value.data(), sizeof(type));
    if (type == ZVR_POST_EFFECT_TONE_MAP || type == ZVR_POST_EFFECT_SIMPLE_TONEMAP ||
        type == ZVR_POST_EFFECT_GAMMA_CORRECTION) {
      toneOrGamma = true;
    }
    if (type == ZVR_POST_EFFECT_NORMALIZATION) normalization = true;
  }

  if (!normalization) addOwnedEffect(context, ZVR_POST_EFFECT_NORMALIZATION, effects);
  if (toneOrGamma || !settings.gammaGiven) return effects;
  addOwnedEffect(context, ZVR_POST_EFFECT_GAMMA_CORRECTION, effects);
  return effects;
}
