// Attaches or detaches the render layers named in the configuration's "layers" block.
#pragma once

#include "ZvrCore.h"
#include "config_document.h"

void ApplyRenderLayers(const ConfigDocument& document, ZvrContext context);
