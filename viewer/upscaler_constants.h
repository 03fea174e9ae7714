// The arithmetic of the display upscaler that needs no OpenGL: the two 16-word constant blocks,
// the sharpness, the half-float packing and the work-group counts.
#pragma once

#include <array>
#include <cstdint>

namespace zvrs {

// One block of std140 constants as the shader reads it: four uvec4, each word a float's bits.
using UpscalerConstantBlock = std::array<uint32_t, 16>;

// The output pixels one work group covers along each axis.
constexpr int kUpscalerTileSide = 16;

// Position mapping and gather offsets of the edge-adaptive pass for a render of
// width x height shown at outputWidth x outputHeight. All sizes must be positive.
UpscalerConstantBlock tovuConstantBlock(int width, int height, int outputWidth, int outputHeight);

// 2 to the minus attenuation: 0 sharpens fully, every further stop halves it.
float naltSharpness(float attenuation);

// The sharpness by its bits in word 0 and, as two packed halves, in word 1; the rest 0.
UpscalerConstantBlock naltConstantBlock(float sharpness);

// The truncating float-to-half conversion, by a base and a shift looked up from sign and exponent.
uint16_t floatToHalfTruncating(float value);

// Work groups needed to cover an output side with whole tiles.
int upscalerGroupCount(int outputSide);

}  // namespace zvrs
