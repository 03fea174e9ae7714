// Deep EXR files from deep framebuffers.
#pragma once

#include <string>

namespace zvr::core {

class FrameBuffer;

// One deep scan-line image: per pixel its samples nearest first, each with its share of the
// pixel's filter weight (premultiplied R, G, B and A) and its depth in Z.
void saveDeepExr(const FrameBuffer& frameBuffer, const std::string& path, bool float32);

}  // namespace zvr::core
