// Per-iteration buffers for every bound AOV. A whole iteration is rendered into local buffers and
// committed to each target at once, so readers never see part of an iteration.
#pragma once

#include <vector>

#include "kernel/path_integrator.h"

namespace zvr::kernel {

class Film {
 public:
  // `indexColors`: 4 floats per id (from the context's lookup table), empty for raw ids.
  Film(const std::vector<AovTarget>& targets, uint32_t width, uint32_t height, const std::vector<float>& indexColors);
  void clear();
  // Adds one sample of weight `w` at pixel (x, y).
  void addSample(uint32_t x, uint32_t y, float w, const SampleResult& s);
  // Copies the first pixel of every `side` x `side` block to the rest of the block (provisional
  // pictures sample one pixel per block).
  void spreadBlocks(uint32_t side);
  // Sums (filtered RGB, weight) for progressive plug-ins.
  void commitSums();
  // Per-pixel averages with weight 1, folded into running averages (preview plug-ins).
  void commitAverages();
  // Covers `coverage` (0 to 1) of pixel (x, y)'s colour with `lineColor`, in the colour sums and
  // the colour target, keeping the pixel's weight.
  void drawOverColor(uint32_t x, uint32_t y, float coverage, Vec3 lineColor);
  // The colour sums of this iteration, kept even when no colour target is bound.
  const std::vector<float>& colorSums() const { return color_; }
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }

 private:
  Vec3 value(uint32_t aov, const SampleResult& s) const;
  Vec3 idValue(uint32_t id) const;
  struct Slot {
    uint32_t aov;
    FrameBufferTarget* target;
    std::vector<float> data;
  };
  std::vector<Slot> slots_;
  std::vector<float> color_;
  // The deep.color target's samples of this iteration, one per pixel at most.
  FrameBufferTarget* deepTarget_ = nullptr;
  std::vector<uint32_t> deepCounts_;
  std::vector<FrameBufferTarget::DeepSample> deepSamples_;
  uint32_t width_, height_;
  const std::vector<float>& indexColors_;
};

}  // namespace zvr::kernel
