#include "viewer/upscaler_constants.h"

#include <cmath>
#include <cstring>

namespace zvrs {

namespace {

uint32_t floatBits(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// Indexed by the float's sign and exponent (its top nine bits): the half's sign and exponent
// already in place, and how far the 23-bit mantissa moves right to fit behind them.
struct HalfTables {
  std::array<uint16_t, 512> base{};
  std::array<uint8_t, 512> shift{};

  constexpr HalfTables() {
    for (int index = 0; index < 256; ++index) {
      const int exponent = index - 127;
      uint16_t bits = 0;
      uint8_t moveRight = 24;
      if (exponent < -24) {  // below the smallest subnormal: zero
        bits = 0;
        moveRight = 24;
      } else if (exponent < -14) {  // a subnormal half: the implicit one joins the mantissa
        bits = static_cast<uint16_t>(0x0400 >> (-exponent - 14));
        moveRight = static_cast<uint8_t>(-exponent - 1);
      } else if (exponent <= 15) {  // a normal half
        bits = static_cast<uint16_t>((exponent + 15) << 10);
        moveRight = 13;
      } else if (exponent < 128) {  // too large: infinity
        bits = 0x7C00;
        moveRight = 24;
      } else {  // infinity or NaN, keeping the NaN's top mantissa bits
        bits = 0x7C00;
        moveRight = 13;
      }
      base[index] = bits;
      base[index | 0x100] = static_cast<uint16_t>(bits | 0x8000);
      shift[index] = moveRight;
      shift[index | 0x100] = moveRight;
    }
  }
};

constexpr HalfTables kHalfTables;

}  // namespace

uint16_t floatToHalfTruncating(float value) {
  const uint32_t bits = floatBits(value);
  const uint32_t index = bits >> 23;
  return static_cast<uint16_t>(kHalfTables.base[index] + ((bits & 0x007FFFFF) >> kHalfTables.shift[index]));
}

UpscalerConstantBlock tovuConstantBlock(int width, int height, int outputWidth, int outputHeight) {
  const float w = static_cast<float>(width);
  const float h = static_cast<float>(height);
  const float ow = static_cast<float>(outputWidth);
  const float oh = static_cast<float>(outputHeight);
  const float values[14] = {
      w * (1.0f / ow),
      h * (1.0f / oh),
      0.5f * w * (1.0f / ow) - 0.5f,
      0.5f * h * (1.0f / oh) - 0.5f,
      1.0f / w,
      1.0f / h,
      1.0f / w,
      -1.0f / h,
      -1.0f / w,
      2.0f / h,
      1.0f / w,
      2.0f / h,
      0.0f / w,
      4.0f / h,
  };
  UpscalerConstantBlock block{};
  for (int word = 0; word < 14; ++word) block[word] = floatBits(values[word]);
  return block;
}

float naltSharpness(float attenuation) { return std::exp2(-attenuation); }

UpscalerConstantBlock naltConstantBlock(float sharpness) {
  UpscalerConstantBlock block{};
  const uint32_t half = floatToHalfTruncating(sharpness);
  block[0] = floatBits(sharpness);
  block[1] = (half << 16) | half;
  return block;
}

int upscalerGroupCount(int outputSide) { return (outputSide + kUpscalerTileSide - 1) / kUpscalerTileSide; }

}  // namespace zvrs
