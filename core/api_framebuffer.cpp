// C boundary: framebuffers, image files, post effects and resolving.
#include <algorithm>

#include "core/accumulation_file.h"
#include "core/api_call.h"
#include "core/framebuffer.h"
#include "core/cryptomatte_manifest.h"
#include "core/image_save.h"
#include "core/info_reply.h"
#include "core/post_effect.h"
#include "core/resolve.h"
#include "kernel/lpe_parser.h"

using namespace zvr::core;

namespace {

constexpr uint32_t kMaxFrameBufferSide = 65536;

}  // namespace

extern "C" {

ZVR_API ZvrStatus zvrContextCreateFrameBuffer(ZvrContext context, ZvrFramebufferFormat format, const ZvrFramebufferDesc* desc,
                                              ZvrFrameBuffer* outFrameBuffer) {
  ApiCall call("zvrContextCreateFrameBuffer", context);
  call.handle("context", context).unsignedNumber("numComponents", format.numComponents)
      .unsignedNumber("componentType", format.componentType).handle("desc", desc);
  if (desc) call.unsignedNumber("width", desc->width).unsignedNumber("height", desc->height);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(desc, "desc");
    requireOut(outFrameBuffer, "outFrameBuffer");
    if (format.componentType != ZVR_COMPONENT_TYPE_FLOAT32 && format.componentType != ZVR_COMPONENT_TYPE_DEEP)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "framebuffer component type " + std::to_string(format.componentType) +
                                           " is not 3 (float) or 5 (deep)");
    if (format.numComponents != 4)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "framebuffer has " + std::to_string(format.numComponents) + " components, not 4");
    if (desc->width == 0 || desc->height == 0 || desc->width > kMaxFrameBufferSide || desc->height > kMaxFrameBufferSide)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "framebuffer size " + std::to_string(desc->width) + "x" +
                                           std::to_string(desc->height) + " is not between 1 and 65536 on each side");
    *outFrameBuffer = ctx->make<FrameBuffer>(format, *desc)->handle();
    call.handle("outFrameBuffer", *outFrameBuffer);
  });
}

ZVR_API ZvrStatus zvrFrameBufferClear(ZvrFrameBuffer frameBuffer) {
  ApiCall call("zvrFrameBufferClear", frameBuffer);
  call.handle("frameBuffer", frameBuffer);
  return call.run([&] { expect<FrameBuffer>(frameBuffer, ZVR_OBJECT_FRAMEBUFFER, "frameBuffer")->clear(); });
}

ZVR_API ZvrStatus zvrFrameBufferGetInfo(ZvrFrameBuffer frameBuffer, uint32_t key, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrFrameBufferGetInfo", frameBuffer);
  call.handle("frameBuffer", frameBuffer).unsignedNumber("key", key).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    FrameBuffer* fb = expect<FrameBuffer>(frameBuffer, ZVR_OBJECT_FRAMEBUFFER, "frameBuffer");
    if (key == ZVR_OBJECT_NAME) return replyText("object name", fb->name(), size, data, outSize);
    if (key == ZVR_OBJECT_TYPE) {
      uint32_t type = fb->kind();
      return replyValue("object type", type, size, data, outSize);
    }
    fb->getInfo(key, size, data, outSize);
  });
}

ZVR_API ZvrStatus zvrFrameBufferSetLPE(ZvrFrameBuffer frameBuffer, const char* expression) {
  ApiCall call("zvrFrameBufferSetLPE", frameBuffer);
  call.handle("frameBuffer", frameBuffer).text("expression", expression);
  return call.run([&] {
    FrameBuffer* fb = expect<FrameBuffer>(frameBuffer, ZVR_OBJECT_FRAMEBUFFER, "frameBuffer");
    requireText(expression, "expression");
    // Refused here, where the text enters, so a render never meets a malformed expression.
    zvr::kernel::LpeCompileResult compiled = zvr::kernel::compileLightPathExpression(expression);
    if (!compiled.automaton) fail(ZVR_ERROR_INVALID_ARGUMENT, compiled.error);
    fb->setLightPathExpression(expression);
  });
}

ZVR_API ZvrStatus zvrFrameBufferSaveAccumulation(ZvrFrameBuffer frameBuffer, const char* path) {
  ApiCall call("zvrFrameBufferSaveAccumulation", frameBuffer);
  call.handle("frameBuffer", frameBuffer).text("path", path);
  return call.run([&] {
    FrameBuffer* fb = expect<FrameBuffer>(frameBuffer, ZVR_OBJECT_FRAMEBUFFER, "frameBuffer");
    requireText(path, "path");
    saveAccumulation(*fb, path);
  });
}

ZVR_API ZvrStatus zvrFrameBufferAddAccumulation(ZvrFrameBuffer frameBuffer, const char* path) {
  ApiCall call("zvrFrameBufferAddAccumulation", frameBuffer);
  call.handle("frameBuffer", frameBuffer).text("path", path);
  return call.run([&] {
    FrameBuffer* fb = expect<FrameBuffer>(frameBuffer, ZVR_OBJECT_FRAMEBUFFER, "frameBuffer");
    requireText(path, "path");
    addAccumulation(*fb, path);
  });
}

ZVR_API ZvrStatus zvrFrameBufferSaveToFile(ZvrFrameBuffer frameBuffer, const char* path) {
  ApiCall call("zvrFrameBufferSaveToFile", frameBuffer);
  call.handle("frameBuffer", frameBuffer).text("path", path);
  return call.run([&] {
    FrameBuffer* fb = expect<FrameBuffer>(frameBuffer, ZVR_OBJECT_FRAMEBUFFER, "frameBuffer");
    requireText(path, "path");
    float gamma;
    bool float32;
    {
      std::lock_guard<std::mutex> state(fb->context()->stateMutex);
      gamma = fb->context()->settings.params.displayGamma;
      float32 = fb->context()->settings.saveFloat32 != 0;
    }
    saveImage(*fb, path, gamma, float32);
  });
}

ZVR_API ZvrStatus zvrFrameBufferSaveToFileEx(ZvrFrameBuffer const* frameBuffers, uint32_t count, const char* path, const void* extra) {
  ApiCall call("zvrFrameBufferSaveToFileEx", frameBuffers && count ? frameBuffers[0] : nullptr);
  call.handle("frameBuffers", frameBuffers).unsignedNumber("count", count).text("path", path).handle("extra", extra);
  return call.run([&] {
    if (!frameBuffers || count == 0) fail(ZVR_ERROR_INVALID_ARGUMENT, "no framebuffers given");
    requireText(path, "path");
    if (extra) fail(ZVR_ERROR_INVALID_ARGUMENT, "extra is reserved and must be null");
    std::vector<const FrameBuffer*> list;
    Context* ctx = nullptr;
    for (uint32_t i = 0; i < count; ++i) {
      const std::string argument = "frameBuffers[" + std::to_string(i) + "]";
      FrameBuffer* fb = expect<FrameBuffer>(frameBuffers[i], ZVR_OBJECT_FRAMEBUFFER, argument.c_str());
      if (!ctx) ctx = fb->context();
      expectSameContext(fb, ctx, argument.c_str());
      list.push_back(fb);
    }
    bool float32;
    {
      std::lock_guard<std::mutex> state(ctx->stateMutex);
      float32 = ctx->settings.saveFloat32 != 0;
    }
    saveMultilayerExr(list, path, float32, cryptomatteNames(*ctx));
  });
}

ZVR_API ZvrStatus zvrContextResolveFrameBuffer(ZvrContext context, ZvrFrameBuffer src, ZvrFrameBuffer dst, uint32_t dataOnly) {
  ApiCall call("zvrContextResolveFrameBuffer", context);
  call.handle("context", context).handle("src", src).handle("dst", dst).unsignedNumber("dataOnly", dataOnly);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    FrameBuffer* source = expect<FrameBuffer>(src, ZVR_OBJECT_FRAMEBUFFER, "src");
    FrameBuffer* destination = expect<FrameBuffer>(dst, ZVR_OBJECT_FRAMEBUFFER, "dst");
    expectSameContext(source, ctx, "src");
    expectSameContext(destination, ctx, "dst");
    if (dataOnly > 1) fail(ZVR_ERROR_INVALID_ARGUMENT, "dataOnly " + std::to_string(dataOnly) + " is not 0 or 1");
    resolveFrameBuffer(*ctx, *source, *destination, dataOnly == 1);
  });
}

ZVR_API ZvrStatus zvrContextCreatePostEffect(ZvrContext context, uint32_t type, ZvrPostEffect* outEffect) {
  ApiCall call("zvrContextCreatePostEffect", context);
  call.handle("context", context).unsignedNumber("type", type);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(outEffect, "outEffect");
    *outEffect = ctx->make<PostEffect>(type)->handle();
    call.handle("outEffect", *outEffect);
  });
}

ZVR_API ZvrStatus zvrContextAttachPostEffect(ZvrContext context, ZvrPostEffect effect) {
  ApiCall call("zvrContextAttachPostEffect", context);
  call.handle("context", context).handle("effect", effect);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    PostEffect* e = expect<PostEffect>(effect, ZVR_OBJECT_POST_EFFECT, "effect");
    expectSameContext(e, ctx, "effect");
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    if (std::find(ctx->postEffects.begin(), ctx->postEffects.end(), e) != ctx->postEffects.end())
      fail(ZVR_ERROR_INVALID_ARGUMENT, "the post effect is already attached");
    ctx->postEffects.push_back(e);
  });
}

ZVR_API ZvrStatus zvrContextDetachPostEffect(ZvrContext context, ZvrPostEffect effect) {
  ApiCall call("zvrContextDetachPostEffect", context);
  call.handle("context", context).handle("effect", effect);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    PostEffect* e = expect<PostEffect>(effect, ZVR_OBJECT_POST_EFFECT, "effect");
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    auto it = std::find(ctx->postEffects.begin(), ctx->postEffects.end(), e);
    if (it == ctx->postEffects.end()) fail(ZVR_ERROR_INVALID_ARGUMENT, "the post effect is not attached");
    ctx->postEffects.erase(it);
  });
}

ZVR_API ZvrStatus zvrContextGetAttachedPostEffectCount(ZvrContext context, uint32_t* outCount) {
  ApiCall call("zvrContextGetAttachedPostEffectCount", context);
  call.handle("context", context);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(outCount, "outCount");
    *outCount = uint32_t(ctx->postEffects.size());
    call.unsignedNumber("outCount", *outCount);
  });
}

ZVR_API ZvrStatus zvrContextGetAttachedPostEffect(ZvrContext context, uint32_t index, ZvrPostEffect* outEffect) {
  ApiCall call("zvrContextGetAttachedPostEffect", context);
  call.handle("context", context).unsignedNumber("index", index);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(outEffect, "outEffect");
    if (index >= ctx->postEffects.size())
      fail(ZVR_ERROR_INVALID_ARGUMENT, "post effect index " + std::to_string(index) + " is past the " +
                                           std::to_string(ctx->postEffects.size()) + " attached");
    *outEffect = ctx->postEffects[index]->handle();
    call.handle("outEffect", *outEffect);
  });
}

ZVR_API ZvrStatus zvrPostEffectGetInfo(ZvrPostEffect effect, uint32_t key, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrPostEffectGetInfo", effect);
  call.handle("effect", effect).unsignedNumber("key", key).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    PostEffect* e = expect<PostEffect>(effect, ZVR_OBJECT_POST_EFFECT, "effect");
    switch (key) {
      case ZVR_POST_EFFECT_TYPE: {
        uint32_t type = e->type();
        return replyValue("post effect type", type, size, data, outSize);
      }
      case ZVR_OBJECT_NAME: return replyText("object name", e->name(), size, data, outSize);
      case ZVR_OBJECT_TYPE: {
        uint32_t type = e->kind();
        return replyValue("object type", type, size, data, outSize);
      }
    }
    fail(ZVR_ERROR_UNKNOWN_KEY, "post effect has no info key " + std::to_string(key));
  });
}

ZVR_API ZvrStatus zvrPostEffectSetParameter1f(ZvrPostEffect effect, const char* name, float x) {
  ApiCall call("zvrPostEffectSetParameter1f", effect);
  call.handle("effect", effect).text("name", name).real("x", x);
  return call.run([&] {
    PostEffect* e = expect<PostEffect>(effect, ZVR_OBJECT_POST_EFFECT, "effect");
    requireText(name, "name");
    std::lock_guard<std::mutex> state(e->context()->stateMutex);
    e->setParameter(name, x);
  });
}

}  // extern "C"
