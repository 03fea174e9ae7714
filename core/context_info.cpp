// The context's read-only keys: versions, memory, lists of objects, the last error and the like.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "core/context.h"
#include "core/failure.h"
#include "core/info_reply.h"
#include "core/scene_objects.h"

namespace zvr::core {
namespace {

bool gpuNameKey(uint32_t key, int* index) {
  static const uint32_t kKeys[] = {ZVR_CONTEXT_GPU0_NAME, ZVR_CONTEXT_GPU1_NAME, ZVR_CONTEXT_GPU2_NAME,
                                   ZVR_CONTEXT_GPU3_NAME, ZVR_CONTEXT_GPU4_NAME, ZVR_CONTEXT_GPU5_NAME,
                                   ZVR_CONTEXT_GPU6_NAME, ZVR_CONTEXT_GPU7_NAME, ZVR_CONTEXT_GPU8_NAME,
                                   ZVR_CONTEXT_GPU9_NAME, ZVR_CONTEXT_GPU10_NAME, ZVR_CONTEXT_GPU11_NAME};
  for (int i = 0; i < 12; ++i)
    if (kKeys[i] == key) {
      *index = i;
      return true;
    }
  return false;
}

// Kind listed by a ZVR_CONTEXT_LIST_CREATED_* key; 0 for kinds this library never creates.
bool listedKind(uint32_t key, ZvrObjectType* kind) {
  switch (key) {
    case ZVR_CONTEXT_LIST_CREATED_CAMERAS: *kind = ZVR_OBJECT_CAMERA; return true;
    case ZVR_CONTEXT_LIST_CREATED_MATERIALNODES: *kind = ZVR_OBJECT_MATERIAL_NODE; return true;
    case ZVR_CONTEXT_LIST_CREATED_LIGHTS: *kind = ZVR_OBJECT_LIGHT; return true;
    case ZVR_CONTEXT_LIST_CREATED_SHAPES: *kind = ZVR_OBJECT_SHAPE; return true;
    case ZVR_CONTEXT_LIST_CREATED_POSTEFFECTS: *kind = ZVR_OBJECT_POST_EFFECT; return true;
    case ZVR_CONTEXT_LIST_CREATED_IMAGES: *kind = ZVR_OBJECT_IMAGE; return true;
    case ZVR_CONTEXT_LIST_CREATED_FRAMEBUFFERS: *kind = ZVR_OBJECT_FRAMEBUFFER; return true;
    case ZVR_CONTEXT_LIST_CREATED_SCENES: *kind = ZVR_OBJECT_SCENE; return true;
    case ZVR_CONTEXT_LIST_CREATED_MATERIALSYSTEM: *kind = ZVR_OBJECT_MATERIAL_SYSTEM; return true;
    case ZVR_CONTEXT_LIST_CREATED_HETEROVOLUMES:
    case ZVR_CONTEXT_LIST_CREATED_GRIDS:
    case ZVR_CONTEXT_LIST_CREATED_BUFFERS:
    case ZVR_CONTEXT_LIST_CREATED_CURVES:
    case ZVR_CONTEXT_LIST_CREATED_COMPOSITE:
    case ZVR_CONTEXT_LIST_CREATED_LUT: *kind = ZvrObjectType(0); return true;
  }
  return false;
}

uint64_t residentBytes() {
  FILE* statm = std::fopen("/proc/self/statm", "r");
  if (!statm) return 0;
  unsigned long long size = 0, resident = 0;
  int read = std::fscanf(statm, "%llu %llu", &size, &resident);
  std::fclose(statm);
  return read == 2 ? resident * uint64_t(::sysconf(_SC_PAGESIZE)) : 0;
}

}  // namespace

void Context::getInfo(uint32_t key, size_t size, void* data, size_t* outSize) const {
  const std::string what = describeKey(key);
  int gpu = 0;
  ZvrObjectType kind;
  if (gpuNameKey(key, &gpu))
    fail(ZVR_ERROR_UNSUPPORTED, what + ": no GPU device " + std::to_string(gpu) + " exists; rendering runs on the CPU");
  if (listedKind(key, &kind)) {
    std::vector<Object*> objects;
    if (kind != 0) objects = liveObjects(kind);
    std::vector<ZvrObject> handles;
    for (Object* object : objects) handles.push_back(object->handle());
    replyBytes(what, handles.data(), handles.size() * sizeof(ZvrObject), size, data, outSize);
    return;
  }
  switch (key) {
    case ZVR_CONTEXT_LAST_ERROR_MESSAGE: replyText(what, lastError(), size, data, outSize); return;
    case ZVR_CONTEXT_API_VERSION: {
      uint32_t version = ZVR_API_VERSION;
      replyValue(what, version, size, data, outSize);
      return;
    }
    case ZVR_CONTEXT_API_VERSION_MINOR: {
      uint64_t version = ZVR_API_VERSION_MINOR;
      replyValue(what, version, size, data, outSize);
      return;
    }
    case ZVR_CONTEXT_PLUGIN_VERSION: {
      zvr::RenderPlugin* plugin = activePlugin();
      if (!plugin) fail(ZVR_ERROR_NO_PLUGIN, what + ": the context has no plug-in");
      uint32_t version = plugin->version();
      replyValue(what, version, size, data, outSize);
      return;
    }
    case ZVR_CONTEXT_MEMORY_INFO: {
      uint64_t info[4] = {};
      info[0] = heldBytes(&info[2]);
      info[1] = uint64_t(::sysconf(_SC_PHYS_PAGES)) * uint64_t(::sysconf(_SC_PAGESIZE));
      info[3] = residentBytes();
      replyBytes(what, info, sizeof info, size, data, outSize);
      return;
    }
    case ZVR_CONTEXT_API_TRACE_PATH: replyText(what, tracePath(), size, data, outSize); return;
    case ZVR_CONTEXT_ACTIVE_PLUGIN: {
      int32_t id = activePluginId();
      replyValue(what, id, size, data, outSize);
      return;
    }
    case ZVR_CONTEXT_SCENE: {
      ZvrScene handle = scene ? reinterpret_cast<ZvrScene>(static_cast<Object*>(scene)) : nullptr;
      replyValue(what, handle, size, data, outSize);
      return;
    }
    case ZVR_CONTEXT_RENDER_LAYERS: {
      std::string text;
      for (const std::string& layer : renderLayers) text += layer + "\n";
      replyText(what, text, size, data, outSize);
      return;
    }
    case ZVR_CONTEXT_OWNED_FILE: fail(ZVR_ERROR_INVALID_ARGUMENT, what + " can only be set");
  }
  getStored(settings, key, size, data, outSize);
}

}  // namespace zvr::core
