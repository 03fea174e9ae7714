// The XML scene document back into the description.
#pragma once

#include <string>

#include "loadstore/scene_description.h"

namespace zvr::loadstore {

// `text` is the whole file; `path` names it in errors. Throws LoadError.
SceneDescription readSceneXml(const std::string& path, const std::string& text);
// Only the OCIO configuration, without decoding the geometry.
OcioConfig readOcioFromXml(const std::string& path, const std::string& text);

}  // namespace zvr::loadstore
