// The glTF reader on JSON text; external buffers and images resolve beside the working folder.
// Links: zvr_loadstore_model
// Seeds: ../shared/scenes/gltf/*/*.gltf examples/*.gltf
// Resources: ../shared/scenes/gltf/*/*.bin ../shared/scenes/gltf/*/*.png ../shared/scenes/gltf/*/*.jpeg
#include <cstddef>
#include <cstdint>
#include <vector>

#include "loadstore/gltf_reader.h"
#include "loadstore/load_error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A reader failure must be a LoadError with its place; anything else escaping is a finding.
  try {
    zvr::loadstore::readGltf("input.gltf", std::vector<uint8_t>(data, data + size), false);
  } catch (const zvr::loadstore::LoadError&) {
  }
  return 0;
}
