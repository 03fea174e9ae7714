// Images decoded from 8-bit files hold only multiples of 1/255, which a texture can keep as bytes:
// a quarter of the memory of floats, and as exact, provided a byte turns back into the very float
// the decoder wrote. Decoders write either k / 255 or k * (1 / 255), which differ in the last bit
// for half the values, so an image is read as one form or the other, never a mixture.
#pragma once

#include <cstdint>

namespace zvr::kernel {

enum class ByteForm { None, Divided, Multiplied };

inline float byteValue(ByteForm form, uint32_t k) {
  return form == ByteForm::Multiplied ? float(k) * (1.0f / 255.0f) : float(k) / 255.0f;
}

// The byte whose value is v, for a value ByteFormCheck accepted.
inline uint8_t byteOf(float v) { return uint8_t(v * 255.0f + 0.5f); }

// Which form a run of values takes, value by value, without a division per value.
class ByteFormCheck {
 public:
  void add(float v) {
    if (!(v >= 0 && v <= 1)) {
      forms_ = 0;
      return;
    }
    const uint32_t k = byteOf(v);
    const Values& values = table();
    forms_ &= (v == values.divided[k] ? kDivided : 0u) | (v == values.multiplied[k] ? kMultiplied : 0u);
  }
  void merge(const ByteFormCheck& other) { forms_ &= other.forms_; }
  bool possible() const { return forms_ != 0; }
  // Divided where both fit: the values are then the same either way.
  ByteForm form() const {
    return forms_ & kDivided ? ByteForm::Divided : forms_ & kMultiplied ? ByteForm::Multiplied : ByteForm::None;
  }

 private:
  static constexpr uint32_t kDivided = 1, kMultiplied = 2;
  struct Values {
    float divided[256], multiplied[256];
  };
  static const Values& table() {
    static const Values values = [] {
      Values v{};
      for (uint32_t k = 0; k < 256; ++k) {
        v.divided[k] = byteValue(ByteForm::Divided, k);
        v.multiplied[k] = byteValue(ByteForm::Multiplied, k);
      }
      return v;
    }();
    return values;
  }
  uint32_t forms_ = kDivided | kMultiplied;
};

}  // namespace zvr::kernel
