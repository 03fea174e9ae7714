// The shared glTF scenes and what their JSON says an import must hold, worked out independently
// of the importer.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace zvr::testing {

inline const std::string kScenes = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/";

// A scratch folder of this test process alone (other runs on the machine share /tmp), removed
// when the process ends.
inline std::string scratchDir() {
  struct Folder {
    std::string path = ::testing::TempDir() + "/zvr-loadstore-" + std::to_string(::getpid());
    Folder() { std::filesystem::create_directories(path); }
    ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static const Folder folder;
  return folder.path;
}

inline std::vector<std::string> sharedSceneFiles() {
  std::vector<std::string> files;
  for (const auto& dir : std::filesystem::directory_iterator(std::string(ZVR_SHARED_DIR) + "/scenes/gltf"))
    for (const auto& f : std::filesystem::directory_iterator(dir.path())) {
      const std::string ext = f.path().extension().string();
      if (ext == ".gltf" || ext == ".glb") files.push_back(f.path().string());
    }
  std::sort(files.begin(), files.end());
  return files;
}

inline std::vector<uint8_t> fileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

inline nlohmann::json gltfJson(const std::string& path) {
  const std::vector<uint8_t> b = fileBytes(path);
  if (b.size() >= 20 && std::memcmp(b.data(), "glTF", 4) == 0) {
    uint32_t length;
    std::memcpy(&length, b.data() + 12, 4);
    return nlohmann::json::parse(b.begin() + 20, b.begin() + 20 + length);
  }
  return nlohmann::json::parse(b.begin(), b.end());
}

struct ExpectedCounts {
  size_t groups = 0, shapes = 0, lights = 0, cameras = 0, animationRecords = 0;
};

inline ExpectedCounts expectedCounts(const nlohmann::json& gltf) {
  ExpectedCounts c;
  const auto& nodes = gltf.value("nodes", nlohmann::json::array());
  std::vector<bool> reached(nodes.size(), false);
  std::vector<int> stack;
  const int sceneIndex = gltf.value("scene", 0);
  for (int n : gltf["scenes"][sceneIndex].value("nodes", std::vector<int>{})) stack.push_back(n);
  while (!stack.empty()) {
    const int n = stack.back();
    stack.pop_back();
    reached[n] = true;
    ++c.groups;
    const auto& node = nodes[n];
    if (node.contains("mesh"))
      for (const auto& p : gltf["meshes"][node["mesh"].get<int>()]["primitives"])
        if (p.value("mode", 4) >= 4) ++c.shapes;
    if (node.contains("camera")) ++c.cameras;
    if (node.contains("extensions") && node["extensions"].contains("KHR_lights_punctual")) ++c.lights;
    for (int child : node.value("children", std::vector<int>{})) stack.push_back(child);
  }
  for (const auto& a : gltf.value("animations", nlohmann::json::array()))
    for (const auto& ch : a["channels"]) {
      const std::string path = ch["target"]["path"];
      if (path != "weights" && reached[ch["target"]["node"].get<int>()]) ++c.animationRecords;
    }
  return c;
}

// Floats of a tightly packed float accessor, read straight from the GLB's binary chunk.
inline std::vector<float> accessorFloats(const std::string& glb, const nlohmann::json& j, int accessor) {
  const std::vector<uint8_t> bytes = fileBytes(glb);
  uint32_t jsonLength;
  std::memcpy(&jsonLength, bytes.data() + 12, 4);
  const size_t bin = 20 + jsonLength + 8;
  const auto& a = j["accessors"][accessor];
  const auto& v = j["bufferViews"][a["bufferView"].get<int>()];
  const size_t comps = a["type"] == "SCALAR" ? 1 : a["type"] == "VEC2" ? 2 : a["type"] == "VEC3" ? 3 : a["type"] == "VEC4" ? 4 : 16;
  std::vector<float> out(a["count"].get<size_t>() * comps);
  std::memcpy(out.data(), bytes.data() + bin + v.value("byteOffset", 0) + a.value("byteOffset", 0), out.size() * 4);
  return out;
}

}  // namespace zvr::testing
