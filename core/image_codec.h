// The image file readers and writers of OpenImageIO behind a small interface, built as a library
// of their own (libZvrImageCodec64.so) that the core loads on first use: OpenImageIO brings some
// 260 shared libraries with it, which a run that reads and writes no such file should not load.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace zvr::core {

enum class PixelType { UInt8, Half, Float };

class ImageReader {
 public:
  virtual ~ImageReader() = default;
  virtual int width() const = 0;
  virtual int height() const = 0;
  virtual int channels() const = 0;
  // The first `channels` channels of every pixel as floats, rows top to bottom.
  virtual bool readFloats(int channels, float* out, std::string* error) = 0;
};

struct ImageWrite {
  const char* format = nullptr;  // the reader's name: "png", "openexr", "jpeg", ...
  std::string path;
  int width = 0, height = 0, channels = 0;
  PixelType fileType = PixelType::Float;
  const char* colorSpace = nullptr;  // an "oiio:ColorSpace" tag for 8-bit files, or none
  PixelType sourceType = PixelType::Float;
  const void* pixels = nullptr;  // width x height x channels values of sourceType
};

class ImageCodec {
 public:
  virtual ~ImageCodec() = default;
  // Null with `error` when the file cannot be opened as an image.
  virtual std::unique_ptr<ImageReader> openFile(const std::string& path, std::string* error) const = 0;
  // `name`'s extension picks the reader; the bytes must outlive the reader.
  virtual std::unique_ptr<ImageReader> openMemory(const std::string& name, const void* bytes, size_t size,
                                                  std::string* error) const = 0;
  virtual bool write(const ImageWrite& request, std::string* error) const = 0;
};

// The codec library, loaded once for the process; a Failure with ZVR_ERROR_IO when it cannot be.
const ImageCodec& imageCodec();

}  // namespace zvr::core

// The one symbol the codec library exports.
extern "C" const zvr::core::ImageCodec* zvrImageCodec();
