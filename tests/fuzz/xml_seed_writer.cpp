// Turns glTF scenes into XML scene documents for the XML fuzzer's seeds, at run time, so no
// third-party scene is copied into the repository: xml_seed_writer OUTPUT_FOLDER SCENE...
#include <cstdio>
#include <string>

#include "loadstore/load_error.h"
#include "loadstore/scene_file.h"
#include "loadstore/xml_writer.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s OUTPUT_FOLDER SCENE...\n", argv[0]);
    return 2;
  }
  int written = 0;
  for (int i = 2; i < argc; ++i) {
    const std::string scene = argv[i];
    const std::string name = scene.substr(scene.find_last_of('/') + 1);
    try {
      zvr::loadstore::saveSceneXml(zvr::loadstore::readSceneFile(scene), std::string(argv[1]) + "/" + name + ".xml");
      ++written;
    } catch (const zvr::loadstore::LoadError& error) {
      std::fprintf(stderr, "%s\n", error.what());
    }
  }
  std::printf("%d XML seeds in %s\n", written, argv[1]);
  return 0;
}
