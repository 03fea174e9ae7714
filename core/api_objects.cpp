// C boundary: operations on objects of any kind.
#include <cstring>

#include "core/api_call.h"
#include "core/framebuffer.h"
#include "core/info_reply.h"
#include "core/post_effect.h"
#include "core/scene_objects.h"

using namespace zvr::core;

namespace {

constexpr size_t kMaxNameBytes = 256;

}  // namespace

extern "C" {

ZVR_API ZvrStatus zvrObjectDelete(void* object) {
  ApiCall call("zvrObjectDelete", object);
  call.handle("object", object);
  return call.run([&] {
    Object* live = liveObject(object, "object");
    Context* ctx = live->context();
    call.requireIdle(ctx);
    if (live->kind() == ZVR_OBJECT_CONTEXT) {
      call.releaseIdle();  // the lock dies with the context
      ObjectRegistry::instance().remove(ctx);
      delete ctx;
      return;
    }
    ctx->destroy(live);
  });
}

ZVR_API ZvrStatus zvrObjectSetName(void* object, const char* name) {
  ApiCall call("zvrObjectSetName", object);
  call.handle("object", object).text("name", name);
  return call.run([&] {
    Object* live = liveObject(object, "object");
    requireText(name, "name");
    if (std::strlen(name) >= kMaxNameBytes)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "the name is longer than " + std::to_string(kMaxNameBytes - 1) + " bytes");
    live->setName(name);
  });
}

ZVR_API ZvrStatus zvrObjectGetInfo(void* object, uint32_t key, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrObjectGetInfo", object);
  call.handle("object", object).unsignedNumber("key", key).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    Object* live = liveObject(object, "object");
    switch (key) {
      case ZVR_OBJECT_NAME: replyText("object name", live->name(), size, data, outSize); return;
      case ZVR_OBJECT_TYPE: {
        uint32_t type = live->kind();
        replyValue("object type", type, size, data, outSize);
        return;
      }
    }
    fail(ZVR_ERROR_UNKNOWN_KEY, std::string(kindName(live->kind())) + " has no info key " + std::to_string(key));
  });
}

}  // extern "C"
