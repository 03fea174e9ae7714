// Decoding encoded image bytes, as the render library does for images embedded in a scene.
// Links: zvr_core_images
// Seeds: ../shared/scenes/gltf/*/*.png ../shared/scenes/gltf/*/*.jpeg
#include <cstddef>
#include <cstdint>

#include "core/failure.h"
#include "core/image_decode.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    zvr::core::imageFromMemory(data, size, 0);
  } catch (const zvr::core::Failure&) {
  }
  return 0;
}
