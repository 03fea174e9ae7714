// Decoding encoded image bytes, as the render library does for images embedded in a scene. A PNG
// without alpha that both decode must give OpenImageIO's pixels: the library decodes PNGs with its
// own libpng reader, and OpenImageIO's is the second opinion.
// Links: zvr_core_images OpenImageIO OpenImageIO_Util
// Seeds: ../shared/scenes/gltf/*/*.png ../shared/scenes/gltf/*/*.jpeg
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "core/failure.h"
#include "core/image_decode.h"

namespace {

void compareWithOpenImageIO(const uint8_t* data, size_t size, const zvr::ImageData& decoded) {
  if (decoded.channels == 2 || decoded.channels == 4) return;  // OpenImageIO multiplies alpha in
  OIIO::Filesystem::IOMemReader reader(const_cast<uint8_t*>(data), size);
  auto input = OIIO::ImageInput::open("memory.png", nullptr, &reader);
  if (!input) return;
  const OIIO::ImageSpec& spec = input->spec();
  if (spec.width != int(decoded.width) || spec.height != int(decoded.height) || spec.nchannels != int(decoded.channels))
    std::abort();
  std::vector<float> pixels(decoded.pixels.size());
  if (!input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, pixels.data())) return;
  for (size_t i = 0; i < pixels.size(); ++i)
    if (std::fabs(pixels[i] - decoded.pixels[i]) > 1e-6f) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::shared_ptr<const zvr::ImageData> image;
  try {
    image = zvr::core::imageFromMemory(data, size, 0);
  } catch (const zvr::core::Failure&) {
    return 0;
  }
  if (size >= 4 && std::memcmp(data, "\x89PNG", 4) == 0) compareWithOpenImageIO(data, size, *image);
  return 0;
}
