// PNG bytes into float pixels through libpng, with libpng's messages kept instead of printed: the
// one decode of a PNG, from a file or from memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zvr::core {

struct PngImage {
  bool decoded = false;
  uint32_t width = 0, height = 0;  // from the header, once it was read
  uint32_t channels = 0;           // 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA; palettes are expanded
  std::vector<float> pixels;       // row by row from the top, 0 to 1, alpha not multiplied in
  std::string messages;            // libpng's warnings and error, in order
};

// Stops after the header, without allocating pixels, when it claims more than `largestPixels`.
PngImage decodePng(const unsigned char* bytes, size_t size, uint64_t largestPixels);

}  // namespace zvr::core
