#include "bench/glb_with_camera.h"

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include <nlohmann/json.hpp>

namespace zvr::bench {
namespace {

uint32_t readWord(const std::vector<char>& bytes, size_t at) {
  uint32_t word = 0;
  std::memcpy(&word, bytes.data() + at, 4);
  return word;
}

void appendWord(std::string& out, uint32_t word) { out.append(reinterpret_cast<const char*>(&word), 4); }

}  // namespace

bool writeGlbWithCamera(const std::string& source, const std::string& target, const float position[3], float yfov,
                        std::string* error) {
  std::ifstream in(source, std::ios::binary);
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // Header (magic, version, length), then the JSON chunk (length, type) and the rest as it stands.
  if (bytes.size() < 20 || std::memcmp(bytes.data(), "glTF", 4) != 0 || readWord(bytes, 16) != 0x4E4F534Au) {
    *error = source + ": not a binary glTF with a JSON chunk first";
    return false;
  }
  const size_t jsonLength = readWord(bytes, 12);
  if (20 + jsonLength > bytes.size()) {
    *error = source + ": the JSON chunk runs past the end of the file";
    return false;
  }
  nlohmann::json document = nlohmann::json::parse(bytes.begin() + 20, bytes.begin() + 20 + long(jsonLength), nullptr, false);
  if (document.is_discarded() || !document.contains("scenes") || document["scenes"].empty()) {
    *error = source + ": the JSON chunk holds no scene";
    return false;
  }
  document["cameras"].push_back(
      {{"type", "perspective"}, {"perspective", {{"yfov", yfov}, {"aspectRatio", 1.0}, {"znear", 0.01}}}});
  document["nodes"].push_back({{"name", "bench camera"},
                               {"camera", document["cameras"].size() - 1},
                               {"translation", {position[0], position[1], position[2]}}});
  const size_t scene = document.value("scene", 0);
  document["scenes"][scene]["nodes"].push_back(document["nodes"].size() - 1);

  std::string json = document.dump();
  json.append((4 - json.size() % 4) % 4, ' ');  // chunks are 4-byte aligned, JSON padded with spaces
  const std::string rest(bytes.begin() + 20 + long(jsonLength), bytes.end());
  std::string out = "glTF";
  appendWord(out, 2);
  appendWord(out, uint32_t(12 + 8 + json.size() + rest.size()));
  appendWord(out, uint32_t(json.size()));
  appendWord(out, 0x4E4F534Au);
  out += json;
  out += rest;
  std::ofstream file(target, std::ios::binary | std::ios::trunc);
  if (!file.write(out.data(), std::streamsize(out.size()))) {
    *error = target + ": cannot be written";
    return false;
  }
  return true;
}

}  // namespace zvr::bench
