// Image files from framebuffers.
#pragma once

#include <string>
#include <vector>

namespace zvr::core {

class FrameBuffer;
struct CryptomatteNames;

// The format follows the extension (png, jpg, jpeg, bmp, tga, hdr, exr, tif, tiff). 8-bit formats
// encode linear light with `displayGamma`, write display-encoded values as they are and data
// clamped; EXR is half float unless `exrFloat32`. A deep framebuffer saved as EXR is a deep EXR.
void saveImage(const FrameBuffer& frameBuffer, const std::string& path, float displayGamma, bool exrFloat32);

// One EXR with a layer per framebuffer named by its object name; the layer "color" is also the
// file's default R, G, B, A. Cryptomatte rank layers ("CryptoObject00") are written as 32-bit
// floats, with their type's attributes and a manifest of `cryptomatteNames`.
void saveMultilayerExr(const std::vector<const FrameBuffer*>& frameBuffers, const std::string& path, bool exrFloat32,
                       const CryptomatteNames& cryptomatteNames);

// Encodes one value of the given content kind to 8 bits (alpha is never gamma-encoded).
unsigned char encode8Bit(float value, unsigned content, bool isAlpha, float displayGamma);

}  // namespace zvr::core
