// Deep EXR files from deep framebuffers.
#pragma once

#include <string>

namespace zvr::core {

class FrameBuffer;

// One deep scan-line image: per pixel its samples nearest first (R, G, B, A premultiplied, Z and
// ZBack), scaled so that compositing them with "over" gives the flat picture.
void saveDeepExr(const FrameBuffer& frameBuffer, const std::string& path, bool float32);

}  // namespace zvr::core
