// C boundary: plug-ins, contexts, context parameters, render layers, AOV bindings.
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "core/api_call.h"
#include "core/framebuffer.h"
#include "core/plugin_loader.h"
#include "core/scene_objects.h"

using namespace zvr::core;

namespace {

constexpr uint32_t kKnownCreationFlags =
    ZVR_CREATION_FLAGS_ENABLE_GPU0 | ZVR_CREATION_FLAGS_ENABLE_GPU1 | ZVR_CREATION_FLAGS_ENABLE_GPU2 |
    ZVR_CREATION_FLAGS_ENABLE_GPU3 | ZVR_CREATION_FLAGS_ENABLE_CPU | ZVR_CREATION_FLAGS_ENABLE_GPU4 |
    ZVR_CREATION_FLAGS_ENABLE_GPU5 | ZVR_CREATION_FLAGS_ENABLE_GPU6 | ZVR_CREATION_FLAGS_ENABLE_GPU7 |
    ZVR_CREATION_FLAGS_ENABLE_GPU8 | ZVR_CREATION_FLAGS_ENABLE_GPU9 | ZVR_CREATION_FLAGS_ENABLE_GPU10 |
    ZVR_CREATION_FLAGS_ENABLE_GPU11 | ZVR_CREATION_FLAGS_ENABLE_KEL | ZVR_CREATION_FLAGS_ENABLE_DEBUG;

// Reads key/value slots up to the 0 key. Returns the worker thread count (0: all cores).
constexpr int kMaxPropertySlots = 64;

uint32_t readCreationProperties(const ZvrContextProperties* properties) {
  uint32_t threads = 0;
  if (!properties) return threads;
  for (int slot = 0; properties[slot] != 0; slot += 2) {
    if (slot >= kMaxPropertySlots) fail(ZVR_ERROR_INVALID_ARGUMENT, "creation properties are not ended by a 0 key");
    const intptr_t key = properties[slot];
    const intptr_t value = properties[slot + 1];
    switch (key) {
      case ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT:
        if (value > 4096) fail(ZVR_ERROR_INVALID_ARGUMENT, "creation property 310 (CPU thread limit) " + std::to_string(value) + " is too large");
        threads = value > 0 ? uint32_t(value) : 0;
        break;
      case ZVR_CONTEXT_CREATEPROP_KEY_338: break;
      case ZVR_CONTEXT_CREATEPROP_PRECOMPILED_BINARY_PATH: break;  // kernels are compiled into the plug-ins
      default: fail(ZVR_ERROR_INVALID_ARGUMENT, "unknown creation property " + std::to_string(key));
    }
  }
  return threads;
}

std::string debugTracePath() {
  char folder[PATH_MAX];
  if (!::getcwd(folder, sizeof folder)) return "velder.log";
  return std::string(folder) + "/velder.log";
}

}  // namespace

extern "C" {

ZVR_API int32_t zvrRegisterPlugin(const char* pluginName) {
  ApiCall call("zvrRegisterPlugin", nullptr);
  call.text("pluginName", pluginName);
  int32_t id = -1;
  std::string error;
  try {
    if (pluginName) id = registerPlugin(pluginName, &error);
  } catch (...) {
    id = -1;
  }
  call.finishWithResult(id, error);
  return id;
}

ZVR_API ZvrStatus zvrCreateContext(uint32_t apiVersion, const int32_t* pluginIds, size_t pluginCount, uint32_t creationFlags,
                                   const ZvrContextProperties* properties, const char* cacheLocation, ZvrContext* outContext) {
  ApiCall call("zvrCreateContext", nullptr);
  std::string tracePath = environmentTracePath();
  if (tracePath.empty() && (creationFlags & ZVR_CREATION_FLAGS_ENABLE_DEBUG)) tracePath = debugTracePath();
  call.traceTo(tracePath);
  call.flags("apiVersion", apiVersion).unsignedNumber("pluginCount", pluginCount).flags("creationFlags", creationFlags)
      .properties("properties", properties, ZVR_CONTEXT_CREATEPROP_PRECOMPILED_BINARY_PATH, kMaxPropertySlots)
      .text("cacheLocation", cacheLocation);
  return call.run([&] {
    requireOut(outContext, "outContext");
    *outContext = nullptr;
    if (apiVersion != ZVR_API_VERSION)
      fail(ZVR_ERROR_INVALID_API_VERSION, "API version 0x" + std::to_string(apiVersion) + " is not this library's");
    if (creationFlags & ~kKnownCreationFlags)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "unknown creation flag bits");
    if (pluginCount == 0) fail(ZVR_ERROR_INVALID_ARGUMENT, "pluginCount is 0: a context renders with at least one plug-in");
    if (!pluginIds) fail(ZVR_ERROR_INVALID_ARGUMENT, "pluginIds is null");
    const uint32_t threads = readCreationProperties(properties);
    std::vector<PluginSlot> plugins;
    for (size_t i = 0; i < pluginCount; ++i) {
      for (size_t j = 0; j < i; ++j)
        if (pluginIds[j] == pluginIds[i]) fail(ZVR_ERROR_INVALID_ARGUMENT, "plug-in id " + std::to_string(pluginIds[i]) + " is listed twice");
      plugins.push_back({pluginIds[i], instantiatePlugin(pluginIds[i])});
    }
    auto* context = new Context(creationFlags, std::move(plugins), threads, tracePath);
    ObjectRegistry::instance().add(context);
    call.adoptContext(context);
    *outContext = context->handle();
    call.handle("outContext", *outContext);
  });
}

ZVR_API ZvrStatus zvrContextSetActivePlugin(ZvrContext context, int32_t pluginId) {
  ApiCall call("zvrContextSetActivePlugin", context);
  call.handle("context", context).number("pluginId", pluginId);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    call.requireIdle(ctx);
    ctx->setActivePlugin(pluginId);
  });
}

ZVR_API ZvrStatus zvrContextSetParameterByKey1u(ZvrContext context, ZvrContextInfo key, uint32_t x) {
  ApiCall call("zvrContextSetParameterByKey1u", context);
  call.handle("context", context).unsignedNumber("key", key).unsignedNumber("value", x);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    setUint(ctx->settings, key, x);
  });
}

ZVR_API ZvrStatus zvrContextSetParameterByKey1f(ZvrContext context, ZvrContextInfo key, float x) {
  ApiCall call("zvrContextSetParameterByKey1f", context);
  call.handle("context", context).unsignedNumber("key", key).real("value", x);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    setFloat(ctx->settings, key, x);
  });
}

ZVR_API ZvrStatus zvrContextSetParameterByKey4f(ZvrContext context, ZvrContextInfo key, float x, float y, float z, float w) {
  ApiCall call("zvrContextSetParameterByKey4f", context);
  call.handle("context", context).unsignedNumber("key", key).real("x", x).real("y", y).real("z", z).real("w", w);
  return call.run([&] {
    const float values[4] = {x, y, z, w};
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    setFloat4(ctx->settings, key, values);
  });
}

ZVR_API ZvrStatus zvrContextSetParameterByKeyPtr(ZvrContext context, ZvrContextInfo key, void* pointer) {
  ApiCall call("zvrContextSetParameterByKeyPtr", context);
  call.handle("context", context).unsignedNumber("key", key).handle("pointer", pointer);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    if (key == ZVR_CONTEXT_SCENE) {
      call.requireIdle(ctx);
      Scene* scene = nullptr;
      if (pointer) {
        scene = expect<Scene>(pointer, ZVR_OBJECT_SCENE, "scene");
        expectSameContext(scene, ctx, "scene");
      }
      ctx->scene = scene;
      ++ctx->revisions.geometry;
      return;
    }
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    setPointer(ctx->settings, key, pointer);
  });
}

ZVR_API ZvrStatus zvrContextSetParameterByKeyString(ZvrContext context, ZvrContextInfo key, const char* text) {
  ApiCall call("zvrContextSetParameterByKeyString", context);
  call.handle("context", context).unsignedNumber("key", key).text("value", text);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    if (key == ZVR_CONTEXT_OWNED_FILE) {
      requireText(text, "text");
      if (!*text) fail(ZVR_ERROR_INVALID_ARGUMENT, describeKey(key) + ": the file name is empty");
      if (std::find(ctx->ownedFiles.begin(), ctx->ownedFiles.end(), text) == ctx->ownedFiles.end())
        ctx->ownedFiles.push_back(text);
      return;
    }
    if (key == ZVR_CONTEXT_GPU_INTEGRATOR || key == ZVR_CONTEXT_CPU_INTEGRATOR) {
      // The integrator lives in the plug-in, which reads it while it renders.
      call.requireIdle(ctx);
      ctx->setIntegrator(key, text);
      return;
    }
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    setText(ctx->settings, key, text);
  });
}

ZVR_API ZvrStatus zvrContextGetInfo(ZvrContext context, ZvrContextInfo key, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrContextGetInfo", context);
  call.handle("context", context).unsignedNumber("key", key).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    const Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    if (!data && !outSize) fail(ZVR_ERROR_INVALID_ARGUMENT, "both data and outSize are null");
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    ctx->getInfo(key, size, data, outSize);
  });
}

ZVR_API ZvrStatus zvrContextSetLastError(ZvrContext context, const char* text) {
  ApiCall call("zvrContextSetLastError", context);
  call.handle("context", context).text("text", text);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireText(text, "text");
    ctx->setLastError(text);
  });
}

ZVR_API ZvrStatus zvrContextAttachRenderLayer(ZvrContext context, const char* layer) {
  ApiCall call("zvrContextAttachRenderLayer", context);
  call.handle("context", context).text("layer", layer);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireText(layer, "layer");
    if (!*layer) fail(ZVR_ERROR_INVALID_ARGUMENT, "the layer name is empty");
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    if (std::find(ctx->renderLayers.begin(), ctx->renderLayers.end(), layer) == ctx->renderLayers.end())
      ctx->renderLayers.push_back(layer);
  });
}

ZVR_API ZvrStatus zvrContextDetachRenderLayer(ZvrContext context, const char* layer) {
  ApiCall call("zvrContextDetachRenderLayer", context);
  call.handle("context", context).text("layer", layer);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireText(layer, "layer");
    // Detaching a layer that is not attached leaves nothing to undo; it is not an error.
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    ctx->renderLayers.erase(std::remove(ctx->renderLayers.begin(), ctx->renderLayers.end(), layer), ctx->renderLayers.end());
  });
}

ZVR_API ZvrStatus zvrContextSetAOV(ZvrContext context, uint32_t aov, ZvrFrameBuffer frameBuffer) {
  ApiCall call("zvrContextSetAOV", context);
  call.handle("context", context).unsignedNumber("aov", aov).handle("frameBuffer", frameBuffer);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    call.requireIdle(ctx);
    if (!frameBuffer) {
      ctx->aovs.erase(aov);
      return;
    }
    auto* fb = expect<FrameBuffer>(frameBuffer, ZVR_OBJECT_FRAMEBUFFER, "frameBuffer");
    expectSameContext(fb, ctx, "frameBuffer");
    zvr::RenderPlugin* plugin = ctx->activePlugin();
    if (!plugin) fail(ZVR_ERROR_NO_PLUGIN, "AOV " + std::to_string(aov) + " cannot be bound: the context has no plug-in");
    std::string why;
    if (!plugin->supportsAov(aov, &why))
      fail(ZVR_ERROR_UNSUPPORTED, std::string("plug-in ") + plugin->name() + " cannot render AOV " + std::to_string(aov) +
                                      (why.empty() ? "" : ": " + why));
    ctx->aovs[aov] = fb;
  });
}

ZVR_API ZvrStatus zvrContextSetAOVindicesLookup(ZvrContext context, uint32_t first, uint32_t count, const float* table) {
  ApiCall call("zvrContextSetAOVindicesLookup", context);
  call.handle("context", context).unsignedNumber("first", first).unsignedNumber("count", count).handle("table", table);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    if (count && !table) fail(ZVR_ERROR_INVALID_ARGUMENT, "table is null");
    if (uint64_t(first) + count > (1u << 24)) fail(ZVR_ERROR_INVALID_ARGUMENT, "index range ends past 16777216");
    std::lock_guard<std::mutex> state(ctx->stateMutex);
    std::vector<float>& colors = ctx->settings.params.indexColors;
    if (colors.size() < size_t(first + count) * 4) colors.resize(size_t(first + count) * 4, 0.0f);
    std::memcpy(colors.data() + size_t(first) * 4, table, size_t(count) * 4 * sizeof(float));
  });
}

}  // extern "C"
