#include "render/post_effects.h"

#include <algorithm>
#include <cstring>

#include "program/failure.h"

namespace zvrs {

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
ZvrStatus addOwnedEffect(ZvrContext context, uint32_t type, std::vector<PostEffectEntry>& effects) {
  PostEffectEntry entry;
  if (zvrContextCreatePostEffect(context, type, &entry.handle) != ZVR_SUCCESS) return ZVR_SUCCESS;
  const ZvrStatus status = zvrContextAttachPostEffect(context, entry.handle);
  if (REPORT_FAILURE(status, context, "ZVR posteffect attachment failed.")) return status;
  entry.owned = true;
  effects.push_back(entry);
  return ZVR_SUCCESS;
}

}  // namespace

ZvrStatus setupPostEffects(const ConfigDocument& /*document*/, ZvrContext context, const RenderSettings& settings,
                           std::vector<PostEffectEntry>& effects) {
  uint32_t count = 0;
  ZvrStatus status = zvrContextGetAttachedPostEffectCount(context, &count);
  if (REPORT_FAILURE(status, context, "ZVR posteffect getting attached posteffect count failed.")) return status;
  effects.assign(count, PostEffectEntry());
  for (uint32_t i = 0; i < count; ++i) {
    status = zvrContextGetAttachedPostEffect(context, i, &effects[i].handle);
    if (REPORT_FAILURE(status, context, "ZVR post effect getting attached posteffect failed.")) return status;
  }

  bool toneOrGamma = false;
  bool normalization = false;
  for (const PostEffectEntry& entry : effects) {
    const uint32_t type = readPostEffectType(entry.handle, status);
    if (REPORT_FAILURE(status, context, "ZVR posteffect getting type failed.")) return status;
    if (type == ZVR_POST_EFFECT_TONE_MAP || type == ZVR_POST_EFFECT_SIMPLE_TONEMAP ||
        type == ZVR_POST_EFFECT_GAMMA_CORRECTION) {
      toneOrGamma = true;
    }
    if (type == ZVR_POST_EFFECT_NORMALIZATION) normalization = true;
  }

  if (!normalization) {
    status = addOwnedEffect(context, ZVR_POST_EFFECT_NORMALIZATION, effects);
    if (status != ZVR_SUCCESS) return status;
  }
  if (toneOrGamma || !settings.gammaGiven) return ZVR_SUCCESS;
  return addOwnedEffect(context, ZVR_POST_EFFECT_GAMMA_CORRECTION, effects);
}

}  // namespace zvrs
