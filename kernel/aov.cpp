#include "kernel/aov.h"

#include "kernel/light_paths.h"

namespace zvr::kernel {
namespace {

bool refuse(uint32_t aov, std::string* why, const std::string& text) {
  if (why) *why = "AOV " + std::to_string(aov) + " " + text;
  return false;
}

}  // namespace

bool pathTracerSupportsAov(uint32_t aov, std::string* why) {
  switch (aov) {
    case kAovColor: case kAovOpacity: case kAovWorldCoordinate: case kAovUv: case kAovMaterialId: case kAovNormalGeom:
    case kAovNormal: case kAovDepth: case kAovObjectId: case kAovGroupId: case kAovBackground: case kAovEmission:
    case kAovVelocity: case kAovDirectIllumination: case kAovIndirectIllumination: case kAovAo: case kAovDirectDiffuse:
    case kAovDirectReflect: case kAovIndirectDiffuse: case kAovIndirectReflect: case kAovRefract: case kAovVolume:
    case kAovAlbedoDiffuse: case kAovVariance: case kAovCameraNormal: case kAovSss: case kAovMeshId:
    case kAovShadowCatcher: case kAovReflectionCatcher: case kAovMattePass: case kAovDeepColor:
      return true;
  }
  if (isCryptomatteAov(aov) || isLpeAov(aov) || lightGroupOf(aov) >= 0) return true;
  return refuse(aov, why, "is not a known AOV id");
}

bool previewSupportsAov(uint32_t aov, std::string* why) {
  switch (aov) {
    case kAovColor: case kAovOpacity: case kAovDepth: case kAovNormal: case kAovNormalGeom: case kAovWorldCoordinate:
    case kAovUv: case kAovMaterialId: case kAovObjectId: case kAovMeshId: case kAovGroupId: case kAovAlbedoDiffuse:
    case kAovAo:
      return true;
  }
  std::string inner;
  if (!pathTracerSupportsAov(aov, &inner)) {
    if (why) *why = inner;
    return false;
  }
  return refuse(aov, why, "is not produced by the preview renderer; use a path-tracing plug-in for it");
}

}  // namespace zvr::kernel
