// The description as one self-contained, human-readable XML document.
#pragma once

#include <string>

#include "loadstore/scene_description.h"

namespace zvr::loadstore {

std::string writeSceneXml(const SceneDescription& scene);
// Writes to a temporary name beside `path` and renames it over `path`; throws LoadError.
void saveSceneXml(const SceneDescription& scene, const std::string& path);

}  // namespace zvr::loadstore
