// Images decoded from 8-bit files hold only multiples of 1/255, which a texture can keep as bytes:
// a quarter of the memory of floats, and as exact, provided a byte turns back into the very float
// the decoder wrote. Decoders write either k / 255 or k * (1 / 255), which differ in the last bit
// for half the values, so an image is read as one form or the other, never a mixture.
#pragma once

#include <cstdint>

#include "core/plugin_api.h"

namespace zvr::kernel {

enum class ByteForm { None, Divided, Multiplied };

// The form every value of `image` takes, or None when some value is not a byte's.
ByteForm byteFormOf(const ImageData& image);

inline float byteValue(ByteForm form, uint32_t k) {
  return form == ByteForm::Multiplied ? float(k) * (1.0f / 255.0f) : float(k) / 255.0f;
}

// The byte whose value is v, for a value byteFormOf accepted.
inline uint8_t byteOf(float v) { return uint8_t(v * 255.0f + 0.5f); }

}  // namespace zvr::kernel
