// Reads the reference Cornell box glTF straight into a kernel scene snapshot, so the kernel can be
// measured without the render library in between.
#pragma once

#include <string>

#include "core/plugin_api.h"

namespace zvr::bench {

// Nodes with TRS, triangle meshes with positions, normals and indices, the metallic-roughness
// factors with emissive strength and specular, and one perspective camera. False with `error`.
bool loadGltfSnapshot(const std::string& path, SceneSnapshot& out, std::string* error);

}  // namespace zvr::bench
