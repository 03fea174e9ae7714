#include "core/object_registry.h"

namespace zvr::core {

ObjectRegistry& ObjectRegistry::instance() {
  static ObjectRegistry registry;
  return registry;
}

void ObjectRegistry::add(Object* object) {
  std::lock_guard<std::mutex> lock(mutex_);
  live_[static_cast<const void*>(object)] = object;
}

void ObjectRegistry::remove(Object* object) {
  std::lock_guard<std::mutex> lock(mutex_);
  live_.erase(static_cast<const void*>(object));
}

Object* ObjectRegistry::find(const void* handle) const {
  if (!handle) return nullptr;
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = live_.find(handle);
  return it == live_.end() ? nullptr : it->second;
}

const char* kindName(ZvrObjectType kind) {
  switch (kind) {
    case ZVR_OBJECT_CONTEXT: return "context";
    case ZVR_OBJECT_SCENE: return "scene";
    case ZVR_OBJECT_SHAPE: return "shape";
    case ZVR_OBJECT_LIGHT: return "light";
    case ZVR_OBJECT_CAMERA: return "camera";
    case ZVR_OBJECT_IMAGE: return "image";
    case ZVR_OBJECT_FRAMEBUFFER: return "framebuffer";
    case ZVR_OBJECT_POST_EFFECT: return "post effect";
    case ZVR_OBJECT_MATERIAL_SYSTEM: return "material system";
    case ZVR_OBJECT_MATERIAL_NODE: return "material node";
  }
  return "object";
}

}  // namespace zvr::core
