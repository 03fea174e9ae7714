// The glTF reader on the binary container, with its embedded buffers and images.
// Links: zvr_loadstore_model
// Seeds: ../shared/scenes/gltf/*/*.glb
#include <cstddef>
#include <cstdint>
#include <vector>

#include "loadstore/gltf_reader.h"
#include "loadstore/load_error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    zvr::loadstore::readGltf("input.glb", std::vector<uint8_t>(data, data + size), true);
  } catch (const zvr::loadstore::LoadError&) {
  }
  return 0;
}
