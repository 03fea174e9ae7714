// Writes one output image: by the render library's writer, or for the beauty element with
// post-processing through the program's own pixel pipeline into a PNG stream.
#pragma once

#include "engine/ZvrCore.h"
#include "program/render_settings.h"

namespace zvrs {

ZvrStatus saveOutputImage(ZvrContext context, const RenderSettings& settings, ZvrFrameBuffer framebuffer,
                          const char* path, bool isColor);

}  // namespace zvrs
