// Copies a framebuffer into another through the context's attached post effects.
#pragma once

#include <cstdint>

namespace zvr::core {

class Context;
class FrameBuffer;

// With `dataOnly`, only the normalization runs and the result holds data; otherwise every effect
// runs in attachment order and the result is display-encoded once a gamma correction has run.
void resolveFrameBuffer(const Context& context, const FrameBuffer& source, FrameBuffer& destination, bool dataOnly);

}  // namespace zvr::core
