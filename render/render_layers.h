// Attaches or detaches the render layers named in the configuration's "layers" block.
#pragma once

#include "ZvrCore.h"
#include "program/config_document.h"

void ApplyRenderLayers(const ConfigDocument& document, ZvrContext context);
