#include "kernel/film.h"

#include <algorithm>
#include <limits>

#include "kernel/aov.h"
#include "kernel/light_paths.h"

namespace zvr::kernel {

Film::Film(const std::vector<AovTarget>& targets, uint32_t width, uint32_t height, const std::vector<float>& indexColors)
    : width_(width), height_(height), indexColors_(indexColors) {
  for (const auto& t : targets) {
    // Variance and the cryptomatte ranks are not sums of samples; their own code fills them.
    if (!t.target || t.aov == kAovVariance || isCryptomatteAov(t.aov)) continue;
    slots_.push_back({t.aov, t.target, std::vector<float>(size_t(width) * height * 4)});
    if (t.target->isDeep() && !deepTarget_) {
      deepTarget_ = t.target;
      deepCounts_.assign(size_t(width) * height, 0);
      deepSamples_.resize(size_t(width) * height);
    }
  }
  color_.assign(size_t(width) * height * 4, 0);
}

void Film::clear() {
  for (auto& s : slots_) std::fill(s.data.begin(), s.data.end(), 0.0f);
  std::fill(color_.begin(), color_.end(), 0.0f);
  std::fill(deepCounts_.begin(), deepCounts_.end(), 0u);
}

Vec3 Film::idValue(uint32_t id) const {
  if (size_t(id) * 4 + 3 < indexColors_.size()) return Vec3(indexColors_[4 * id], indexColors_[4 * id + 1], indexColors_[4 * id + 2]);
  return Vec3(float(id));
}

Vec3 Film::value(uint32_t aov, const SampleResult& s) const {
  switch (aov) {
    case kAovColor: return s.color;
    case kAovOpacity: return Vec3(s.opacity);
    case kAovWorldCoordinate: return s.position;
    case kAovUv: return Vec3(s.uv[0], s.uv[1], 0);
    case kAovMaterialId: return s.hit ? idValue(s.materialId) : Vec3(0);
    case kAovObjectId: return s.hit ? idValue(s.objectId) : Vec3(0);
    case kAovMeshId: return s.hit ? idValue(s.meshId) : Vec3(0);
    case kAovGroupId: return s.hit ? idValue(s.groupId) : Vec3(0);
    case kAovNormalGeom: return s.normalGeom;
    case kAovNormal: return s.normal;
    case kAovCameraNormal: return s.cameraNormal;
    case kAovDepth: return Vec3(s.depth);
    case kAovBackground: return s.background;
    case kAovEmission: return s.emission;
    case kAovVelocity: return Vec3(0);  // scenes are still: nothing moves between shutter times
    case kAovDirectIllumination: return s.direct[0] + s.direct[1] + s.direct[2];
    case kAovIndirectIllumination: return s.indirect[0] + s.indirect[1] + s.indirect[2];
    case kAovAo: return Vec3(s.ao);
    case kAovDirectDiffuse: return s.direct[kLobeDiffuse];
    case kAovDirectReflect: return s.direct[kLobeReflect];
    case kAovIndirectDiffuse: return s.indirect[kLobeDiffuse];
    case kAovIndirectReflect: return s.indirect[kLobeReflect];
    case kAovRefract: return s.direct[kLobeRefract] + s.indirect[kLobeRefract];
    case kAovAlbedoDiffuse: return s.albedo;
    case kAovDeepColor: return s.color;
    case kAovReflectionCatcher: return s.catcherReflection;
    case kAovMattePass: return Vec3(s.catcher);
    default: break;
  }
  if (isLpeAov(aov)) return s.paths.lpe[aov - kAovLpe0];
  if (int group = lightGroupOf(aov); group >= 0) return s.paths.group[group];
  return Vec3(0);  // volume and sss: no participating media or subsurface lobes carry light
}

void Film::addSample(uint32_t x, uint32_t y, float w, const SampleResult& s) {
  size_t i = (size_t(y) * width_ + x) * 4;
  color_[i] += s.color.x * w;
  color_[i + 1] += s.color.y * w;
  color_[i + 2] += s.color.z * w;
  color_[i + 3] += w;
  for (auto& slot : slots_) {
    float* d = &slot.data[i];
    if (slot.aov == kAovShadowCatcher) {
      // Lit over unoccluded light, both summed: the normalization divides one sum by the other.
      d[0] += s.catcherLit * w;
      d[1] += s.catcherLit * w;
      d[2] += s.catcherLit * w;
      d[3] += s.catcherUnoccluded * w;
      continue;
    }
    Vec3 v = value(slot.aov, s);
    d[0] += v.x * w;
    d[1] += v.y * w;
    d[2] += v.z * w;
    d[3] += w;
  }
  if (deepTarget_) {
    // One sample a pixel per iteration; the sky lies behind everything, at the largest depth.
    const size_t pixel = size_t(y) * width_ + x;
    FrameBufferTarget::DeepSample& deep = deepSamples_[pixel];
    const bool surface = s.shape != SampleResult::kNoShape;
    deep.depth = surface ? s.depth : std::numeric_limits<float>::max();
    deep.depthBack = deep.depth;
    deep.surface = surface ? s.shape + 1 : ~0u;
    deep.rgba[0] = s.color.x * w;
    deep.rgba[1] = s.color.y * w;
    deep.rgba[2] = s.color.z * w;
    deep.rgba[3] = w;
    deepCounts_[pixel] = 1;
  }
}

void Film::commitSums() {
  for (auto& slot : slots_) slot.target->addIteration(slot.data.data());
  if (deepTarget_) {
    // The samples are taken in pixel order; those of unsampled pixels are skipped.
    std::vector<FrameBufferTarget::DeepSample> packed;
    packed.reserve(deepSamples_.size());
    for (size_t p = 0; p < deepSamples_.size(); ++p)
      if (deepCounts_[p]) packed.push_back(deepSamples_[p]);
    deepTarget_->addDeepSamples(deepCounts_.data(), packed.data());
  }
}

void Film::commitAverages() {
  for (auto& slot : slots_) {
    std::vector<float> avg(slot.data.size());
    for (size_t i = 0; i < avg.size(); i += 4) {
      float w = slot.data[i + 3];
      float inv = w != 0 ? 1 / w : 0;
      avg[i] = slot.data[i] * inv;
      avg[i + 1] = slot.data[i + 1] * inv;
      avg[i + 2] = slot.data[i + 2] * inv;
      avg[i + 3] = 1;
    }
    slot.target->averageIteration(avg.data());
  }
}

void Film::spreadBlocks(uint32_t side) {
  auto spread = [&](std::vector<float>& data) {
    for (uint32_t y = 0; y < height_; ++y)
      for (uint32_t x = 0; x < width_; ++x) {
        const size_t from = (size_t(y - y % side) * width_ + (x - x % side)) * 4, to = (size_t(y) * width_ + x) * 4;
        if (from != to) std::copy(&data[from], &data[from] + 4, &data[to]);
      }
  };
  spread(color_);
  for (auto& slot : slots_) spread(slot.data);
}

void Film::drawOverColor(uint32_t x, uint32_t y, float coverage, Vec3 lineColor) {
  const size_t i = (size_t(y) * width_ + x) * 4;
  auto draw = [&](float* d) {
    for (int k = 0; k < 3; ++k) d[k] = d[k] * (1 - coverage) + lineColor[k] * d[3] * coverage;
  };
  draw(&color_[i]);
  for (auto& slot : slots_)
    if (slot.aov == kAovColor) draw(&slot.data[i]);
}

}  // namespace zvr::kernel
