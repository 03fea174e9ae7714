// Mip-mapped textures, read back as linear floats, and the cache that owns them for one render.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kernel/vector_math.h"

namespace zvr::kernel {

struct Vec4 {
  float x = 0, y = 0, z = 0, w = 1;
};

class Texture {
 public:
  // `color` marks textures that hold colour: sRGB images are decoded, linear images get `gamma`.
  Texture(const ImageData& image, bool color, float gamma);
  // Drops the finest level; false when only one level is left.
  bool dropFinestLevel();
  size_t bytes() const;
  uint32_t width() const { return levels_.empty() ? 0 : levels_[0].width; }
  uint32_t height() const { return levels_.empty() ? 0 : levels_[0].height; }
  // Width of the original finest level, for level-of-detail estimates.
  uint32_t baseWidth() const { return baseWidth_; }
  uint32_t baseHeight() const { return baseHeight_; }
  // Filtered lookup; `lod` in levels of the original image, `linear` chooses bilinear/trilinear.
  Vec4 sample(float u, float v, float lod, uint32_t wrapS, uint32_t wrapT, bool linearMag, bool linearMin) const;
  uint32_t channels() const { return channels_; }

 private:
  struct Level {
    uint32_t width, height;
    std::vector<float> texels;   // 4 per texel, or
    std::vector<uint8_t> bytes;  // 4 per texel, at every level of an 8-bit image
  };
  // Bytes back to exactly the floats a float level would hold: colour decoded as the texture asks.
  struct ByteDecode {
    float rgb[256], alpha[256];
  };
  // The byte whose decoded value lies nearest a float, for a decode table that increases.
  class NearestByte {
   public:
    bool build(const float (&table)[256]);  // false when the table does not increase
    uint8_t nearest(float v) const;
    bool isGrid() const { return grid_; }  // the table is k / 255: nearest() is rounding

   private:
    static constexpr uint32_t kBuckets = 4096;
    const float* values_ = nullptr;
    bool grid_ = false;  // the table is k / 255
    float first_ = 0, scale_ = 1;
    uint8_t bucketStart_[kBuckets];
  };
  struct ByteEncode {
    NearestByte rgb, alpha;
    static std::unique_ptr<const ByteEncode> of(const ByteDecode& decode);  // null if either table cannot encode
  };
  // Row y of a level as RGBA floats: the level's own for floats, else decoded into `scratch`.
  const float* rowOf(const Level& level, uint32_t y, std::vector<float>& scratch) const;
  Vec4 fetch(const Level& level, int x, int y, uint32_t wrapS, uint32_t wrapT) const;
  Vec4 texel(const Level& level, int x, int y) const;  // x, y inside the level
  Vec4 bilinear(const Level& level, float u, float v, uint32_t wrapS, uint32_t wrapT) const;
  Vec4 nearest(const Level& level, float u, float v, uint32_t wrapS, uint32_t wrapT) const;
  std::vector<Level> levels_;
  std::unique_ptr<const ByteDecode> decode_;  // null unless the finest level holds bytes
  uint32_t channels_ = 4, baseWidth_ = 0, baseHeight_ = 0, dropped_ = 0;
};

// Textures shared by every material of a render, built once per scene update. The memory limit
// is met by dropping the finest levels of the largest textures first.
class TextureCache {
 public:
  const Texture* get(const std::shared_ptr<const ImageData>& image, bool color, float gamma);
  // Applies a limit in bytes (0: none).
  void enforceLimit(size_t bytes);
  size_t bytes() const;
  void clear() { textures_.clear(); }

 private:
  std::map<std::pair<uint64_t, bool>, std::unique_ptr<Texture>> textures_;
  std::map<std::pair<uint64_t, bool>, std::shared_ptr<const ImageData>> keepAlive_;
};

// Texture-transform of a binding applied to a coordinate.
void transformTexcoord(const TextureBinding& binding, float& u, float& v);

}  // namespace zvr::kernel
