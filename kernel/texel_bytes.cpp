#include "kernel/texel_bytes.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>

namespace zvr::kernel {
namespace {

constexpr uint32_t kDivided = 1, kMultiplied = 2;

// Which forms v is consistent with: both for the values on which they agree.
uint32_t formsOf(float v) {
  if (!(v >= 0 && v <= 1)) return 0;
  uint32_t k = byteOf(v);
  return (v == byteValue(ByteForm::Divided, k) ? kDivided : 0) | (v == byteValue(ByteForm::Multiplied, k) ? kMultiplied : 0);
}

}  // namespace

ByteForm byteFormOf(const ImageData& image) {
  const size_t count = size_t(image.width) * image.height * image.channels;
  if (count == 0 || image.pixels.size() < count) return ByteForm::None;
  const float* p = image.pixels.data();
  uint32_t forms = tbb::parallel_reduce(
      tbb::blocked_range<size_t>(0, count, 1 << 16), kDivided | kMultiplied,
      [&](const tbb::blocked_range<size_t>& range, uint32_t found) {
        for (size_t i = range.begin(); i < range.end() && found != 0; ++i) found &= formsOf(p[i]);
        return found;
      },
      [](uint32_t a, uint32_t b) { return a & b; });
  if (forms & kDivided) return ByteForm::Divided;
  if (forms & kMultiplied) return ByteForm::Multiplied;
  return ByteForm::None;
}

}  // namespace zvr::kernel
