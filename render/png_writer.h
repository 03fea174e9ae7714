// 8-bit RGB PNG files, whatever the extension of the path.
#pragma once

#include <cstdint>

namespace zvrs {

// Rows of exactly 3 x width bytes, top row first. False when the file could not be written.
bool writePngRgb8(const char* path, uint32_t width, uint32_t height, const uint8_t* rgb);

}  // namespace zvrs
