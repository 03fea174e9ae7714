#include "core/image_decode.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "core/data_id.h"
#include "core/failure.h"
#include "core/image_codec.h"
#include "core/png_decode.h"

namespace zvr::core {
namespace {

void checkColorSpace(uint32_t colorSpace) {
  if (colorSpace > ZVR_IMAGE_COLORSPACE_SRGB)
    fail(ZVR_ERROR_INVALID_ARGUMENT, "image colour space " + std::to_string(colorSpace) + " is not 0 (linear) or 1 (sRGB)");
}

float halfToFloat(uint16_t h) {
  const uint32_t sign = uint32_t(h & 0x8000) << 16;
  uint32_t exponent = (h >> 10) & 0x1f, mantissa = h & 0x3ff, bits;
  if (exponent == 0) {
    if (mantissa == 0) {
      bits = sign;
    } else {
      exponent = 127 - 15 + 1;
      while (!(mantissa & 0x400)) {
        mantissa <<= 1;
        --exponent;
      }
      bits = sign | (exponent << 23) | ((mantissa & 0x3ff) << 13);
    }
  } else if (exponent == 31) {
    bits = sign | 0x7f800000 | (mantissa << 13);
  } else {
    bits = sign | ((exponent + 127 - 15) << 23) | (mantissa << 13);
  }
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

bool startsAsPng(const unsigned char* bytes, size_t size) { return size >= 4 && std::memcmp(bytes, "\x89PNG", 4) == 0; }

// A name with the right extension lets OpenImageIO pick the reader for bytes in memory.
const char* nameForSignature(const unsigned char* b, size_t n) {
  auto starts = [&](const char* magic, size_t len) { return n >= len && std::memcmp(b, magic, len) == 0; };
  if (startsAsPng(b, n)) return "memory.png";
  if (starts("\xff\xd8\xff", 3)) return "memory.jpg";
  if (starts("\x76\x2f\x31\x01", 4)) return "memory.exr";
  if (starts("#?", 2)) return "memory.hdr";
  if (starts("BM", 2)) return "memory.bmp";
  if (starts("II*\0", 4) || starts("MM\0*", 4)) return "memory.tif";
  if (starts("GIF8", 4)) return "memory.gif";
  if (n >= 12 && starts("RIFF", 4) && std::memcmp(b + 8, "WEBP", 4) == 0) return "memory.webp";
  if (starts("8BPS", 4)) return "memory.psd";
  return nullptr;
}

// A cut-off PNG or JPEG makes the decoder jump out of its own cleanup; refuse it at the door.
void checkComplete(const unsigned char* b, size_t n, const std::string& name) {
  static const unsigned char kPngEnd[8] = {'I', 'E', 'N', 'D', 0xae, 0x42, 0x60, 0x82};
  if (name == "memory.png" && (n < 8 + 12 || std::memcmp(b + n - 8, kPngEnd, 8) != 0))
    fail(ZVR_ERROR_IO, "encoded PNG image in memory (" + std::to_string(n) + " bytes) is truncated: it does not end with IEND");
  if (name == "memory.png") {
    // A chunk length that runs past the end makes the decoder hit the end mid-row, and libpng's
    // jump out of the reader leaks the reader's error text; the chunks must tile the file.
    size_t at = 8;
    while (at + 12 <= n) {
      const uint64_t length = uint64_t(b[at]) << 24 | uint64_t(b[at + 1]) << 16 | uint64_t(b[at + 2]) << 8 | b[at + 3];
      if (length > n - at - 12) break;
      at += 12 + length;
      if (std::memcmp(b + at - length - 8, "IEND", 4) == 0) break;
    }
    if (at != n)
      fail(ZVR_ERROR_IO, "encoded PNG image in memory (" + std::to_string(n) + " bytes) has a chunk at byte " +
                             std::to_string(at) + " that does not fit the file");
  }
  if (name == "memory.jpg") {
    size_t end = n;
    while (end > 2 && b[end - 1] == 0) --end;  // some writers pad after the end marker
    if (end < 4 || b[end - 2] != 0xff || b[end - 1] != 0xd9)
      fail(ZVR_ERROR_IO, "encoded JPEG image in memory (" + std::to_string(n) + " bytes) is truncated: it does not end with EOI");
  }
}

// 16384 x 16384 RGBA floats are 4 GiB. A file header can claim far more than it holds, so the
// size is checked before anything is allocated for it; it also keeps width x height x channels
// from wrapping around in 64 bits.
constexpr uint64_t kLargestImagePixels = uint64_t(16384) * 16384;

void checkImageSize(uint64_t width, uint64_t height, ZvrStatus status, const std::string& what) {
  if (width > kLargestImagePixels || height > kLargestImagePixels || width * height > kLargestImagePixels)
    fail(status, what + ": " + std::to_string(width) + " x " + std::to_string(height) +
                                         " pixels is more than the 16384 x 16384 an image may hold");
}

// OpenImageIO's GIF reader allocates the whole screen when it opens the file, before the size
// can be checked from its spec: a 17-byte header claiming 29232 x 17751 pixels took 2 GB.
void checkGifScreen(const unsigned char* b, size_t n, const std::string& what) {
  if (n < 10 || std::memcmp(b, "GIF8", 4) != 0) return;
  checkImageSize(uint64_t(b[6] | b[7] << 8), uint64_t(b[8] | b[9] << 8), ZVR_ERROR_IO, what);
}

// PNGs are decoded by libpng here rather than through OpenImageIO, whose libpng prints its
// complaints on standard error; here they become the failure's text.
std::shared_ptr<const zvr::ImageData> decodePngImage(const unsigned char* bytes, size_t size, const std::string& what,
                                                     uint32_t colorSpace) {
  PngImage png = decodePng(bytes, size, kLargestImagePixels);
  checkImageSize(png.width, png.height, ZVR_ERROR_IO, what);
  if (!png.decoded) fail(ZVR_ERROR_IO, what + " cannot be decoded: " + png.messages);
  if (png.width == 0 || png.height == 0) fail(ZVR_ERROR_IO, what + ": the image has no pixels");
  auto image = std::make_shared<zvr::ImageData>();
  image->id = nextDataId();
  image->width = png.width;
  image->height = png.height;
  image->channels = png.channels;
  image->colorSpace = zvr::ColorSpace(colorSpace);
  image->pixels = std::move(png.pixels);
  return image;
}

std::shared_ptr<const zvr::ImageData> readAll(ImageReader& input, const std::string& what, uint32_t colorSpace) {
  if (input.width() <= 0 || input.height() <= 0 || input.channels() <= 0)
    fail(ZVR_ERROR_IO, what + ": the image has no pixels");
  checkImageSize(uint64_t(input.width()), uint64_t(input.height()), ZVR_ERROR_IO, what);
  auto image = std::make_shared<zvr::ImageData>();
  image->id = nextDataId();
  image->width = uint32_t(input.width());
  image->height = uint32_t(input.height());
  image->channels = uint32_t(std::min(input.channels(), 4));
  image->colorSpace = zvr::ColorSpace(colorSpace);
  image->pixels.resize(size_t(image->width) * image->height * image->channels);
  std::string error;
  if (!input.readFloats(int(image->channels), image->pixels.data(), &error)) fail(ZVR_ERROR_IO, what + ": " + error);
  return image;
}

}  // namespace

std::shared_ptr<const zvr::ImageData> imageFromPixels(const ZvrImageDesc& desc, const void* data) {
  if (!data) fail(ZVR_ERROR_INVALID_ARGUMENT, "image data is null");
  if (desc.width == 0 || desc.height == 0) fail(ZVR_ERROR_INVALID_ARGUMENT, "image size is 0");
  checkImageSize(desc.width, desc.height, ZVR_ERROR_INVALID_ARGUMENT, "image");
  if (desc.numComponents < 1 || desc.numComponents > 4)
    fail(ZVR_ERROR_INVALID_ARGUMENT, "image has " + std::to_string(desc.numComponents) + " components, not 1 to 4");
  checkColorSpace(desc.colorSpace);
  auto image = std::make_shared<zvr::ImageData>();
  image->id = nextDataId();
  image->width = desc.width;
  image->height = desc.height;
  image->channels = desc.numComponents;
  image->colorSpace = zvr::ColorSpace(desc.colorSpace);
  const size_t count = size_t(desc.width) * desc.height * desc.numComponents;
  image->pixels.resize(count);
  switch (desc.componentType) {
    case ZVR_COMPONENT_TYPE_UINT8: {
      const auto* in = static_cast<const uint8_t*>(data);
      for (size_t i = 0; i < count; ++i) image->pixels[i] = in[i] / 255.0f;
      break;
    }
    case ZVR_COMPONENT_TYPE_FLOAT16: {
      const auto* in = static_cast<const uint16_t*>(data);
      for (size_t i = 0; i < count; ++i) image->pixels[i] = halfToFloat(in[i]);
      break;
    }
    case ZVR_COMPONENT_TYPE_FLOAT32: std::memcpy(image->pixels.data(), data, count * sizeof(float)); break;
    default:
      fail(ZVR_ERROR_INVALID_ARGUMENT, "image component type " + std::to_string(desc.componentType) +
                                           " is not 1 (uint8), 2 (float16) or 3 (float32)");
  }
  return image;
}

std::shared_ptr<const zvr::ImageData> imageFromFile(const std::string& path, uint32_t colorSpace) {
  checkColorSpace(colorSpace);
  std::ifstream file(path, std::ios::binary);
  char signature[4] = {};
  if (file.read(signature, 4) && startsAsPng(reinterpret_cast<const unsigned char*>(signature), 4)) {
    file.seekg(0);
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    return decodePngImage(bytes.data(), bytes.size(), path, colorSpace);
  }
  std::string error;
  auto input = imageCodec().openFile(path, &error);
  if (!input) fail(ZVR_ERROR_IO, path + ": cannot be read as an image: " + error);
  return readAll(*input, path, colorSpace);
}

std::shared_ptr<const zvr::ImageData> imageFromMemory(const void* bytes, size_t size, uint32_t colorSpace) {
  checkColorSpace(colorSpace);
  if (!bytes || size == 0) fail(ZVR_ERROR_INVALID_ARGUMENT, "encoded image bytes are null or empty");
  const char* name = nameForSignature(static_cast<const unsigned char*>(bytes), size);
  if (!name) fail(ZVR_ERROR_IO, "encoded image in memory (" + std::to_string(size) + " bytes) has no known file signature");
  checkComplete(static_cast<const unsigned char*>(bytes), size, name);
  const std::string what = std::string("encoded image in memory (") + (name + 7) + ", " + std::to_string(size) + " bytes)";
  if (std::strcmp(name, "memory.png") == 0)
    return decodePngImage(static_cast<const unsigned char*>(bytes), size, what, colorSpace);
  checkGifScreen(static_cast<const unsigned char*>(bytes), size, what);
  std::string error;
  auto input = imageCodec().openMemory(name, bytes, size, &error);
  if (!input) fail(ZVR_ERROR_IO, what + " cannot be decoded: " + error);
  return readAll(*input, what, colorSpace);
}

ZvrImageDesc describeImage(const zvr::ImageData& image) {
  ZvrImageDesc desc{};
  desc.width = image.width;
  desc.height = image.height;
  desc.numComponents = image.channels;
  desc.componentType = ZVR_COMPONENT_TYPE_FLOAT32;
  desc.colorSpace = uint32_t(image.colorSpace);
  return desc;
}

}  // namespace zvr::core
