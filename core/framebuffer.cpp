#include "core/framebuffer.h"

#include <algorithm>
#include <cmath>

#include "core/failure.h"
#include "core/info_reply.h"

namespace zvr::core {

FrameBuffer::FrameBuffer(Context* context, ZvrFramebufferFormat format, ZvrFramebufferDesc desc)
    : Object(ZVR_OBJECT_FRAMEBUFFER, context), format_(format), desc_(desc) {
  pixels_.assign(size_t(desc.width) * desc.height * 4, 0.0);
  if (isDeep()) deep_.resize(size_t(desc.width) * desc.height);
}

uint64_t FrameBuffer::dataBytes() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return pixels_.size() * sizeof(double) + deepSampleCount_ * sizeof(DeepSample);
}

void FrameBuffer::addDeepSamples(const uint32_t* counts, const DeepSample* samples) {
  if (!isDeep() || !counts || !samples) return;
  // Samples of one surface arrive in every iteration at nearly the same depth; folding them into
  // one keeps a pixel's list as long as the number of surfaces it sees, not of samples taken.
  constexpr float kSameSurface = 1e-3f;
  auto byDepth = [](const DeepSample& s, float depth) { return s.depth < depth; };
  std::lock_guard<std::mutex> lock(mutex_);
  const DeepSample* next = samples;
  for (size_t pixel = 0; pixel < deep_.size(); ++pixel) {
    std::vector<DeepSample>& list = deep_[pixel];
    for (uint32_t i = 0; i < counts[pixel]; ++i, ++next) {
      DeepSample sample = *next;
      if (!std::isfinite(sample.depth)) continue;
      sample.depthBack = std::isfinite(sample.depthBack) ? std::max(sample.depth, sample.depthBack) : sample.depth;
      if (sample.surface != 0) {
        auto same = std::find_if(list.begin(), list.end(), [&](const DeepSample& s) { return s.surface == sample.surface; });
        if (same != list.end()) {
          // A surface spans the depths its samples met in this pixel.
          for (int c = 0; c < 4; ++c) sample.rgba[c] += same->rgba[c];
          sample.depth = std::min(sample.depth, same->depth);
          sample.depthBack = std::max(sample.depthBack, same->depthBack);
          list.erase(same);
          --deepSampleCount_;
        }
        list.insert(std::lower_bound(list.begin(), list.end(), sample.depth, byDepth), sample);
        ++deepSampleCount_;
        continue;
      }
      auto at = std::lower_bound(list.begin(), list.end(), sample.depth, byDepth);
      const float tolerance = kSameSurface * std::max(std::fabs(sample.depth), 1e-6f);
      DeepSample* same = nullptr;
      if (at != list.end() && at->surface == 0 && at->depth - sample.depth <= tolerance) same = &*at;
      else if (at != list.begin() && (at - 1)->surface == 0 && sample.depth - (at - 1)->depth <= tolerance) same = &*(at - 1);
      if (same) {
        for (int c = 0; c < 4; ++c) same->rgba[c] += sample.rgba[c];
      } else {
        list.insert(at, sample);
        ++deepSampleCount_;
      }
    }
  }
}

void FrameBuffer::replaceWithFinalValues(const float* rgba, uint32_t iterationsAdded) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::copy(rgba, rgba + pixels_.size(), pixels_.begin());
  content_ = ZVR_FRAMEBUFFER_CONTENT_DATA;
  iterations_ += iterationsAdded;
  finalValues_ = true;
  holdsSums_ = false;
}

bool FrameBuffer::holdsFinalValues() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return finalValues_;
}

std::vector<std::vector<FrameBuffer::DeepSample>> FrameBuffer::readDeep(uint64_t* total) const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (total) *total = deepSampleCount_;
  return deep_;
}

void FrameBuffer::addIteration(const float* rgba) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (size_t i = 0; i < pixels_.size(); ++i) pixels_[i] += double(rgba[i]);
  content_ = ZVR_FRAMEBUFFER_CONTENT_LINEAR;
  finalValues_ = false;
  ++iterations_;
}

bool FrameBuffer::holdsSums() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return holdsSums_;
}

std::vector<double> FrameBuffer::readSums(uint32_t* iterations) const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (iterations) *iterations = iterations_;
  return pixels_;
}

void FrameBuffer::addSums(const std::vector<double>& sums, uint32_t iterations) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (sums.size() != pixels_.size()) fail(ZVR_ERROR_INTERNAL, "framebuffer sums of the wrong size");
  for (size_t i = 0; i < pixels_.size(); ++i) pixels_[i] += sums[i];
  content_ = ZVR_FRAMEBUFFER_CONTENT_LINEAR;
  iterations_ += iterations;
}

void FrameBuffer::averageIteration(const float* rgba) {
  std::lock_guard<std::mutex> lock(mutex_);
  const float keep = float(iterations_) / float(iterations_ + 1);
  const float add = 1.0f / float(iterations_ + 1);
  for (size_t i = 0; i < pixels_.size(); ++i) pixels_[i] = float(float(pixels_[i]) * keep + rgba[i] * add);
  content_ = ZVR_FRAMEBUFFER_CONTENT_LINEAR;
  finalValues_ = false;
  holdsSums_ = false;
  ++iterations_;
}

uint32_t FrameBuffer::iterations() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return iterations_;
}

std::string FrameBuffer::lightPathExpression() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lpe_;
}

void FrameBuffer::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  std::fill(pixels_.begin(), pixels_.end(), 0.0);
  holdsSums_ = true;
  for (auto& list : deep_) list.clear();
  deepSampleCount_ = 0;
  content_ = ZVR_FRAMEBUFFER_CONTENT_LINEAR;
  iterations_ = 0;
  provisional_ = false;
  finalValues_ = false;
}

bool FrameBuffer::provisional() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return provisional_;
}

void FrameBuffer::markProvisional() {
  std::lock_guard<std::mutex> lock(mutex_);
  provisional_ = true;
}

void FrameBuffer::discardProvisional() {
  if (provisional()) clear();
}

void FrameBuffer::setLightPathExpression(const std::string& expression) {
  std::lock_guard<std::mutex> lock(mutex_);
  lpe_ = expression;
}

ZvrFramebufferContent FrameBuffer::content() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return content_;
}

std::vector<float> FrameBuffer::read(ZvrFramebufferContent* content, uint32_t* iterations) const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (content) *content = content_;
  if (iterations) *iterations = iterations_;
  return std::vector<float>(pixels_.begin(), pixels_.end());
}

void FrameBuffer::write(std::vector<float> pixels, ZvrFramebufferContent content, uint32_t iterations) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (pixels.size() != pixels_.size()) fail(ZVR_ERROR_INTERNAL, "framebuffer write of the wrong size");
  pixels_.assign(pixels.begin(), pixels.end());
  holdsSums_ = false;
  content_ = content;
  iterations_ = iterations;
}

void FrameBuffer::getInfo(uint32_t key, size_t size, void* data, size_t* outSize) const {
  switch (key) {
    case ZVR_FRAMEBUFFER_FORMAT: replyValue("framebuffer format", format_, size, data, outSize); return;
    case ZVR_FRAMEBUFFER_DESC: replyValue("framebuffer desc", desc_, size, data, outSize); return;
    case ZVR_FRAMEBUFFER_DATA: {
      const std::vector<float> pixels = read();
      replyBytes("framebuffer data (" + std::to_string(desc_.width) + "x" + std::to_string(desc_.height) + " RGBA floats)",
                 pixels.data(), pixels.size() * sizeof(float), size, data, outSize);
      return;
    }
    case ZVR_FRAMEBUFFER_CONTENT: {
      uint32_t value = content();
      replyValue("framebuffer content", value, size, data, outSize);
      return;
    }
    case ZVR_FRAMEBUFFER_ITERATIONS: replyValue("framebuffer iterations", iterations(), size, data, outSize); return;
    case ZVR_FRAMEBUFFER_LPE: replyText("framebuffer light path expression", lightPathExpression(), size, data, outSize); return;
  }
  fail(ZVR_ERROR_UNKNOWN_KEY, "framebuffer has no info key " + std::to_string(key));
}

}  // namespace zvr::core
