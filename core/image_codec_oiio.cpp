// The codec library: OpenImageIO behind the ImageCodec interface.
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

#include "core/image_codec.h"

namespace zvr::core {
namespace {

OIIO::TypeDesc typeOf(PixelType type) {
  switch (type) {
    case PixelType::UInt8: return OIIO::TypeDesc::UINT8;
    case PixelType::Half: return OIIO::TypeDesc::HALF;
    case PixelType::Float: break;
  }
  return OIIO::TypeDesc::FLOAT;
}

class OiioReader : public ImageReader {
 public:
  OiioReader(std::unique_ptr<OIIO::Filesystem::IOMemReader> memory, std::unique_ptr<OIIO::ImageInput> input)
      : memory_(std::move(memory)), input_(std::move(input)) {}
  int width() const override { return input_->spec().width; }
  int height() const override { return input_->spec().height; }
  int channels() const override { return input_->spec().nchannels; }
  bool readFloats(int channels, float* out, std::string* error) override {
    if (input_->read_image(0, 0, 0, channels, OIIO::TypeDesc::FLOAT, out)) return true;
    *error = input_->geterror();
    return false;
  }

 private:
  std::unique_ptr<OIIO::Filesystem::IOMemReader> memory_;  // before the input, which reads from it
  std::unique_ptr<OIIO::ImageInput> input_;
};

class OiioCodec : public ImageCodec {
 public:
  std::unique_ptr<ImageReader> openFile(const std::string& path, std::string* error) const override {
    auto input = OIIO::ImageInput::open(path);
    if (!input) {
      *error = OIIO::geterror();
      return nullptr;
    }
    return std::make_unique<OiioReader>(nullptr, std::move(input));
  }

  std::unique_ptr<ImageReader> openMemory(const std::string& name, const void* bytes, size_t size,
                                          std::string* error) const override {
    auto memory = std::make_unique<OIIO::Filesystem::IOMemReader>(bytes, size);
    auto input = OIIO::ImageInput::open(name, nullptr, memory.get());
    if (!input) {
      *error = OIIO::geterror();
      return nullptr;
    }
    return std::make_unique<OiioReader>(std::move(memory), std::move(input));
  }

  bool write(const ImageWrite& w, std::string* error) const override {
    OIIO::ImageSpec spec(w.width, w.height, w.channels, typeOf(w.fileType));
    if (w.channels == 4) spec.alpha_channel = 3;
    if (w.colorSpace) spec.attribute("oiio:ColorSpace", w.colorSpace);
    auto output = OIIO::ImageOutput::create(w.format);
    if (!output) {
      *error = std::string("no writer for ") + w.format + ": " + OIIO::geterror();
      return false;
    }
    if (!output->open(w.path, spec)) {
      *error = "cannot be opened for writing: " + output->geterror();
      return false;
    }
    if (!output->write_image(typeOf(w.sourceType), w.pixels)) {
      *error = "writing failed: " + output->geterror();
      output->close();
      return false;
    }
    if (!output->close()) {
      *error = "closing failed: " + output->geterror();
      return false;
    }
    return true;
  }
};

}  // namespace
}  // namespace zvr::core

extern "C" __attribute__((visibility("default"))) const zvr::core::ImageCodec* zvrImageCodec() {
  static const zvr::core::OiioCodec codec;
  return &codec;
}
