// The render host with the tests' plug-in: preconditions, accumulation, callbacks, abort, what
// reaches the plug-in, and the API trace.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <regex>
#include <thread>

#include "tests/core/core_test_support.h"
#include "core/plugin_api.h"

using core_test::ScopedContext;

extern "C" ZvrStatus zvrTestLayerSetIterations(ZvrContext context, uint32_t count);

namespace {

struct CoreTestPluginReport {
  const zvr::RenderParams* params;
  size_t shapeCount, lightCount;
  const std::vector<uint32_t>* aovs;
  uint32_t iterations;
  uint64_t firstSampleIndex;
  int renders;
};

CoreTestPluginReport pluginReport() {
  void* library = dlopen((core_test::binFolder() + "/libZvrCoreTestPlugin.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(library, nullptr);
  auto report = reinterpret_cast<CoreTestPluginReport (*)()>(dlsym(library, "coreTestPluginReport"));
  EXPECT_NE(report, nullptr);
  dlclose(library);
  return report();
}

ZvrFrameBuffer makeFrameBuffer(ZvrContext context, uint32_t width, uint32_t height) {
  ZvrFramebufferDesc desc{width, height};
  ZvrFrameBuffer fb = nullptr;
  EXPECT_EQ(zvrContextCreateFrameBuffer(context, {4, ZVR_COMPONENT_TYPE_FLOAT32}, &desc, &fb), ZVR_SUCCESS);
  return fb;
}

class CoreRender : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_GE(core_test::testPluginId(), 0); }
  ScopedContext context{ZVR_CREATION_FLAGS_ENABLE_CPU, {core_test::testPluginId()}};
};

TEST_F(CoreRender, RefusesToRenderWithoutWhatItNeeds) {
  struct Case {
    const char* name;
    std::function<void(ZvrContext)> setup;
    ZvrStatus status;
    const char* message;
  };
  const Case cases[] = {
      {"no scene", [](ZvrContext) {}, ZVR_ERROR_INVALID_ARGUMENT, "no scene"},
      {"no camera", [](ZvrContext c) {
         auto scene = core_test::makeScene(c, 1, 0.5f);
         zvrSceneSetCamera(scene.scene, nullptr);
       }, ZVR_ERROR_INVALID_ARGUMENT, "no camera"},
      {"no colour target", [](ZvrContext c) {
         core_test::makeScene(c, 1, 0.5f);
         zvrContextSetAOV(c, 1, makeFrameBuffer(c, 4, 4));
       }, ZVR_ERROR_INVALID_ARGUMENT, "colour AOV 0"},
      {"sizes differ", [](ZvrContext c) {
         core_test::makeScene(c, 1, 0.5f);
         zvrContextSetAOV(c, 0, makeFrameBuffer(c, 4, 4));
         zvrContextSetAOV(c, 1, makeFrameBuffer(c, 4, 5));
       }, ZVR_ERROR_INVALID_ARGUMENT, "all bound framebuffers must match"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScopedContext local;
    c.setup(local);
    EXPECT_EQ(zvrContextRender(local), c.status);
    EXPECT_NE(lastError(local).find(c.message), std::string::npos) << lastError(local);
  }
}

TEST_F(CoreRender, IterationsAccumulateAcrossCallsWithCallbacksInOrder) {
  core_test::makeScene(context, 2, 0.5f);
  ZvrFrameBuffer color = makeFrameBuffer(context, 3, 2);
  ASSERT_EQ(zvrContextSetAOV(context, 0, color), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 4), ZVR_SUCCESS);
  struct Log {
    std::vector<std::string> events;
  } log;
  auto progress = [](float fraction, void* data) {
    static_cast<Log*>(data)->events.push_back("progress " + std::to_string(fraction).substr(0, 4));
  };
  auto update = [](float ms, void* data) { static_cast<Log*>(data)->events.push_back("update " + std::to_string(ms).substr(0, 3)); };
  auto first = [](float ms, void* data) { static_cast<Log*>(data)->events.push_back("first " + std::to_string(ms).substr(0, 3)); };
  auto ignored = [](float ms, void* data) {
    if (ms >= 0) static_cast<Log*>(data)->events.push_back("ignored");
  };
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC, reinterpret_cast<void*>(+progress)), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA, &log), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_UPDATE_TIME_CALLBACK_FUNC, reinterpret_cast<void*>(+update)), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_UPDATE_TIME_CALLBACK_DATA, &log), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_TIME_CALLBACK_FUNC, reinterpret_cast<void*>(+first)), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_TIME_CALLBACK_DATA, &log), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_IGNORED_TIME_CALLBACK_FUNC, reinterpret_cast<void*>(+ignored)), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_IGNORED_TIME_CALLBACK_DATA, &log), ZVR_SUCCESS);

  ASSERT_EQ(zvrContextRender(context), ZVR_SUCCESS) << lastError(context);
  EXPECT_EQ(log.events, (std::vector<std::string>{"ignored", "update 1.5", "first 2.5", "progress 0.25", "progress 0.50",
                                                  "progress 0.75", "progress 1.00"}));
  log.events.clear();
  ASSERT_EQ(zvrContextRender(context), ZVR_SUCCESS);
  EXPECT_EQ(pluginReport().firstSampleIndex, 4u) << "the second call continues the sample sequence";
  EXPECT_EQ(log.events, (std::vector<std::string>{"ignored", "progress 0.25", "progress 0.50", "progress 0.75",
                                                  "progress 1.00"}))
      << "a call that continues the picture keeps the first picture's update and first-iteration times";
  uint32_t iterations = 0;
  ASSERT_EQ(zvrFrameBufferGetInfo(color, ZVR_FRAMEBUFFER_ITERATIONS, 4, &iterations, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(iterations, 8u);
  const std::vector<float> pixels = core_test::readPixels(color);
  ASSERT_EQ(pixels.size(), 3u * 2u * 4u);
  EXPECT_EQ(pixels[0], 0 + 1 + 2 + 3 + 4 + 5 + 6 + 7);
  EXPECT_EQ(pixels[1], 8 * 2) << "two visible shapes in every iteration's snapshot";
  EXPECT_FLOAT_EQ(pixels[2], 8 * 0.5f);
  EXPECT_EQ(pixels[3], 8);
  ASSERT_EQ(zvrFrameBufferClear(color), ZVR_SUCCESS);
  log.events.clear();
  ASSERT_EQ(zvrContextRender(context), ZVR_SUCCESS);
  EXPECT_EQ(pluginReport().firstSampleIndex, 0u) << "a cleared framebuffer starts the sequence again";
  EXPECT_EQ(log.events.at(1), "update 1.5");
  EXPECT_EQ(log.events.at(2), "first 2.5");
}

TEST_F(CoreRender, AbortFromAnotherThreadLeavesWholeIterationsAndReadsAreConsistent) {
  core_test::makeScene(context, 1, 0.5f);
  ZvrFrameBuffer color = makeFrameBuffer(context, 16, 16);
  ASSERT_EQ(zvrContextSetAOV(context, 0, color), ZVR_SUCCESS);
  const uint32_t requested = 2000;  // 2 ms each: four seconds if the abort were lost
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, requested), ZVR_SUCCESS);
  std::atomic<int> progressCalls{0};
  auto progress = [](float, void* data) { ++*static_cast<std::atomic<int>*>(data); };
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC, reinterpret_cast<void*>(+progress)), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA, &progressCalls), ZVR_SUCCESS);

  std::atomic<bool> consistent{true};
  ZvrStatus deleteWhileRendering = ZVR_SUCCESS;
  std::thread viewer([&] {
    while (progressCalls < 5) std::this_thread::yield();
    for (int read = 0; read < 20; ++read) {
      const std::vector<float> pixels = core_test::readPixels(color);
      const float n = pixels[3];
      if (pixels[0] != n * (n - 1) / 2 || pixels[pixels.size() - 4] != pixels[0]) consistent = false;
    }
    deleteWhileRendering = zvrObjectDelete(color);
    EXPECT_EQ(zvrContextAbortRender(context), ZVR_SUCCESS);
  });
  EXPECT_EQ(zvrContextRender(context), ZVR_SUCCESS);
  viewer.join();
  EXPECT_TRUE(consistent) << "a read saw part of an iteration";
  EXPECT_EQ(deleteWhileRendering, ZVR_ERROR_BUSY);
  uint32_t iterations = 0;
  ASSERT_EQ(zvrFrameBufferGetInfo(color, ZVR_FRAMEBUFFER_ITERATIONS, 4, &iterations, nullptr), ZVR_SUCCESS);
  EXPECT_GE(iterations, 5u);
  EXPECT_LT(iterations, requested);
  const std::vector<float> pixels = core_test::readPixels(color);
  EXPECT_EQ(pixels[3], float(iterations));
  EXPECT_EQ(pixels[0], float(iterations) * float(iterations - 1) / 2);
}

TEST_F(CoreRender, ParametersLayersAndTheSceneReachThePlugin) {
  const ZvrContextProperties properties[] = {ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT, 3, 0};
  ScopedContext threaded(ZVR_CREATION_FLAGS_ENABLE_CPU, {core_test::testPluginId()}, properties);
  auto scene = core_test::makeScene(threaded, 3, 0.5f);
  ASSERT_EQ(zvrShapeSetVisibility(scene.shapes[1], 0), ZVR_SUCCESS);
  ZvrLight light = nullptr;
  ASSERT_EQ(zvrContextCreateLight(threaded, ZVR_LIGHT_DIRECTIONAL, &light), ZVR_SUCCESS);
  ASSERT_EQ(zvrSceneAttachLight(scene.scene, light), ZVR_SUCCESS);
  ZvrFrameBuffer color = makeFrameBuffer(threaded, 2, 2), opacity = makeFrameBuffer(threaded, 2, 2);
  ASSERT_EQ(zvrContextSetAOV(threaded, 0, color), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetAOV(threaded, 1, opacity), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKey1u(threaded, ZVR_CONTEXT_MAX_DEPTH_GLOSSY, 5), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKey1f(threaded, ZVR_CONTEXT_DISPLAY_GAMMA, 1.8f), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextAttachRenderLayer(threaded, "hero"), ZVR_SUCCESS);
  const float table[8] = {1, 0, 0, 0, 0, 1, 0, 0};
  ASSERT_EQ(zvrContextSetAOVindicesLookup(threaded, 0, 2, table), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextRender(threaded), ZVR_SUCCESS) << lastError(threaded);
  const CoreTestPluginReport report = pluginReport();
  EXPECT_EQ(report.params->threadCount, 3u);
  EXPECT_EQ(report.params->maxDepthGlossy, 5u);
  EXPECT_EQ(report.params->maxDepth, 8u);
  EXPECT_FLOAT_EQ(report.params->displayGamma, 1.8f);
  EXPECT_EQ(report.params->attachedLayers, std::vector<std::string>{"hero"});
  EXPECT_TRUE(report.params->anyLayerAttached);
  EXPECT_EQ(report.params->indexColors, std::vector<float>(table, table + 8));
  EXPECT_EQ(report.shapeCount, 3u);
  EXPECT_EQ(report.lightCount, 1u);
  EXPECT_EQ(*report.aovs, (std::vector<uint32_t>{0, 1}));
  EXPECT_EQ(core_test::readPixels(opacity)[1], 2) << "two of the three shapes are visible";
}

TEST_F(CoreRender, PluginRefusalsCarryThePluginsText) {
  ZvrFrameBuffer fb = makeFrameBuffer(context, 2, 2);
  EXPECT_EQ(zvrContextSetAOV(context, 7, fb), ZVR_ERROR_UNSUPPORTED);
  EXPECT_EQ(lastError(context), "zvrContextSetAOV: plug-in CoreTest cannot render AOV 7: the test plug-in renders only AOVs 0, 1 and 64");
  EXPECT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_CPU_INTEGRATOR, "path"), ZVR_SUCCESS);
  EXPECT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_GPU_INTEGRATOR, "gpucontour"), ZVR_ERROR_UNSUPPORTED);
  EXPECT_NE(lastError(context).find("knows only \"path\""), std::string::npos) << lastError(context);
  uint32_t version = 0;
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_PLUGIN_VERSION, 4, &version, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(version, 0x10203u);
  int32_t active = -1;
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_ACTIVE_PLUGIN, 4, &active, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(active, core_test::testPluginId());
  EXPECT_EQ(zvrContextSetActivePlugin(context, active + 100), ZVR_ERROR_NO_PLUGIN);
  EXPECT_EQ(zvrContextSetActivePlugin(context, active), ZVR_SUCCESS);
  EXPECT_EQ(zvrContextSetAOV(context, 7, nullptr), ZVR_SUCCESS) << "unbinding asks nothing of the plug-in";
}

TEST(CoreTrace, EveryCallIsOneLineWithItsArgumentsAndStatus) {
  const std::string path = core_test::makeTempFolder() + "/trace.log";
  const int32_t plugin = core_test::testPluginId();  // registered before tracing starts
  ASSERT_GE(plugin, 0);
  setenv("ZVR_TRACE", path.c_str(), 1);
  {
    ScopedContext context(ZVR_CREATION_FLAGS_ENABLE_CPU, {plugin});
    zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 4);
    ASSERT_EQ(zvrTestLayerSetIterations(context, 5), ZVR_SUCCESS);  // a layered library's call: not traced
    zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_DISPLAY_GAMMA, 2.4f);
    zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, "a \"b\".ocio");
    zvrContextSetParameterByKey1u(context, 4242, 1);
    ZvrCamera camera = nullptr;
    zvrContextCreateCamera(context, &camera);
    const float m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.5f, 2, 3, 1};
    zvrCameraSetTransform(camera, 0, m);
    zvrRegisterPlugin("ZvrCoreTestPlugin.dll");
  }
  unsetenv("ZVR_TRACE");
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  const std::string h = "0x[0-9a-f]+";
  const std::vector<std::string> patterns = {
      "zvrCreateContext\\(apiVersion=0x300106, pluginCount=1, creationFlags=0x10, properties=null, cacheLocation=null, outContext=" + h + "\\) -> 0",
      "zvrContextSetParameterByKey1u\\(context=" + h + ", key=267, value=4\\) -> 0",
      "zvrContextSetParameterByKey1f\\(context=" + h + ", key=292, value=2.4\\) -> 0",
      "zvrContextSetParameterByKeyString\\(context=" + h + ", key=369, value=\"a \\\\\"b\\\\\".ocio\"\\) -> 0",
      "zvrContextSetParameterByKey1u\\(context=" + h + ", key=4242, value=1\\) -> -5",
      "zvrContextCreateCamera\\(context=" + h + ", outCamera=" + h + "\\) -> 0",
      "zvrCameraSetTransform\\(camera=" + h + ", transpose=0, matrix=\\[1 0 0 0 0 1 0 0 0 0 1 0 0.5 2 3 1\\]\\) -> 0",
      "zvrRegisterPlugin\\(pluginName=\"ZvrCoreTestPlugin.dll\"\\) -> [0-9]+",
      "zvrObjectDelete\\(object=" + h + "\\) -> 0",
  };
  ASSERT_EQ(lines.size(), patterns.size());
  for (size_t i = 0; i < lines.size(); ++i) EXPECT_TRUE(std::regex_match(lines[i], std::regex(patterns[i]))) << lines[i];
}

}  // namespace
