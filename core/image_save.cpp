#include "core/image_save.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfOutputFile.h>
#include <Imath/half.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <set>

#include "core/atomic_file.h"
#include "core/cryptomatte_manifest.h"
#include "core/deep_exr.h"
#include "core/failure.h"
#include "core/framebuffer.h"
#include "core/image_codec.h"
#include "core/png_write.h"

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

  ImageWrite request;
  request.format = format.oiioName;
  request.width = int(width);
  request.height = int(height);
  request.channels = channels;
  request.fileType = PixelType::Float;
  if (format.eightBit) request.fileType = PixelType::UInt8;
  if (std::string(format.oiioName) == "openexr" && !exrFloat32) request.fileType = PixelType::Half;
  if (format.eightBit) request.colorSpace = content == ZVR_FRAMEBUFFER_CONTENT_DATA ? "Linear" : "sRGB";

  std::vector<unsigned char> bytes;
  std::vector<float> floats;
  if (format.eightBit) {
    bytes.resize(count * channels);
    for (size_t i = 0; i < count; ++i)
      for (int c = 0; c < channels; ++c)
        bytes[i * channels + c] = encode8Bit(pixels[i * 4 + c], content, c == 3, displayGamma);
    request.pixels = bytes.data();
    request.sourceType = PixelType::UInt8;
  } else {
    floats.resize(count * channels);
    for (size_t i = 0; i < count; ++i)
      for (int c = 0; c < channels; ++c) floats[i * channels + c] = pixels[i * 4 + c];
    request.pixels = floats.data();
    request.sourceType = PixelType::Float;
  }

  if (std::string(format.oiioName) == "png") {
    writeAtomically(path, [&](const std::string& temporary) {
      std::string error;
      if (!writePng(temporary, request.width, request.height, channels, bytes.data(),
                    content == ZVR_FRAMEBUFFER_CONTENT_DATA, &error))
        fail(ZVR_ERROR_IO, path + ": " + error);
    });
    return;
  }
  const ImageCodec& codec = imageCodec();
  writeAtomically(path, [&](const std::string& temporary) {
    request.path = temporary;
    std::string error;
    if (!codec.write(request, &error)) fail(ZVR_ERROR_IO, path + ": " + error);
  });
}

void saveMultilayerExr(const std::vector<const FrameBuffer*>& frameBuffers, const std::string& path, bool exrFloat32,
                       const CryptomatteNames& cryptomatteNames) {
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
  // Cryptomatte ids are float bit patterns, which half would destroy: their layers stay float.
  std::vector<std::string> layerNames, cryptoTypes;
  for (size_t i = 0; i < frameBuffers.size(); ++i) {
    layerNames.push_back(frameBuffers[i]->name().empty() ? "layer" + std::to_string(i) : frameBuffers[i]->name());
    const std::string type = cryptomatteTypeOf(layerNames.back());
    if (!type.empty() && std::find(cryptoTypes.begin(), cryptoTypes.end(), type) == cryptoTypes.end())
      cryptoTypes.push_back(type);
  }
  std::vector<std::vector<Imath::half>> halves(pixels.size());
  Imf::Header header(static_cast<int>(width), static_cast<int>(height));
  Imf::FrameBuffer slices;
  static const char* const kChannels[4] = {"R", "G", "B", "A"};
  auto addLayer = [&](const std::string& prefix, size_t index) {
    const bool asFloat = exrFloat32 || !cryptomatteTypeOf(layerNames[index]).empty();
    const Imf::PixelType type = asFloat ? Imf::FLOAT : Imf::HALF;
    if (!asFloat && halves[index].empty()) halves[index].assign(pixels[index].begin(), pixels[index].end());
    const size_t valueSize = asFloat ? sizeof(float) : sizeof(Imath::half);
    const size_t xStride = 4 * valueSize, yStride = xStride * width;
    char* base = asFloat ? reinterpret_cast<char*>(pixels[index].data()) : reinterpret_cast<char*>(halves[index].data());
    for (int c = 0; c < 4; ++c) {
      const std::string channel = prefix + kChannels[c];
      header.channels().insert(channel, Imf::Channel(type));
      slices.insert(channel, Imf::Slice(type, base + c * valueSize, xStride, yStride));
    }
  };
  for (size_t i = 0; i < frameBuffers.size(); ++i) {
    addLayer(layerNames[i] + ".", i);
    if (layerNames[i] == "color") addLayer("", i);
  }
  for (const std::string& type : cryptoTypes) addCryptomatteAttributes(header, type, cryptomatteNames);
  writeAtomically(path, [&](const std::string& temporary) {
    Imf::OutputFile file(temporary.c_str(), header);
    file.setFrameBuffer(slices);
    file.writePixels(int(height));
  });
}

}  // namespace zvr::core
