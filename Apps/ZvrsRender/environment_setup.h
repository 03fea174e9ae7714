// The user's sky: the configuration keys "environment" (a lat-long image path or three numbers),
// "environment.intensity" and "environment.rotation" (degrees about up), given to the scene.
#pragma once

#include <string>

#include "engine/ZvrCore.h"
#include "program/config_document.h"

namespace zvrs {

// Without the "environment" key the scene keeps its own lights. A file that cannot be read, or a
// key of the wrong shape, stops the run before anything renders.
void setUpEnvironment(const ConfigDocument& document, ZvrContext context, ZvrScene scene);

// Exports the scene file as the XML document `outPath`; with an "environment" key the document
// carries that sky instead of the scene's own. An image file that cannot be opened stops the run;
// otherwise the export's answer is not checked, as for an export without a sky.
void exportSceneXml(const std::string& sceneFile, const ConfigDocument& document, const char* outPath);

}  // namespace zvrs
