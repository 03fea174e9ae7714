// A render target: RGBA (RGB sums of filtered samples, A the sum of weights while accumulating),
// guarded by its own lock so that a render thread and a reader never meet halfway. The sums are kept
// in doubles: every sample is a float, so the sums of a pixel's n samples are exact (and so
// independent of the order of adding) unless they span more than about 2^(29 - log2 n) in magnitude;
// shards of one picture added together then read back the same floats as one render of them all.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "core/object.h"
#include "core/plugin_api.h"

namespace zvr::core {

class FrameBuffer : public Object, public zvr::FrameBufferTarget {
 public:
  FrameBuffer(Context* context, ZvrFramebufferFormat format, ZvrFramebufferDesc desc);

  uint32_t width() const override { return desc_.width; }
  uint32_t height() const override { return desc_.height; }
  void addIteration(const float* rgba) override;
  void averageIteration(const float* rgba) override;
  uint32_t iterations() const override;
  std::string lightPathExpression() const override;

  bool isDeep() const override { return format_.componentType == ZVR_COMPONENT_TYPE_DEEP; }
  void addDeepSamples(const uint32_t* counts, const DeepSample* samples) override;
  void replaceWithFinalValues(const float* rgba, uint32_t iterationsAdded) override;
  // Whether the pixels are final values that resolving copies untouched.
  bool holdsFinalValues() const;

  uint64_t dataBytes() const override;
  ZvrFramebufferFormat format() const { return format_; }
  size_t valueCount() const { return pixels_.size(); }
  // False once resolved results or running averages replaced the sums.
  bool holdsSums() const;
  // The raw sums with their iteration count, for the accumulation files.
  std::vector<double> readSums(uint32_t* iterations) const;
  // Adds sums of the same size and their iterations (merging shards of one picture).
  void addSums(const std::vector<double>& sums, uint32_t iterations);

  void clear();
  // A provisional picture (frame hint 2) is shown until the next accumulating render discards it.
  bool provisional() const;
  void markProvisional();
  void discardProvisional();
  void setLightPathExpression(const std::string& expression);
  ZvrFramebufferContent content() const;
  // A consistent copy of the pixels with the content kind and iteration count they belong to.
  std::vector<float> read(ZvrFramebufferContent* content = nullptr, uint32_t* iterations = nullptr) const;
  // Replaces the pixels as a whole (resolve results).
  void write(std::vector<float> pixels, ZvrFramebufferContent content, uint32_t iterations);
  void getInfo(uint32_t key, size_t size, void* data, size_t* outSize) const;
  // A consistent copy of the per-pixel sample lists, nearest first; `total` counts the samples.
  std::vector<std::vector<DeepSample>> readDeep(uint64_t* total = nullptr) const;

 private:
  ZvrFramebufferFormat format_;
  ZvrFramebufferDesc desc_;
  mutable std::mutex mutex_;
  std::vector<double> pixels_;
  bool holdsSums_ = true;
  ZvrFramebufferContent content_ = ZVR_FRAMEBUFFER_CONTENT_LINEAR;
  uint32_t iterations_ = 0;
  bool provisional_ = false;
  bool finalValues_ = false;
  std::string lpe_;
  std::vector<std::vector<DeepSample>> deep_;  // deep framebuffers only, one list per pixel
  uint64_t deepSampleCount_ = 0;
};

}  // namespace zvr::core
