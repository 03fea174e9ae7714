// A trial decode of PNG bytes with libpng's messages kept, so that no decoder writes to standard
// error: the decoder behind OpenImageIO prints them, this one hands them back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zvr::core {

struct PngCheck {
  bool decoded = false;
  uint32_t width = 0, height = 0;  // from the header, once it was read
  std::string messages;            // libpng's warnings and error, in order
};

// Decodes every row without keeping the pixels; stops after the header when it claims more than
// `largestPixels` pixels.
PngCheck checkPng(const unsigned char* bytes, size_t size, uint64_t largestPixels);

}  // namespace zvr::core
