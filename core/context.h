// A render context: owner of every object created in it, its keyed settings, its plug-in
// instances, the scene it renders, and its last-error text.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/context_settings.h"
#include "core/object.h"
#include "core/plugin_api.h"

namespace zvr::core {

class Scene;
class FrameBuffer;
class PostEffect;

struct PluginSlot {
  int32_t id = -1;
  std::unique_ptr<zvr::RenderPlugin> plugin;
};

struct Revisions {
  uint64_t geometry = 1, transform = 1, material = 1, light = 1;
};

class Context : public Object {
 public:
  Context(uint32_t creationFlags, std::vector<PluginSlot> plugins, uint32_t threadCount, std::string tracePath);
  ~Context() override;

  template <class T, class... Args>
  T* make(Args&&... args) {
    auto owned = std::make_unique<T>(this, std::forward<Args>(args)...);
    T* raw = owned.get();
    adopt(std::move(owned));
    return raw;
  }
  // Removes every reference other objects hold to `object`, then deletes it.
  void destroy(Object* object);
  // Live objects of a kind in creation order.
  std::vector<Object*> liveObjects(ZvrObjectType kind) const;
  uint64_t heldBytes(uint64_t* largest) const;

  void setLastError(const std::string& text);
  // The context's own last failure, or a newer one of a call whose handle led to no live context
  // (a deleted object, a null handle): that is the failure a caller looks up next.
  std::string lastError() const;
  const std::string& tracePath() const { return tracePath_; }
  uint32_t creationFlags() const { return creationFlags_; }

  void setActivePlugin(int32_t pluginId);
  // Null when the context has no plug-in.
  zvr::RenderPlugin* activePlugin() const;
  int32_t activePluginId() const;
  void setIntegrator(uint32_t key, const char* name);

  void getInfo(uint32_t key, size_t size, void* data, size_t* outSize) const;

  ContextSettings settings;
  Scene* scene = nullptr;
  std::vector<PostEffect*> postEffects;   // attached, in attachment order
  std::vector<std::string> renderLayers;  // attached, in attachment order
  std::map<uint32_t, FrameBuffer*> aovs;
  std::vector<std::string> ownedFiles;
  Revisions revisions;
  std::atomic<bool> abortRequested{false};
  std::atomic<bool> rendering{false};
  uint64_t nextSampleIndex = 0;
  // Held by a render call while it copies what it renders from (settings, layers, the scene's
  // shapes, lights and camera), and by the calls allowed to change those while a render runs.
  // Never taken inside a framebuffer's lock.
  mutable std::mutex stateMutex;

  // Marks the context rendering and forgets an abort made before; ZVR_ERROR_BUSY when a render
  // call runs already. Called with stateMutex held.
  void beginRender();
  void endRender();
  // Aborts the running render call; does nothing when none runs.
  void requestAbort();

 private:
  void adopt(std::unique_ptr<Object> object);
  void forgetReferences(Object* dying);

  uint32_t creationFlags_;
  std::vector<PluginSlot> plugins_;
  size_t active_ = 0;
  std::string tracePath_;
  std::vector<std::unique_ptr<Object>> objects_;  // creation order
  mutable std::mutex errorMutex_;
  std::string lastError_;
  uint64_t lastErrorSequence_ = 0;
};

// Records the failure of a call that reached no live context.
void setOrphanError(const std::string& text);

}  // namespace zvr::core
