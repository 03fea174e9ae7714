// Images decoded from 8-bit files hold only multiples of 1/255, which a texture can keep as bytes:
// a quarter of the memory of floats, and as exact, provided a byte turns back into the very float
// the decoder wrote. Decoders write either k / 255 or k * (1 / 255), which differ in the last bit
// for half the values, so an image is read as one form or the other, never a mixture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zvr::kernel {

enum class ByteForm { None, Divided, Multiplied };

inline float byteValue(ByteForm form, uint32_t k) {
  return form == ByteForm::Multiplied ? float(k) * (1.0f / 255.0f) : float(k) / 255.0f;
}

// The byte whose value is v, for a value ByteFormCheck accepted.
inline uint8_t byteOf(float v) { return uint8_t(v * 255.0f + 0.5f); }

// Which form a run of values takes. No table and no early exit, so that the loop vectorises:
// this check reads every value of every texture a scene loads.
class ByteFormCheck {
 public:
  void add(const float* values, size_t count) {
    uint32_t divided = 1, multiplied = 1;
    for (size_t i = 0; i < count; ++i) {
      const float v = values[i];
      uint32_t bits;
      std::memcpy(&bits, &v, sizeof bits);
      // [+0, 1] as bit patterns, which keeps NaN and negatives out without a float compare.
      const uint32_t inside = bits <= 0x3f800000u ? ~0u : 0u;
      const uint32_t clampedBits = bits & inside;
      float clamped;
      std::memcpy(&clamped, &clampedBits, sizeof clamped);
      const float k = float(int(clamped * 255.0f + 0.5f));
      divided &= inside & (k / 255.0f == v ? ~0u : 0u);
      multiplied &= inside & (k * (1.0f / 255.0f) == v ? ~0u : 0u);
    }
    forms_ &= (divided ? kDivided : 0u) | (multiplied ? kMultiplied : 0u);
  }
  void merge(const ByteFormCheck& other) { forms_ &= other.forms_; }
  bool possible() const { return forms_ != 0; }
  // Divided where both fit: the values are then the same either way.
  ByteForm form() const {
    return forms_ & kDivided ? ByteForm::Divided : forms_ & kMultiplied ? ByteForm::Multiplied : ByteForm::None;
  }

 private:
  static constexpr uint32_t kDivided = 1, kMultiplied = 2;
  uint32_t forms_ = kDivided | kMultiplied;
};

}  // namespace zvr::kernel
