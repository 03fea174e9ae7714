// Reads a scene file of any supported format, told apart by its first bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "loadstore/scene_description.h"

namespace zvr::loadstore {

enum class SceneFormat { Glb, GltfJson, Xml, Unknown };

SceneFormat detectSceneFormat(const std::vector<uint8_t>& bytes);
std::vector<uint8_t> readWholeFile(const std::string& path);  // throws LoadError
SceneDescription readSceneFile(const std::string& path);       // throws LoadError

}  // namespace zvr::loadstore
