// A sky given from outside the scene file, put into a scene description in place of its own.
#pragma once

#include "engine/ZvrLoadStore.h"
#include "loadstore/scene_description.h"

namespace zvr::loadstore {

// Embeds the image file's bytes as one more image; throws LoadError when the file cannot be read
// or holds no image signature the library decodes.
void replaceEnvironment(SceneDescription& scene, const ZvrsEnvironment& environment);

}  // namespace zvr::loadstore
