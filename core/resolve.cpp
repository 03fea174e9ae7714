#include "core/resolve.h"

#include "core/context.h"
#include "core/failure.h"
#include "core/framebuffer.h"
#include "core/post_effect.h"

namespace zvr::core {

void resolveFrameBuffer(const Context& context, const FrameBuffer& source, FrameBuffer& destination, bool dataOnly) {
  if (source.width() != destination.width() || source.height() != destination.height())
    fail(ZVR_ERROR_INVALID_ARGUMENT, "source is " + std::to_string(source.width()) + "x" + std::to_string(source.height()) +
                                         " but destination is " + std::to_string(destination.width()) + "x" +
                                         std::to_string(destination.height()));
  ZvrFramebufferContent content;
  uint32_t iterations;
  std::vector<float> pixels = source.read(&content, &iterations);
  if (source.holdsFinalValues()) {
    // Ids and coverages: a normalization or a tone map would turn them into other ids.
    destination.write(std::move(pixels), ZVR_FRAMEBUFFER_CONTENT_DATA, iterations);
    return;
  }
  ImageView view{pixels.data(), source.width(), source.height()};
  // The effects and the gamma may be changed by another thread while this one resolves.
  std::lock_guard<std::mutex> state(context.stateMutex);
  for (const PostEffect* effect : context.postEffects) {
    if (dataOnly && !effect->runsOnData()) continue;
    effect->apply(view, context.settings.params.displayGamma);
    if (effect->type() == ZVR_POST_EFFECT_GAMMA_CORRECTION) content = ZVR_FRAMEBUFFER_CONTENT_DISPLAY;
  }
  if (dataOnly) content = ZVR_FRAMEBUFFER_CONTENT_DATA;
  destination.write(std::move(pixels), content, iterations);
}

}  // namespace zvr::core
