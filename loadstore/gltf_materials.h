// glTF materials, textures and samplers into the description.
#pragma once

#include <string>

#include "loadstore/scene_description.h"

namespace tinygltf {
class Model;
}

namespace zvr::loadstore {

// Appends one description material per glTF material, in file order; textures name glTF image
// indices, so images keep their file order too.
void readGltfMaterials(const tinygltf::Model& model, const std::string& file, SceneDescription* scene);

}  // namespace zvr::loadstore
