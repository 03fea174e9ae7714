// A small but real render plug-in for the core's tests: every pixel of every target gets, in R,
// the sample index of the iteration; in G, the number of visible shapes the snapshot holds; in B,
// the camera's field of view; A is the weight 1. Deep targets also get two samples a pixel, the
// farther one first: depth 2 green and depth 1 red, each of weight 0.5. What it was last asked is
// kept for inspection.
#include <mutex>
#include <vector>

#include "tests/core/test_plugin_report.h"

namespace {

constexpr uint32_t kDeepColorAov = 64;

std::mutex gMutex;
CoreTestPluginReport gLast;

class TestPlugin : public zvr::RenderPlugin {
 public:
  const char* name() const override { return "CoreTest"; }
  ZvrPluginFamily family() const override { return ZVR_PLUGIN_FAMILY_VELDER; }
  uint32_t version() const override { return 0x10203; }
  bool supportsAov(uint32_t aov, std::string* why) const override {
    if (aov <= 1 || aov == kDeepColorAov) return true;
    if (why) *why = "the test plug-in renders only AOVs 0, 1 and 64";
    return false;
  }
  bool setIntegrator(bool, const std::string& name, std::string* error) override {
    if (name == "path") return true;
    if (error) *error = "the test plug-in knows only \"path\"";
    return false;
  }
  bool supportsRenderLayers() const override { return true; }

  int32_t render(const zvr::RenderRequest& request, std::string* error) override {
    if (request.iterations == 0) {
      *error = "zero iterations";
      return -2;
    }
    size_t visible = 0;
    for (const zvr::ShapeData& shape : request.scene->shapes) visible += shape.visible ? 1 : 0;
    {
      std::lock_guard<std::mutex> lock(gMutex);
      gLast = {*request.params, request.scene->shapes.size(), request.scene->lights.size(), {}, request.firstSampleIndex};
      for (const auto& target : request.targets) gLast.aovs.push_back(target.aov);
    }
    request.host->reportUpdateTime(1.5f);
    const size_t pixels = size_t(request.width) * request.height;
    std::vector<float> rgba(pixels * 4);
    const std::vector<uint32_t> deepCounts(pixels, 2);
    std::vector<zvr::FrameBufferTarget::DeepSample> deepSamples;
    for (size_t p = 0; p < pixels; ++p) {
      deepSamples.push_back({2.0f, {0, 0.5f, 0, 0.5f}});
      deepSamples.push_back({1.0f, {0.5f, 0, 0, 0.5f}});
    }
    for (uint32_t i = 0; i < request.iterations; ++i) {
      if (request.host->abortRequested()) break;
      for (size_t p = 0; p < rgba.size(); p += 4) {
        rgba[p] = float(request.firstSampleIndex + i);
        rgba[p + 1] = float(visible);
        rgba[p + 2] = request.scene->camera.fovY;
        rgba[p + 3] = 1;
      }
      for (const auto& target : request.targets) {
        target.target->addIteration(rgba.data());
        if (target.target->isDeep()) target.target->addDeepSamples(deepCounts.data(), deepSamples.data());
      }
      if (i == 0) request.host->reportFirstIterationTime(2.5f);
      request.host->reportProgress(float(i + 1) / float(request.iterations));
    }
    return 0;
  }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) zvr::RenderPlugin* ZVR_PLUGIN_ENTRY() { return new TestPlugin(); }

extern "C" __attribute__((visibility("default"))) CoreTestPluginReport coreTestPluginReport() {
  std::lock_guard<std::mutex> lock(gMutex);
  return gLast;
}
