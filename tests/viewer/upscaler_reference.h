// Both upscaler passes on the CPU in 32-bit floats, to hold the compute shaders against.
#pragma once

#include <cstddef>
#include <vector>

// RGBA floats, top row first, as the viewer's host buffer holds them.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<float> rgba;

  Picture(int w, int h) : width(w), height(h), rgba(static_cast<size_t>(w) * h * 4, 0.0f) {}
  float* at(int x, int y) { return &rgba[(static_cast<size_t>(y) * width + x) * 4]; }
  const float* at(int x, int y) const { return &rgba[(static_cast<size_t>(y) * width + x) * 4]; }
};

// The edge-adaptive scaling of input to outputWidth x outputHeight; alpha 1.
Picture referenceTovu(const Picture& input, int outputWidth, int outputHeight);

// The sharpening at the input's size; alpha 1. Taps beyond the edge read the nearest edge pixel,
// where the shader's fetch is undefined, so only the interior is comparable.
Picture referenceNalt(const Picture& input, float sharpness);
