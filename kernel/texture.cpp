#include "kernel/texture.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include "kernel/texel_bytes.h"

namespace zvr::kernel {
namespace {

float srgbToLinear(float v) {
  return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f);
}

int wrapCoord(int i, int n, uint32_t mode) {
  // Most lookups land inside the image: no division for them.
  if (unsigned(i) < unsigned(n)) return i;
  // Next are the neighbours a bilinear lookup takes just past an edge: no division for them either.
  const bool repeats = mode != 1 && mode != 2;
  if (i == -1) return repeats ? n - 1 : 0;
  if (i == n) return repeats ? 0 : n - 1;
  switch (mode) {
    case 1:  // clamp
      return std::min(std::max(i, 0), n - 1);
    case 2: {  // mirror
      int period = 2 * n;
      int m = ((i % period) + period) % period;
      return m < n ? m : period - 1 - m;
    }
    default:
      return ((i % n) + n) % n;
  }
}

// The RGBA of texel i as the image holds it: grey images (1 or 2 channels) spread luminance over
// RGB, and their second channel is alpha.
void imageTexel(const ImageData& image, uint32_t channels, size_t i, float c[4]) {
  const float* p = &image.pixels[i * image.channels];
  c[3] = 1;
  for (uint32_t k = 0; k < channels; ++k) c[k] = p[k];
  if (channels <= 2) {
    c[3] = channels == 2 ? p[1] : 1;
    c[1] = c[2] = c[0];
  }
}

// RGBA bytes of `count` texels as imageTexel spreads them, for values ByteFormCheck accepted; one
// loop per channel count, so that each vectorises.
void texelBytes(const float* p, uint32_t stride, uint32_t channels, size_t count, uint8_t* out) {
  switch (channels) {
    case 1:
      for (size_t i = 0; i < count; ++i, p += stride, out += 4) {
        out[0] = out[1] = out[2] = byteOf(p[0]);
        out[3] = 255;
      }
      return;
    case 2:
      for (size_t i = 0; i < count; ++i, p += stride, out += 4) {
        out[0] = out[1] = out[2] = byteOf(p[0]);
        out[3] = byteOf(p[1]);
      }
      return;
    case 3:
      for (size_t i = 0; i < count; ++i, p += stride, out += 4) {
        for (int k = 0; k < 3; ++k) out[k] = byteOf(p[k]);
        out[3] = 255;
      }
      return;
    default:
      for (size_t i = 0; i < count; ++i, p += stride, out += 4)
        for (int k = 0; k < 4; ++k) out[k] = byteOf(p[k]);
  }
}

float decodeColour(float v, bool srgb, bool powered, float gamma) {
  if (srgb) return srgbToLinear(v);
  return powered && v > 0 ? std::pow(v, gamma) : v;
}

}  // namespace

Texture::Texture(const ImageData& image, bool color, float gamma) {
  channels_ = std::min(4u, std::max(1u, image.channels));
  baseWidth_ = std::max(1u, image.width);
  baseHeight_ = std::max(1u, image.height);
  const size_t texels = size_t(baseWidth_) * baseHeight_;
  bool valid = image.width > 0 && image.height > 0 && image.channels >= 1 &&
               image.pixels.size() >= size_t(image.width) * image.height * image.channels;
  const bool srgb = color && image.colorSpace == ColorSpace::SRGB, powered = color && !srgb && gamma != 1.0f;
  Level base{baseWidth_, baseHeight_, {}, {}};
  // Bytes where every value is a byte's, checked and converted in one pass over the rows; the
  // rare image that is not (16-bit, HDR) is held as floats.
  ByteFormCheck check;
  if (valid) {
    base.bytes.resize(texels * 4);
    const size_t rowValues = size_t(image.width) * image.channels;
    check = tbb::parallel_reduce(
        tbb::blocked_range<uint32_t>(0, baseHeight_, 16), ByteFormCheck(),
        [&](const tbb::blocked_range<uint32_t>& rows, ByteFormCheck found) {
          for (uint32_t y = rows.begin(); y < rows.end(); ++y) {
            const float* row = &image.pixels[y * rowValues];
            found.add(row, rowValues);
            if (!found.possible()) break;  // nothing beyond [0, 1] is converted
            texelBytes(row, image.channels, channels_, baseWidth_, &base.bytes[size_t(y) * baseWidth_ * 4]);
          }
          return found;
        },
        [](ByteFormCheck a, const ByteFormCheck& b) {
          a.merge(b);
          return a;
        });
  }
  if (valid && check.possible()) {
    auto decode = std::make_unique<ByteDecode>();
    for (uint32_t k = 0; k < 256; ++k) {
      decode->alpha[k] = byteValue(check.form(), k);
      decode->rgb[k] = decodeColour(decode->alpha[k], srgb, powered, gamma);
    }
    decode_ = std::move(decode);
  } else {
    base.bytes = std::vector<uint8_t>();  // gives the memory back, which clear() would keep
    base.texels.resize(texels * 4);
    tbb::parallel_for(tbb::blocked_range<uint32_t>(0, baseHeight_, 16), [&](const tbb::blocked_range<uint32_t>& rows) {
      for (size_t i = size_t(rows.begin()) * baseWidth_; i < size_t(rows.end()) * baseWidth_; ++i) {
        float c[4] = {0, 0, 0, 1};
        if (valid) imageTexel(image, channels_, i, c);
        for (int k = 0; k < 3; ++k) c[k] = decodeColour(c[k], srgb, powered, gamma);
        for (int k = 0; k < 4; ++k) base.texels[i * 4 + k] = c[k];
      }
    });
  }
  levels_.push_back(std::move(base));
  // An 8-bit image keeps its coarser levels as bytes too, each the nearest byte to the exact
  // average: lookups there missed the cache on floats four times the size.
  std::unique_ptr<const ByteEncode> encode = decode_ ? ByteEncode::of(*decode_) : nullptr;
  const bool dataBytes = encode && encode->rgb.isGrid() && encode->alpha.isGrid();
  // The previous level's averages before rounding, so that rounding never compounds; not
  // zero-filled first, as every value is written.
  std::unique_ptr<float[]> exact;
  while (levels_.back().width > 1 || levels_.back().height > 1) {
    const Level& f = levels_.back();
    Level next{std::max(1u, f.width / 2), std::max(1u, f.height / 2), {}, {}};
    const size_t values = size_t(next.width) * next.height * 4;
    std::unique_ptr<float[]> averages(new float[values]);
    if (encode) next.bytes.resize(values);
    tbb::parallel_for(tbb::blocked_range<uint32_t>(0, next.height, 16), [&](const tbb::blocked_range<uint32_t>& rows) {
      std::vector<float> scratch0, scratch1;
      for (uint32_t y = rows.begin(); y < rows.end(); ++y) {
        const uint32_t y0 = 2 * y, y1 = std::min(f.height - 1, 2 * y + 1);
        const size_t rowValues = size_t(f.width) * 4;
        const float* row0 = exact ? &exact[y0 * rowValues] : rowOf(f, y0, scratch0);
        const float* row1 = exact ? &exact[y1 * rowValues] : rowOf(f, y1, scratch1);
        const size_t first = size_t(y) * next.width * 4, count = size_t(next.width) * 4;
        float* out = &averages[first];
        if (f.width > 1) {
          for (size_t x = 0; x < next.width; ++x)
            for (size_t k = 0; k < 4; ++k)
              out[4 * x + k] = (row0[8 * x + k] + row0[8 * x + 4 + k] + row1[8 * x + k] + row1[8 * x + 4 + k]) / 4;
        } else {
          // A column of one texel repeats it: the box filter reads the edge twice.
          for (size_t k = 0; k < 4; ++k) out[k] = (row0[k] + row0[k] + row1[k] + row1[k]) / 4;
        }
        if (!encode) continue;
        uint8_t* bytes = &next.bytes[first];
        if (dataBytes) {
          // Averages of values in [0, 1] stay there, so rounding needs no clamp.
          for (size_t i = 0; i < count; ++i) bytes[i] = byteOf(out[i]);
          continue;
        }
        for (size_t i = 0; i < count; i += 4) {
          for (int k = 0; k < 3; ++k) bytes[i + k] = encode->rgb.nearest(out[i + k]);
          bytes[i + 3] = encode->alpha.nearest(out[i + 3]);
        }
      }
    });
    if (encode) exact = std::move(averages);
    else next.texels.assign(averages.get(), averages.get() + values);
    levels_.push_back(std::move(next));
  }
}

std::unique_ptr<const Texture::ByteEncode> Texture::ByteEncode::of(const ByteDecode& decode) {
  auto encode = std::make_unique<ByteEncode>();
  if (!encode->rgb.build(decode.rgb) || !encode->alpha.build(decode.alpha)) return nullptr;
  return encode;
}

// Buckets over [first, last] of the table, each with the last byte whose value lies at or below
// its start: a lookup then walks a step or two at most.
bool Texture::NearestByte::build(const float (&table)[256]) {
  for (int k = 1; k < 256; ++k)
    if (!(table[k] > table[k - 1])) return false;  // not increasing: no nearest by search
  values_ = table;
  grid_ = true;
  for (int k = 0; k < 256; ++k) grid_ = grid_ && std::fabs(table[k] * 255.0f - float(k)) < 1e-3f;
  first_ = table[0];
  scale_ = float(kBuckets - 1) / (table[255] - table[0]);
  uint32_t k = 0;
  for (uint32_t b = 0; b < kBuckets; ++b) {
    const float start = first_ + float(b) / scale_;
    while (k < 255 && table[k + 1] <= start) ++k;
    bucketStart_[b] = uint8_t(k);
  }
  return true;
}

uint8_t Texture::NearestByte::nearest(float v) const {
  if (grid_) return byteOf(std::clamp(v, 0.0f, 1.0f));  // rounding finds the nearest
  const float position = (v - first_) * scale_;
  if (!(position > 0)) return 0;
  uint32_t k = bucketStart_[uint32_t(std::min(position, float(kBuckets - 1)))];
  while (k < 255 && values_[k + 1] <= v) ++k;
  return k < 255 && values_[k + 1] - v < v - values_[k] ? uint8_t(k + 1) : uint8_t(k);
}

const float* Texture::rowOf(const Level& level, uint32_t y, std::vector<float>& scratch) const {
  const size_t first = size_t(y) * level.width * 4;
  if (level.bytes.empty()) return &level.texels[first];
  scratch.resize(size_t(level.width) * 4);
  for (size_t i = 0; i < scratch.size(); i += 4) {
    const uint8_t* b = &level.bytes[first + i];
    scratch[i] = decode_->rgb[b[0]];
    scratch[i + 1] = decode_->rgb[b[1]];
    scratch[i + 2] = decode_->rgb[b[2]];
    scratch[i + 3] = decode_->alpha[b[3]];
  }
  return scratch.data();
}

bool Texture::dropFinestLevel() {
  if (levels_.size() <= 1) return false;
  levels_.erase(levels_.begin());
  ++dropped_;
  return true;
}

size_t Texture::bytes() const {
  size_t b = 0;
  for (const auto& l : levels_) b += l.texels.size() * sizeof(float) + l.bytes.size();
  return b;
}

Vec4 Texture::fetch(const Level& level, int x, int y, uint32_t wrapS, uint32_t wrapT) const {
  return texel(level, wrapCoord(x, int(level.width), wrapS), wrapCoord(y, int(level.height), wrapT));
}

Vec4 Texture::texel(const Level& level, int x, int y) const {
  const size_t i = (size_t(y) * level.width + x) * 4;
  if (!level.bytes.empty()) {
    const uint8_t* b = &level.bytes[i];
    return {decode_->rgb[b[0]], decode_->rgb[b[1]], decode_->rgb[b[2]], decode_->alpha[b[3]]};
  }
  const float* t = &level.texels[i];
  return {t[0], t[1], t[2], t[3]};
}

Vec4 Texture::nearest(const Level& level, float u, float v, uint32_t wrapS, uint32_t wrapT) const {
  return fetch(level, int(std::floor(u * level.width)), int(std::floor(v * level.height)), wrapS, wrapT);
}

Vec4 Texture::bilinear(const Level& level, float u, float v, uint32_t wrapS, uint32_t wrapT) const {
  float x = u * level.width - 0.5f, y = v * level.height - 0.5f;
  float fx = std::floor(x), fy = std::floor(y);
  float ax = x - fx, ay = y - fy;
  int ix = int(fx), iy = int(fy);
  const int x0 = wrapCoord(ix, int(level.width), wrapS), x1 = wrapCoord(ix + 1, int(level.width), wrapS);
  const int y0 = wrapCoord(iy, int(level.height), wrapT), y1 = wrapCoord(iy + 1, int(level.height), wrapT);
  Vec4 a = texel(level, x0, y0), b = texel(level, x1, y0), c = texel(level, x0, y1), d = texel(level, x1, y1);
  auto mix = [&](float p, float q, float r, float s) {
    return (p * (1 - ax) + q * ax) * (1 - ay) + (r * (1 - ax) + s * ax) * ay;
  };
  return {mix(a.x, b.x, c.x, d.x), mix(a.y, b.y, c.y, d.y), mix(a.z, b.z, c.z, d.z), mix(a.w, b.w, c.w, d.w)};
}

Vec4 Texture::sample(float u, float v, float lod, uint32_t wrapS, uint32_t wrapT, bool linearMag, bool linearMin) const {
  if (!std::isfinite(u) || !std::isfinite(v)) u = v = 0;
  // Dropped levels shift the pyramid: level 0 now stands for original level `dropped_`.
  float level = std::max(0.0f, (std::isfinite(lod) ? lod : 0) - float(dropped_));
  if (lod <= float(dropped_)) {
    const Level& l0 = levels_[0];
    return linearMag ? bilinear(l0, u, v, wrapS, wrapT) : nearest(l0, u, v, wrapS, wrapT);
  }
  float maxLevel = float(levels_.size() - 1);
  level = std::min(level, maxLevel);
  if (!linearMin) return nearest(levels_[size_t(std::lround(level))], u, v, wrapS, wrapT);
  size_t l0 = size_t(level);
  size_t l1 = std::min(l0 + 1, levels_.size() - 1);
  float t = level - float(l0);
  Vec4 a = bilinear(levels_[l0], u, v, wrapS, wrapT);
  if (t <= 0 || l1 == l0) return a;
  Vec4 b = bilinear(levels_[l1], u, v, wrapS, wrapT);
  return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t, a.w + (b.w - a.w) * t};
}

const Texture* TextureCache::get(const std::shared_ptr<const ImageData>& image, bool color, float gamma) {
  if (!image) return nullptr;
  auto key = std::make_pair(image->id, color);
  auto it = textures_.find(key);
  if (it != textures_.end()) return it->second.get();
  auto tex = std::make_unique<Texture>(*image, color, gamma);
  const Texture* raw = tex.get();
  textures_.emplace(key, std::move(tex));
  keepAlive_[key] = image;
  return raw;
}

size_t TextureCache::bytes() const {
  size_t b = 0;
  for (const auto& [key, tex] : textures_) b += tex->bytes();
  return b;
}

void TextureCache::enforceLimit(size_t limit) {
  if (limit == 0) return;
  while (bytes() > limit) {
    Texture* largest = nullptr;
    for (auto& [key, tex] : textures_)
      if (tex->bytes() > (largest ? largest->bytes() : 0) && tex->width() * tex->height() > 1) largest = tex.get();
    if (!largest || !largest->dropFinestLevel()) break;
  }
}

void transformTexcoord(const TextureBinding& b, float& u, float& v) {
  float su = u * b.scale[0], sv = v * b.scale[1];
  float c = std::cos(b.rotation), s = std::sin(b.rotation);
  u = c * su + s * sv + b.offset[0];
  v = -s * su + c * sv + b.offset[1];
}

}  // namespace zvr::kernel
