#include "core/png_write.h"

#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace zvr::core {
namespace {

// Called from inside libpng, which is C: nothing may be thrown from here.
void keepError(png_structp png, png_const_charp message) {
  auto* error = static_cast<std::string*>(png_get_error_ptr(png));
  try {
    *error = message ? message : "unknown libpng error";
  } catch (...) {
  }
  png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

// libpng leaves by longjmp on an error, so nothing in this frame may need a destructor.
bool encode(png_structp png, png_infop info, std::FILE* file, int width, int height, int channels,
            png_bytepp rows, bool linearData) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8,
               channels == 4 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (linearData) png_set_gAMA(png, info, 1.0);
  else png_set_sRGB_gAMA_and_cHRM(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
  png_set_rows(png, info, rows);
  png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  return true;
}

}  // namespace

bool writePng(const std::string& path, int width, int height, int channels, const unsigned char* pixels, bool linearData,
              std::string* error) {
  if (width <= 0 || height <= 0 || (channels != 3 && channels != 4)) {
    *error = "a PNG file of " + std::to_string(width) + " x " + std::to_string(height) + " pixels with " +
             std::to_string(channels) + " channels cannot be written";
    return false;
  }
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) {
    *error = "cannot be opened for writing: " + std::string(std::strerror(errno));
    return false;
  }
  std::vector<png_bytep> rows(static_cast<size_t>(height));
  for (int y = 0; y < height; ++y) rows[size_t(y)] = const_cast<png_bytep>(pixels + size_t(y) * width * channels);
  std::string pngError;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &pngError, keepError, ignoreWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  bool written = png && info && encode(png, info, file, width, height, channels, rows.data(), linearData);
  if (png) png_destroy_write_struct(&png, info ? &info : nullptr);
  bool closed = std::fclose(file) == 0;
  if (!written) *error = "writing failed: " + (pngError.empty() ? std::string("libpng could not start") : pngError);
  else if (!closed) *error = "closing failed: " + std::string(std::strerror(errno));
  return written && closed;
}

}  // namespace zvr::core
