#include "core/context.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "core/failure.h"
#include "core/framebuffer.h"
#include "core/object_registry.h"
#include "core/post_effect.h"
#include "core/scene_objects.h"

namespace zvr::core {
namespace {

std::atomic<uint64_t> gErrorSequence{0};
std::mutex gOrphanMutex;
std::string gOrphanError;
uint64_t gOrphanSequence = 0;

}  // namespace

Context::Context(uint32_t creationFlags, std::vector<PluginSlot> plugins, uint32_t threadCount, std::string tracePath)
    : Object(ZVR_OBJECT_CONTEXT, nullptr),
      creationFlags_(creationFlags),
      plugins_(std::move(plugins)),
      tracePath_(std::move(tracePath)) {
  setContext(this);
  settings.params.threadCount = threadCount;
  lastErrorSequence_ = ++gErrorSequence;  // failures from before the context existed are not its own
}

Context::~Context() {
  // Newest first, so that nothing refers to an object already gone.
  while (!objects_.empty()) {
    Object* last = objects_.back().get();
    ObjectRegistry::instance().remove(last);
    objects_.pop_back();
  }
  for (const std::string& file : ownedFiles) ::unlink(file.c_str());
}

void Context::adopt(std::unique_ptr<Object> object) {
  objects_.push_back(std::move(object));
  ObjectRegistry::instance().add(objects_.back().get());
}

void Context::destroy(Object* object) {
  auto it = std::find_if(objects_.begin(), objects_.end(), [&](const auto& owned) { return owned.get() == object; });
  if (it == objects_.end()) fail(ZVR_ERROR_INVALID_OBJECT, "object is not owned by this context");
  // A scene takes its own environment light with it.
  Object* owned = object->kind() == ZVR_OBJECT_SCENE ? static_cast<Scene*>(object)->environment : nullptr;
  ObjectRegistry::instance().remove(object);
  forgetReferences(object);
  objects_.erase(it);
  if (owned) destroy(owned);
}

void Context::forgetReferences(Object* dying) {
  // Compared as Object pointers: `dying` may be of any kind, so it is never cast down.
  auto dropFrom = [dying](auto& list) {
    size_t before = list.size();
    list.erase(std::remove_if(list.begin(), list.end(), [dying](Object* item) { return item == dying; }), list.end());
    return list.size() != before;
  };
  for (const auto& owned : objects_) {
    Object* object = owned.get();
    switch (object->kind()) {
      case ZVR_OBJECT_SCENE: {
        auto* scene = static_cast<Scene*>(object);
        if (dropFrom(scene->shapes)) ++revisions.geometry;
        if (dropFrom(scene->lights)) ++revisions.light;
        if (static_cast<Object*>(scene->camera) == dying) scene->camera = nullptr;
        if (static_cast<Object*>(scene->environment) == dying) {
          scene->environment = nullptr;
          ++revisions.light;
        }
        break;
      }
      case ZVR_OBJECT_SHAPE: {
        auto* shape = static_cast<Shape*>(object);
        if (static_cast<Object*>(shape->material) == dying) {
          shape->material = nullptr;
          ++revisions.material;
        }
        break;
      }
      case ZVR_OBJECT_LIGHT: {
        auto* light = static_cast<Light*>(object);
        if (static_cast<Object*>(light->image) == dying) light->image = nullptr;  // the pixels stay shared with the light
        break;
      }
      case ZVR_OBJECT_MATERIAL_NODE:
        if (dying->kind() == ZVR_OBJECT_IMAGE) static_cast<MaterialNode*>(object)->forgetImage(static_cast<Image*>(dying));
        break;
      default: break;
    }
  }
  if (static_cast<Object*>(scene) == dying) scene = nullptr;
  dropFrom(postEffects);
  for (auto it = aovs.begin(); it != aovs.end();) {
    if (static_cast<Object*>(it->second) == dying)
      it = aovs.erase(it);
    else
      ++it;
  }
}

std::vector<Object*> Context::liveObjects(ZvrObjectType kind) const {
  std::vector<Object*> result;
  for (const auto& owned : objects_)
    if (owned->kind() == kind) result.push_back(owned.get());
  return result;
}

uint64_t Context::heldBytes(uint64_t* largest) const {
  uint64_t total = 0, biggest = 0;
  for (const auto& owned : objects_) {
    uint64_t bytes = owned->dataBytes();
    total += bytes;
    biggest = std::max(biggest, bytes);
  }
  if (largest) *largest = biggest;
  return total;
}

void setOrphanError(const std::string& text) {
  std::lock_guard<std::mutex> lock(gOrphanMutex);
  gOrphanError = text;
  gOrphanSequence = ++gErrorSequence;
}

void Context::setLastError(const std::string& text) {
  std::lock_guard<std::mutex> lock(errorMutex_);
  lastError_ = text;
  lastErrorSequence_ = ++gErrorSequence;
}

void Context::beginRender() {
  if (rendering.load()) fail(ZVR_ERROR_BUSY, "the context is rendering already; wait until zvrContextRender has returned");
  abortRequested = false;
  rendering = true;
}

void Context::endRender() {
  std::lock_guard<std::mutex> lock(stateMutex);
  rendering = false;
  abortRequested = false;
}

void Context::requestAbort() {
  // Under the lock, an abort lands either in the running call or before the next one begins,
  // which forgets it.
  std::lock_guard<std::mutex> lock(stateMutex);
  if (rendering.load()) abortRequested = true;
}

std::string Context::lastError() const {
  std::lock_guard<std::mutex> lock(errorMutex_);
  std::lock_guard<std::mutex> orphanLock(gOrphanMutex);
  return gOrphanSequence > lastErrorSequence_ ? gOrphanError : lastError_;
}

void Context::setActivePlugin(int32_t pluginId) {
  for (size_t i = 0; i < plugins_.size(); ++i) {
    if (plugins_[i].id == pluginId) {
      active_ = i;
      return;
    }
  }
  fail(ZVR_ERROR_NO_PLUGIN, "plug-in id " + std::to_string(pluginId) + " is not one of this context's plug-ins");
}

zvr::RenderPlugin* Context::activePlugin() const {
  return plugins_.empty() ? nullptr : plugins_[active_].plugin.get();
}

int32_t Context::activePluginId() const { return plugins_.empty() ? -1 : plugins_[active_].id; }

void Context::setIntegrator(uint32_t key, const char* name) {
  if (!name) fail(ZVR_ERROR_INVALID_ARGUMENT, describeKey(key) + ": the integrator name is null");
  if (zvr::RenderPlugin* plugin = activePlugin()) {
    std::string why;
    if (!plugin->setIntegrator(key == ZVR_CONTEXT_GPU_INTEGRATOR, name, &why))
      fail(ZVR_ERROR_UNSUPPORTED, std::string("plug-in ") + plugin->name() + " refuses integrator \"" + name +
                                      "\"" + (why.empty() ? "" : ": " + why));
  }
  setText(settings, key, name);
}

}  // namespace zvr::core
