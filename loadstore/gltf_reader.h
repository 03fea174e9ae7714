// glTF 2.0 (.gltf and .glb) into the description.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "loadstore/scene_description.h"

namespace zvr::loadstore {

// `bytes` is the whole file; `binary` selects the GLB container. Throws LoadError.
SceneDescription readGltf(const std::string& path, const std::vector<uint8_t>& bytes, bool binary);

}  // namespace zvr::loadstore
