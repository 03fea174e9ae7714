// Creates the description's objects through the render library's public interface.
#pragma once

#include <string>
#include <vector>

#include "core/failure.h"
#include "engine/ZvrCore.h"
#include "loadstore/import_state.h"
#include "loadstore/scene_description.h"

namespace zvr::loadstore {

// A render library call that failed during an import; carries its status.
class CoreCallError : public zvr::core::Failure {
 public:
  using zvr::core::Failure::Failure;
};

// Builds a new scene holding every object and makes it the context's scene. On failure every
// object made so far is deleted again and CoreCallError is thrown.
ZvrScene instantiateScene(const SceneDescription& scene, const std::string& file, ZvrContext context,
                          ZvrMaterialSystem materialSystem, ImportResult* result, std::vector<CreatedObject>* created);

}  // namespace zvr::loadstore
