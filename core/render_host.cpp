#include "render_host.h"

#include <chrono>

#include "context.h"
#include "failure.h"
#include "framebuffer.h"
#include "scene_objects.h"

namespace zvr::core {
namespace {

constexpr uint32_t kColorAov = 0;

// The update and first-iteration times describe the way to the first picture, so only the first
// render call into cleared framebuffers reports them; later calls would overwrite them with the
// times of a batch that continues the picture.
class CallbackHost : public zvr::RenderHost {
 public:
  CallbackHost(const Context& context, bool firstPicture) : context_(context), firstPicture_(firstPicture) {}
  void reportProgress(float fraction) override {
    if (context_.settings.progressCallback) context_.settings.progressCallback(fraction, context_.settings.progressData);
  }
  void reportUpdateTime(float milliseconds) override {
    if (firstPicture_ && context_.settings.updateTimeCallback)
      context_.settings.updateTimeCallback(milliseconds, context_.settings.updateTimeData);
  }
  void reportFirstIterationTime(float milliseconds) override {
    if (firstPicture_ && context_.settings.renderTimeCallback)
      context_.settings.renderTimeCallback(milliseconds, context_.settings.renderTimeData);
  }
  bool abortRequested() const override { return context_.abortRequested.load(); }

 private:
  const Context& context_;
  const bool firstPicture_;
};

struct RenderingFlag {
  explicit RenderingFlag(Context& context) : context_(context) { context_.rendering = true; }
  ~RenderingFlag() { context_.rendering = false; }
  Context& context_;
};

}  // namespace

zvr::SceneSnapshot buildSnapshot(const Context& context) {
  zvr::SceneSnapshot snapshot;
  const Scene* scene = context.scene;
  if (!scene) return snapshot;
  snapshot.shapes.reserve(scene->shapes.size());
  for (const Shape* shape : scene->shapes) snapshot.shapes.push_back(shape->snapshot());
  for (const Light* light : scene->lights) snapshot.lights.push_back(light->data);
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
  zvr::RenderPlugin* plugin = context.activePlugin();
  if (!plugin) fail(ZVR_ERROR_NO_PLUGIN, "the context has no plug-in to render with");
  if (!context.scene) fail(ZVR_ERROR_INVALID_ARGUMENT, "the context has no scene (zvrContextSetScene)");
  if (!context.scene->camera) fail(ZVR_ERROR_INVALID_ARGUMENT, "the scene has no camera (zvrSceneSetCamera)");
  auto color = context.aovs.find(kColorAov);
  if (color == context.aovs.end())
    fail(ZVR_ERROR_INVALID_ARGUMENT, "no framebuffer is bound to the colour AOV 0 (zvrContextSetAOV)");
  const FrameBuffer* colorTarget = color->second;

  zvr::RenderRequest request;
  for (const auto& [aov, frameBuffer] : context.aovs) {
    if (frameBuffer->width() != colorTarget->width() || frameBuffer->height() != colorTarget->height())
      fail(ZVR_ERROR_INVALID_ARGUMENT, "the framebuffer of AOV " + std::to_string(aov) + " is " +
                                           std::to_string(frameBuffer->width()) + "x" + std::to_string(frameBuffer->height()) +
                                           ", the colour framebuffer " + std::to_string(colorTarget->width()) + "x" +
                                           std::to_string(colorTarget->height()) + ": all bound framebuffers must match");
    request.targets.push_back({aov, frameBuffer});
  }
  const zvr::SceneSnapshot snapshot = buildSnapshot(context);
  const zvr::RenderParams params = buildRenderParams(context);
  CallbackHost host(context, colorTarget->iterations() == 0);
  request.scene = &snapshot;
  request.params = &params;
  request.iterations = context.settings.iterations;
  request.firstSampleIndex = colorTarget->iterations();
  request.width = colorTarget->width();
  request.height = colorTarget->height();
  request.host = &host;

  if (context.settings.ignoredTimeCallback) {
    const float preparation = std::chrono::duration<float, std::milli>(std::chrono::steady_clock::now() - start).count();
    context.settings.ignoredTimeCallback(preparation, context.settings.ignoredTimeData);
  }
  context.abortRequested = false;
  RenderingFlag busy(context);
  std::string error;
  const int32_t status = plugin->render(request, &error);
  if (status != ZVR_SUCCESS)
    fail(status < 0 ? status : ZVR_ERROR_INTERNAL,
         std::string("plug-in ") + plugin->name() + " failed to render: " + (error.empty() ? "no reason given" : error));
}

}  // namespace zvr::core
