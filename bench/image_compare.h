// Pictures as the benchmarks compare them: linear RGBA floats, top row first, against a reference.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zvr::bench {

using Image = std::vector<float>;  // RGBA, rows top to bottom

// The first three channels of an image file of `size` x `size` pixels; alpha is set to 1.
bool readRgb(const std::string& path, uint32_t size, Image& out, std::string* error);
// RMSE over the RGB of all pixels.
double rmse(const Image& a, const Image& b);
// The mean of each `block` x `block` square: pixel filters differ between renderers, block
// averages do not care.
Image blockAverage(const Image& a, uint32_t size, uint32_t block);
// Filtered sums (RGB and weight) divided by their weight.
Image normalize(const std::vector<float>& sums);

}  // namespace zvr::bench
