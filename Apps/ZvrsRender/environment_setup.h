// The user's sky: the configuration keys "environment" (a lat-long image path or three numbers),
// "environment.intensity" and "environment.rotation" (degrees about up), given to the scene.
#pragma once

#include "engine/ZvrCore.h"
#include "program/config_document.h"

namespace zvrs {

// Without the "environment" key the scene keeps its own lights. A file that cannot be read, or a
// key of the wrong shape, stops the run before anything renders.
void setUpEnvironment(const ConfigDocument& document, ZvrContext context, ZvrScene scene);

}  // namespace zvrs
