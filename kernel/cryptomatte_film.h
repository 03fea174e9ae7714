// The cryptomatte ranking filter: per pixel the filter weight of every id its samples met, summed
// over all iterations since the targets were cleared, and the rank layers written from it.
#pragma once

#include <cstdint>
#include <vector>

#include "core/plugin_api.h"

namespace zvr::kernel {

class CryptomatteFilm {
 public:
  // Takes the cryptomatte targets of a render call and the names of its scene's shapes; starts
  // over when the targets were cleared or changed size.
  void begin(const std::vector<AovTarget>& targets, const SceneSnapshot& scene, uint32_t width, uint32_t height);
  bool active() const { return !targets_.empty(); }
  // One sample of weight `w` in pixel (x, y) that saw scene shape `shape` (kNoShape: nothing).
  // Pixels are independent, so threads may add to different pixels at once.
  void addSample(uint32_t x, uint32_t y, float w, uint32_t shape);
  // Writes every rank layer: ids by falling coverage, coverage the weight over the pixel's total.
  void commit(uint32_t iterations);

  static constexpr uint32_t kNoShape = ~0u;

 private:
  struct Entry {
    uint32_t id;  // float bits
    float weight;
  };
  struct Pixel {
    float total = 0;
    std::vector<Entry> ids[2];  // objects, materials
  };
  struct Target {
    uint32_t kind, rank;  // kind 0 objects, 1 materials; rank layer 0..5
    FrameBufferTarget* target;
  };
  std::vector<Target> targets_;
  std::vector<uint32_t> shapeIds_[2];   // per scene shape, 0 when unnamed
  std::vector<Pixel> pixels_;
  uint32_t width_ = 0, height_ = 0;
};

}  // namespace zvr::kernel
