#include "core/image_save.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfOutputFile.h>
#include <OpenImageIO/imageio.h>
#include <Imath/half.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <set>

#include "core/atomic_file.h"
#include "core/deep_exr.h"
#include "core/failure.h"
#include "core/framebuffer.h"

namespace zvr::core {
namespace {

struct FileFormat {
  const char* extension;
  const char* oiioName;
  int channels;
  bool eightBit;
};

const FileFormat kFormats[] = {
    {"png", "png", 4, true},   {"jpg", "jpeg", 3, true},   {"jpeg", "jpeg", 3, true}, {"bmp", "bmp", 3, true},
    {"tga", "targa", 4, true}, {"hdr", "hdr", 3, false},   {"exr", "openexr", 4, false},
    {"tif", "tiff", 4, false}, {"tiff", "tiff", 4, false},
};

// The file name's extension without the dot, lower-cased; empty when there is none.
std::string lowerCaseExtension(const std::string& path) {
  const size_t dot = path.rfind('.');
  const size_t slash = path.rfind('/');
  std::string extension;
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) extension = path.substr(dot + 1);
  std::transform(extension.begin(), extension.end(), extension.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return extension;
}

const FileFormat& formatFor(const std::string& path) {
  const std::string extension = lowerCaseExtension(path);
  for (const FileFormat& format : kFormats)
    if (extension == format.extension) return format;
  fail(ZVR_ERROR_IO, path + ": unknown image file extension \"" + extension +
                         "\" (known: png, jpg, jpeg, bmp, tga, hdr, exr, tif, tiff)");
}

}  // namespace

unsigned char encode8Bit(float value, unsigned content, bool isAlpha, float displayGamma) {
  float v = std::isnan(value) ? 0.0f : std::clamp(value, 0.0f, 1.0f);
  if (!isAlpha && content == ZVR_FRAMEBUFFER_CONTENT_LINEAR) v = std::pow(v, 1.0f / displayGamma);
  return static_cast<unsigned char>(std::lround(v * 255.0f));
}

void saveImage(const FrameBuffer& frameBuffer, const std::string& path, float displayGamma, bool exrFloat32) {
  const FileFormat& format = formatFor(path);
  // Other formats cannot hold depth samples; they get the flat sums like any framebuffer.
  if (frameBuffer.isDeep() && std::string(format.oiioName) == "openexr") return saveDeepExr(frameBuffer, path, exrFloat32);
  ZvrFramebufferContent content;
  const std::vector<float> pixels = frameBuffer.read(&content);
  const uint32_t width = frameBuffer.width(), height = frameBuffer.height();
  const size_t count = size_t(width) * height;
  const int channels = format.channels;

  OIIO::TypeDesc fileType = OIIO::TypeDesc::FLOAT;
  if (format.eightBit) fileType = OIIO::TypeDesc::UINT8;
  if (std::string(format.oiioName) == "openexr" && !exrFloat32) fileType = OIIO::TypeDesc::HALF;
  OIIO::ImageSpec spec(int(width), int(height), channels, fileType);
  if (channels == 4) spec.alpha_channel = 3;
  if (format.eightBit) spec.attribute("oiio:ColorSpace", content == ZVR_FRAMEBUFFER_CONTENT_DATA ? "Linear" : "sRGB");

  std::vector<unsigned char> bytes;
  std::vector<float> floats;
  const void* source;
  OIIO::TypeDesc sourceType;
  if (format.eightBit) {
    bytes.resize(count * channels);
    for (size_t i = 0; i < count; ++i)
      for (int c = 0; c < channels; ++c)
        bytes[i * channels + c] = encode8Bit(pixels[i * 4 + c], content, c == 3, displayGamma);
    source = bytes.data();
    sourceType = OIIO::TypeDesc::UINT8;
  } else {
    floats.resize(count * channels);
    for (size_t i = 0; i < count; ++i)
      for (int c = 0; c < channels; ++c) floats[i * channels + c] = pixels[i * 4 + c];
    source = floats.data();
    sourceType = OIIO::TypeDesc::FLOAT;
  }

  writeAtomically(path, [&](const std::string& temporary) {
    auto output = OIIO::ImageOutput::create(format.oiioName);
    if (!output) fail(ZVR_ERROR_IO, path + ": no writer for " + format.oiioName + ": " + OIIO::geterror());
    if (!output->open(temporary, spec)) fail(ZVR_ERROR_IO, path + ": cannot be opened for writing: " + output->geterror());
    if (!output->write_image(sourceType, source)) {
      std::string error = output->geterror();
      output->close();
      fail(ZVR_ERROR_IO, path + ": writing failed: " + error);
    }
    if (!output->close()) fail(ZVR_ERROR_IO, path + ": closing failed: " + output->geterror());
  });
}

void saveMultilayerExr(const std::vector<const FrameBuffer*>& frameBuffers, const std::string& path, bool exrFloat32) {
  if (frameBuffers.empty()) fail(ZVR_ERROR_INVALID_ARGUMENT, path + ": no framebuffers to save");
  if (lowerCaseExtension(path) != "exr") fail(ZVR_ERROR_IO, path + ": a multilayer image must be an .exr file");
  const uint32_t width = frameBuffers[0]->width(), height = frameBuffers[0]->height();
  std::set<std::string> names;
  std::vector<std::vector<float>> pixels;
  for (size_t i = 0; i < frameBuffers.size(); ++i) {
    // A deep framebuffer also holds the flat sums, which is what a layer of this file carries.
    const FrameBuffer& fb = *frameBuffers[i];
    if (fb.width() != width || fb.height() != height)
      fail(ZVR_ERROR_INVALID_ARGUMENT, path + ": framebuffer " + std::to_string(i) + " is " + std::to_string(fb.width()) +
                                           "x" + std::to_string(fb.height()) + ", the first is " + std::to_string(width) +
                                           "x" + std::to_string(height));
    const std::string name = fb.name().empty() ? "layer" + std::to_string(i) : fb.name();
    if (!names.insert(name).second)
      fail(ZVR_ERROR_INVALID_ARGUMENT, path + ": two framebuffers carry the layer name \"" + name + "\"");
    pixels.push_back(fb.read());
  }

  // The slices hold the file's own pixel type: OpenEXR does not convert float to half on write.
  const Imf::PixelType fileType = exrFloat32 ? Imf::FLOAT : Imf::HALF;
  std::vector<std::vector<Imath::half>> halves;
  if (!exrFloat32)
    for (const std::vector<float>& layer : pixels) halves.emplace_back(layer.begin(), layer.end());
  Imf::Header header(static_cast<int>(width), static_cast<int>(height));
  Imf::FrameBuffer slices;
  const size_t valueSize = exrFloat32 ? sizeof(float) : sizeof(Imath::half);
  const size_t xStride = 4 * valueSize, yStride = xStride * width;
  static const char* const kChannels[4] = {"R", "G", "B", "A"};
  auto addLayer = [&](const std::string& prefix, size_t index) {
    char* base = exrFloat32 ? reinterpret_cast<char*>(pixels[index].data()) : reinterpret_cast<char*>(halves[index].data());
    for (int c = 0; c < 4; ++c) {
      const std::string channel = prefix + kChannels[c];
      header.channels().insert(channel, Imf::Channel(fileType));
      slices.insert(channel, Imf::Slice(fileType, base + c * valueSize, xStride, yStride));
    }
  };
  for (size_t i = 0; i < frameBuffers.size(); ++i) {
    const std::string name = frameBuffers[i]->name().empty() ? "layer" + std::to_string(i) : frameBuffers[i]->name();
    addLayer(name + ".", i);
    if (name == "color") addLayer("", i);
  }
  writeAtomically(path, [&](const std::string& temporary) {
    Imf::OutputFile file(temporary.c_str(), header);
    file.setFrameBuffer(slices);
    file.writePixels(int(height));
  });
}

}  // namespace zvr::core
