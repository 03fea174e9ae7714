// Attaches or detaches the render layers named in the configuration's "layers" block.
#pragma once

#include "engine/ZvrCore.h"
#include "program/config_document.h"

namespace zvrs {

// A refused layer is reported and returned; the caller stops the run.
ZvrStatus applyRenderLayers(const ConfigDocument& document, ZvrContext context);

}  // namespace zvrs
