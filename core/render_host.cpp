#include "core/render_host.h"

#include <chrono>
#include <mutex>

#include "core/context.h"
#include "core/failure.h"
#include "core/framebuffer.h"
#include "core/scene_objects.h"

namespace zvr::core {
namespace {

constexpr uint32_t kColorAov = 0;

// The callbacks as they stood when the call began, so setting them during the call races nothing.
// The update and first-iteration times describe the way to the first picture, so only the first
// render call into cleared framebuffers reports them; later calls would overwrite them with the
// times of a batch that continues the picture.
class CallbackHost : public zvr::RenderHost {
 public:
  CallbackHost(const Context& context, bool firstPicture)
      : context_(context), settings_(context.settings), firstPicture_(firstPicture) {}
  void reportProgress(float fraction) override {
    if (settings_.progressCallback) settings_.progressCallback(fraction, settings_.progressData);
  }
  void reportUpdateTime(float milliseconds) override {
    if (firstPicture_ && settings_.updateTimeCallback)
      settings_.updateTimeCallback(milliseconds, settings_.updateTimeData);
  }
  void reportFirstIterationTime(float milliseconds) override {
    if (firstPicture_ && settings_.renderTimeCallback)
      settings_.renderTimeCallback(milliseconds, settings_.renderTimeData);
  }
  bool abortRequested() const override { return context_.abortRequested.load(); }

 private:
  const Context& context_;
  const ContextSettings settings_;
  const bool firstPicture_;
};

// Ends the call's rendering state however the plug-in returns, and leaves the targets of a
// provisional call marked as such: marking after the plug-in has committed means that a clear
// made meanwhile cannot turn provisional samples into accumulated ones.
class RenderScope {
 public:
  RenderScope(Context& context, std::unique_lock<std::mutex>& state, std::vector<FrameBuffer*> provisionalTargets)
      : context_(context), state_(state), provisionalTargets_(std::move(provisionalTargets)) {}
  ~RenderScope() {
    if (state_.owns_lock()) state_.unlock();  // a failure while the call was still copying
    for (FrameBuffer* target : provisionalTargets_) target->markProvisional();
    context_.endRender();
  }

 private:
  Context& context_;
  std::unique_lock<std::mutex>& state_;
  std::vector<FrameBuffer*> provisionalTargets_;
};

}  // namespace

zvr::SceneSnapshot buildSnapshot(const Context& context) {
  zvr::SceneSnapshot snapshot;
  const Scene* scene = context.scene;
  if (!scene) return snapshot;
  snapshot.shapes.reserve(scene->shapes.size());
  for (const Shape* shape : scene->shapes) snapshot.shapes.push_back(shape->snapshot());
  for (const Light* light : scene->lights)
    if (!scene->environment || light->data.type != zvr::LightType::Environment) snapshot.lights.push_back(light->effectiveData());
  if (scene->environment) snapshot.lights.push_back(scene->environment->effectiveData());
  if (scene->camera) {
    snapshot.camera = scene->camera->data;
    snapshot.hasCamera = true;
  }
  snapshot.geometryRevision = context.revisions.geometry;
  snapshot.transformRevision = context.revisions.transform;
  snapshot.materialRevision = context.revisions.material;
  snapshot.lightRevision = context.revisions.light;
  return snapshot;
}

zvr::RenderParams buildRenderParams(const Context& context) {
  zvr::RenderParams params = context.settings.params;
  params.attachedLayers = context.renderLayers;
  params.anyLayerAttached = !context.renderLayers.empty();
  return params;
}

void renderContext(Context& context) {
  const auto start = std::chrono::steady_clock::now();
  std::unique_lock<std::mutex> state(context.stateMutex);
  zvr::RenderPlugin* plugin = context.activePlugin();
  if (!plugin) fail(ZVR_ERROR_NO_PLUGIN, "the context has no plug-in to render with");
  if (!context.scene) fail(ZVR_ERROR_INVALID_ARGUMENT, "the context has no scene (zvrContextSetScene)");
  if (!context.scene->camera) fail(ZVR_ERROR_INVALID_ARGUMENT, "the scene has no camera (zvrSceneSetCamera)");
  auto color = context.aovs.find(kColorAov);
  if (color == context.aovs.end())
    fail(ZVR_ERROR_INVALID_ARGUMENT, "no framebuffer is bound to the colour AOV 0 (zvrContextSetAOV)");
  FrameBuffer* colorTarget = color->second;

  zvr::RenderRequest request;
  std::vector<FrameBuffer*> targets;
  for (const auto& [aov, frameBuffer] : context.aovs) {
    if (frameBuffer->width() != colorTarget->width() || frameBuffer->height() != colorTarget->height())
      fail(ZVR_ERROR_INVALID_ARGUMENT, "the framebuffer of AOV " + std::to_string(aov) + " is " +
                                           std::to_string(frameBuffer->width()) + "x" + std::to_string(frameBuffer->height()) +
                                           ", the colour framebuffer " + std::to_string(colorTarget->width()) + "x" +
                                           std::to_string(colorTarget->height()) + ": all bound framebuffers must match");
    request.targets.push_back({aov, frameBuffer});
    targets.push_back(frameBuffer);
  }
  context.beginRender();
  // A provisional picture never replaces accumulated samples, and never joins them.
  const bool provisional = context.settings.frameHint == ZVR_FRAMECOUNT_PROVISIONAL &&
                           (colorTarget->iterations() == 0 || colorTarget->provisional());
  RenderScope scope(context, state, provisional ? targets : std::vector<FrameBuffer*>{});
  if (!provisional)
    for (FrameBuffer* target : targets) target->discardProvisional();
  const zvr::SceneSnapshot snapshot = buildSnapshot(context);
  const zvr::RenderParams params = buildRenderParams(context);
  CallbackHost host(context, colorTarget->iterations() == 0);
  request.scene = &snapshot;
  request.params = &params;
  request.iterations = context.settings.iterations;
  request.firstSampleIndex = uint64_t(context.settings.firstSampleIndex) + colorTarget->iterations();
  request.width = colorTarget->width();
  request.height = colorTarget->height();
  request.previewBlock = !provisional ? 1 : context.settings.previewBlock ? context.settings.previewBlock : ZVR_PREVIEW_BLOCK_DEFAULT;
  request.host = &host;
  const ZvrTimeCallback preparationCallback = context.settings.ignoredTimeCallback;
  void* const preparationData = context.settings.ignoredTimeData;
  state.unlock();

  if (preparationCallback) {
    const float preparation = std::chrono::duration<float, std::milli>(std::chrono::steady_clock::now() - start).count();
    preparationCallback(preparation, preparationData);
  }
  std::string error;
  const int32_t status = plugin->render(request, &error);
  if (status != ZVR_SUCCESS)
    fail(status < 0 ? status : ZVR_ERROR_INTERNAL,
         std::string("plug-in ") + plugin->name() + " failed to render: " + (error.empty() ? "no reason given" : error));
}

}  // namespace zvr::core
