// AOV ids the kernel fills, and what each plug-in family can offer.
#pragma once

#include <cstdint>
#include <string>

namespace zvr::kernel {

enum Aov : uint32_t {
  kAovColor = 0, kAovOpacity = 1, kAovWorldCoordinate = 2, kAovUv = 3, kAovMaterialId = 4, kAovNormalGeom = 5,
  kAovNormal = 6, kAovDepth = 7, kAovObjectId = 8, kAovGroupId = 9, kAovBackground = 11, kAovEmission = 12,
  kAovVelocity = 13, kAovDirectIllumination = 14, kAovIndirectIllumination = 15, kAovAo = 16, kAovDirectDiffuse = 17,
  kAovDirectReflect = 18, kAovIndirectDiffuse = 19, kAovIndirectReflect = 20, kAovRefract = 21, kAovVolume = 22,
  kAovLightGroup0 = 23, kAovAlbedoDiffuse = 27, kAovVariance = 28, kAovLpe0 = 32, kAovCameraNormal = 41, kAovSss = 43,
  kAovLightGroup4 = 80, kAovMeshId = 96,
  kAovShadowCatcher = 10, kAovReflectionCatcher = 30, kAovMattePass = 42,
  kAovCryptoMaterial0 = 48, kAovCryptoObject0 = 56, kAovDeepColor = 64
};

// Rank layers per cryptomatte type: 6 layers of two (id, coverage) pairs.
constexpr uint32_t kCryptoRankLayers = 6;
inline bool isCryptomatteAov(uint32_t aov) {
  return (aov >= kAovCryptoMaterial0 && aov < kAovCryptoMaterial0 + kCryptoRankLayers) ||
         (aov >= kAovCryptoObject0 && aov < kAovCryptoObject0 + kCryptoRankLayers);
}

// Whether the full path tracer fills `aov`; `why` explains a refusal.
bool pathTracerSupportsAov(uint32_t aov, std::string* why);
// Whether the preview fills `aov`.
bool previewSupportsAov(uint32_t aov, std::string* why);

}  // namespace zvr::kernel
