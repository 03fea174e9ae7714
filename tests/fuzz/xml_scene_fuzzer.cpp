// The XML scene reader; whatever it accepts must be written and read back to the same document.
// Links: zvr_loadstore_model
// Seeds-via: xml_seed_writer ../shared/scenes/gltf/*/*.glb ../shared/scenes/gltf/*/*.gltf examples/*.gltf
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "loadstore/load_error.h"
#include "loadstore/xml_reader.h"
#include "loadstore/xml_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  zvr::loadstore::SceneDescription scene;
  try {
    scene = zvr::loadstore::readSceneXml("input.xml", text);
  } catch (const zvr::loadstore::LoadError&) {
    return 0;
  }
  // The exporter writes what the importer reads: a document it accepted must survive the trip.
  const std::string written = zvr::loadstore::writeSceneXml(scene);
  if (zvr::loadstore::writeSceneXml(zvr::loadstore::readSceneXml("written.xml", written)) != written) std::abort();
  return 0;
}
