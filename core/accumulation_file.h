// The raw accumulation of a framebuffer in a file of the library's own: the sums of filtered sample
// values and of filter weights as 64-bit floats, with the iteration count and a checksum, so a
// picture rendered in shards is merged by adding the files without losing a bit.
#pragma once

#include <string>

namespace zvr::core {

class FrameBuffer;

// Written under a temporary name and renamed; refuses deep framebuffers and those whose sums were
// replaced by resolved values or running averages.
void saveAccumulation(const FrameBuffer& frameBuffer, const std::string& path);
// Adds a file's sums and iterations to the framebuffer's; the sizes must match. Nothing is added
// unless the whole file was read and its checksum holds.
void addAccumulation(FrameBuffer& frameBuffer, const std::string& path);

}  // namespace zvr::core
