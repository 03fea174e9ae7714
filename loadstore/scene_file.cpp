#include "loadstore/scene_file.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "loadstore/gltf_reader.h"
#include "loadstore/load_error.h"
#include "loadstore/xml_reader.h"

namespace zvr::loadstore {

SceneFormat detectSceneFormat(const std::vector<uint8_t>& bytes) {
  if (bytes.size() >= 4 && std::memcmp(bytes.data(), "glTF", 4) == 0) return SceneFormat::Glb;
  size_t i = 0;
  if (bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) i = 3;  // UTF-8 byte order mark
  while (i < bytes.size() && (bytes[i] == ' ' || bytes[i] == '\t' || bytes[i] == '\n' || bytes[i] == '\r')) ++i;
  if (i == bytes.size()) return SceneFormat::Unknown;
  if (bytes[i] == '{') return SceneFormat::GltfJson;
  if (bytes[i] == '<') return SceneFormat::Xml;
  return SceneFormat::Unknown;
}

std::vector<uint8_t> readWholeFile(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) throw LoadError(path, "does not exist or cannot be reached");
  if (!S_ISREG(info.st_mode)) throw LoadError(path, "is not a regular file");
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) throw LoadError(path, "cannot be opened for reading");
  std::vector<uint8_t> bytes(size_t(info.st_size));
  const size_t got = bytes.empty() ? 0 : std::fread(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
  if (got != bytes.size()) throw LoadError(path, "could not be read completely");
  return bytes;
}

SceneDescription readSceneFile(const std::string& path) {
  const std::vector<uint8_t> bytes = readWholeFile(path);
  switch (detectSceneFormat(bytes)) {
    case SceneFormat::Glb: return readGltf(path, bytes, true);
    case SceneFormat::GltfJson: return readGltf(path, bytes, false);
    case SceneFormat::Xml: return readSceneXml(path, std::string(bytes.begin(), bytes.end()));
    default: break;
  }
  throw LoadError(path, bytes.empty() ? "is empty" : "is neither glTF, binary glTF nor an XML scene document");
}

}  // namespace zvr::loadstore
