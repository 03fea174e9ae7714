#include "core/png_decode.h"

#include <png.h>

#include <csetjmp>
#include <cstring>

namespace zvr::core {
namespace {

struct Source {
  const unsigned char* bytes;
  size_t size;
  size_t at;
  PngImage* result;
};

// Called from inside libpng, which is C: nothing may be thrown from here.
void keepMessage(png_structp png, png_const_charp message) {
  std::string& messages = static_cast<Source*>(png_get_error_ptr(png))->result->messages;
  try {
    if (!messages.empty()) messages += "; ";
    messages += message ? message : "unknown libpng error";
  } catch (...) {
  }
}

void onError(png_structp png, png_const_charp message) {
  keepMessage(png, message);
  png_longjmp(png, 1);
}

void readBytes(png_structp png, png_bytep out, size_t count) {
  Source* source = static_cast<Source*>(png_get_io_ptr(png));
  if (count > source->size - source->at) png_error(png, "the data ends inside a chunk");
  std::memcpy(out, source->bytes + source->at, count);
  source->at += count;
}

// The rows arrive as 8- or 16-bit samples (big-endian); libpng leaves by longjmp on an error, so
// everything this frame touches lives in the caller's.
bool decodeRows(png_structp png, png_infop info, PngImage* result, uint64_t largestPixels,
                std::vector<unsigned char>* rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_info(png, info);
  result->width = png_get_image_width(png, info);
  result->height = png_get_image_height(png, info);
  if (uint64_t(result->width) * result->height > largestPixels) return false;
  png_set_expand(png);  // palettes to RGB, grey below 8 bits to 8, tRNS to an alpha channel
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  result->channels = png_get_channels(png, info);
  const size_t rowBytes = png_get_rowbytes(png, info);
  rows->resize(rowBytes * result->height);
  for (int pass = 0; pass < passes; ++pass)
    for (uint32_t y = 0; y < result->height; ++y) png_read_row(png, rows->data() + rowBytes * y, nullptr);
  png_read_end(png, nullptr);
  const bool sixteenBits = png_get_bit_depth(png, info) == 16;
  const size_t count = size_t(result->width) * result->height * result->channels;
  result->pixels.resize(count);
  for (size_t i = 0; i < count; ++i)
    result->pixels[i] = sixteenBits ? float((*rows)[2 * i] << 8 | (*rows)[2 * i + 1]) / 65535.0f : (*rows)[i] / 255.0f;
  return true;
}

struct ReadStruct {
  png_structp png = nullptr;
  png_infop info = nullptr;
  ~ReadStruct() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

}  // namespace

PngImage decodePng(const unsigned char* bytes, size_t size, uint64_t largestPixels) {
  PngImage result;
  Source source{bytes, size, 0, &result};
  ReadStruct read;
  read.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &source, onError, keepMessage);
  if (read.png) read.info = png_create_info_struct(read.png);
  if (!read.info) {
    result.messages = "libpng could not start";
    return result;
  }
  png_set_read_fn(read.png, &source, readBytes);
  std::vector<unsigned char> rows;
  result.decoded = decodeRows(read.png, read.info, &result, largestPixels, &rows);
  if (!result.decoded) result.pixels.clear();
  return result;
}

}  // namespace zvr::core
