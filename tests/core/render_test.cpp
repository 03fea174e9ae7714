// The render host with the tests' plug-in: preconditions, accumulation, callbacks, what reaches
// the plug-in, and the API trace.
#include <dlfcn.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <regex>

#include "tests/core/core_test_support.h"
#include "tests/core/test_plugin_report.h"

extern "C" ZvrStatus zvrTestLayerSetIterations(ZvrContext context, uint32_t count);

namespace {

using core_test::CoreTest;
using core_test::makeFrameBuffer;

CoreTestPluginReport pluginReport() {
  void* library = dlopen(ZVR_BIN_DIR "/libZvrCoreTestPlugin.so", RTLD_NOW | RTLD_NOLOAD);
  auto report = reinterpret_cast<CoreTestPluginReport (*)()>(library ? dlsym(library, "coreTestPluginReport") : nullptr);
  EXPECT_NE(report, nullptr);
  dlclose(library);
  return report();
}

TEST_F(CoreTest, RenderRefusesWithoutWhatItNeeds) {
  const std::pair<std::function<void(ZvrContext)>, const char*> cases[] = {
      {[](ZvrContext) {}, "no scene"},
      {[](ZvrContext c) { zvrSceneSetCamera(core_test::makeScene(c, 1, 0.5f).scene, nullptr); }, "no camera"},
      {[](ZvrContext c) { core_test::makeScene(c, 1, 0.5f), zvrContextSetAOV(c, 1, makeFrameBuffer(c, 4, 4)); }, "colour AOV 0"},
      {[](ZvrContext c) {
         core_test::makeScene(c, 1, 0.5f);
         zvrContextSetAOV(c, 0, makeFrameBuffer(c, 4, 4));
         zvrContextSetAOV(c, 1, makeFrameBuffer(c, 4, 5));
       }, "all bound framebuffers must match"},
  };
  for (const auto& [setup, words] : cases) {
    ScopedContext local({core_test::testPluginId()});
    setup(local);
    EXPECT_TRUE(core_test::fails(zvrContextRender(local), ZVR_ERROR_INVALID_ARGUMENT, local, words));
  }
}

TEST_F(CoreTest, IterationsAccumulateAcrossCallsWithCallbacksInOrder) {
  core_test::makeScene(context, 2, 0.5f);
  ZvrFrameBuffer color = makeFrameBuffer(context, 3, 2);
  ASSERT_EQ(zvrContextSetAOV(context, 0, color), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 4), ZVR_SUCCESS);
  using Log = std::string;
  Log log;
  using Callback = void (*)(float, void*);
  const std::tuple<uint32_t, uint32_t, Callback> callbacks[] = {
      {ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA,
       [](float f, void* log) { *static_cast<Log*>(log) += " " + std::to_string(f).substr(0, 4); }},
      {ZVR_CONTEXT_UPDATE_TIME_CALLBACK_FUNC, ZVR_CONTEXT_UPDATE_TIME_CALLBACK_DATA,
       [](float ms, void* log) { *static_cast<Log*>(log) += " update " + std::to_string(ms).substr(0, 3); }},
      {ZVR_CONTEXT_RENDER_TIME_CALLBACK_FUNC, ZVR_CONTEXT_RENDER_TIME_CALLBACK_DATA,
       [](float ms, void* log) { *static_cast<Log*>(log) += " first " + std::to_string(ms).substr(0, 3); }},
      {ZVR_CONTEXT_IGNORED_TIME_CALLBACK_FUNC, ZVR_CONTEXT_IGNORED_TIME_CALLBACK_DATA,
       [](float ms, void* log) { *static_cast<Log*>(log) += ms >= 0 ? "ignored" : "negative"; }},
  };
  for (const auto& [funcKey, dataKey, callback] : callbacks) {
    ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, funcKey, reinterpret_cast<void*>(callback)), ZVR_SUCCESS);
    ASSERT_EQ(zvrContextSetParameterByKeyPtr(context, dataKey, &log), ZVR_SUCCESS);
  }
  ASSERT_EQ(zvrContextRender(context), ZVR_SUCCESS) << lastError(context);
  EXPECT_EQ(log, "ignored update 1.5 first 2.5 0.25 0.50 0.75 1.00");
  log.clear();
  ASSERT_EQ(zvrContextRender(context), ZVR_SUCCESS);
  EXPECT_EQ(log, "ignored 0.25 0.50 0.75 1.00")
      << "a call that continues the picture keeps the first picture's update and first-iteration times";
  EXPECT_EQ(core_test::info<uint32_t>(zvrFrameBufferGetInfo, color, ZVR_FRAMEBUFFER_ITERATIONS), 8u);
  const std::vector<float> pixels = core_test::readPixels(color);
  ASSERT_EQ(pixels.size(), 3u * 2u * 4u);
  // Sample indices 0 to 7 in R (the second call continued the sequence), two visible shapes in G,
  // the field of view in B, weight 1 in A.
  EXPECT_EQ(std::vector<float>(pixels.begin(), pixels.begin() + 4), (std::vector<float>{28, 16, 4, 8}));
  ASSERT_EQ(zvrFrameBufferClear(color), ZVR_SUCCESS);
  log.clear();
  ASSERT_EQ(zvrContextRender(context), ZVR_SUCCESS);
  EXPECT_EQ(pluginReport().firstSampleIndex, 0u) << "a cleared framebuffer starts the sequence again";
  EXPECT_EQ(log, "ignored update 1.5 first 2.5 0.25 0.50 0.75 1.00");
}

TEST_F(CoreTest, ParametersLayersAndTheSceneReachThePlugin) {
  const ZvrContextProperties properties[] = {ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT, 3, 0};
  ScopedContext threaded({core_test::testPluginId()}, ZVR_CREATION_FLAGS_ENABLE_CPU, properties);
  auto scene = core_test::makeScene(threaded, 3, 0.5f);
  ASSERT_EQ(zvrShapeSetVisibility(scene.shapes[1], 0), ZVR_SUCCESS);
  ZvrLight light = nullptr;
  ASSERT_EQ(zvrContextCreateLight(threaded, ZVR_LIGHT_DIRECTIONAL, &light), ZVR_SUCCESS);
  ASSERT_EQ(zvrSceneAttachLight(scene.scene, light), ZVR_SUCCESS);
  ZvrFrameBuffer opacity = makeFrameBuffer(threaded, 2, 2);
  ASSERT_EQ(zvrContextSetAOV(threaded, 0, makeFrameBuffer(threaded, 2, 2)), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetAOV(threaded, 1, opacity), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKey1u(threaded, ZVR_CONTEXT_MAX_DEPTH_GLOSSY, 5), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKey1f(threaded, ZVR_CONTEXT_DISPLAY_GAMMA, 1.8f), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextAttachRenderLayer(threaded, "hero"), ZVR_SUCCESS);
  const float table[8] = {1, 0, 0, 0, 0, 1, 0, 0};
  ASSERT_EQ(zvrContextSetAOVindicesLookup(threaded, 0, 2, table), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextRender(threaded), ZVR_SUCCESS) << lastError(threaded);
  const CoreTestPluginReport report = pluginReport();
  const zvr::RenderParams& params = report.params;
  EXPECT_EQ(std::make_tuple(params.threadCount, params.maxDepthGlossy, params.maxDepth, params.displayGamma), std::make_tuple(3u, 5u, 8u, 1.8f));
  EXPECT_EQ(std::make_tuple(params.attachedLayers, params.anyLayerAttached, params.indexColors),
            std::make_tuple(std::vector<std::string>{"hero"}, true, std::vector<float>(table, table + 8)));
  EXPECT_EQ(std::make_tuple(report.shapeCount, report.lightCount, report.aovs), std::make_tuple(3u, 1u, std::vector<uint32_t>{0, 1}));
  EXPECT_EQ(core_test::readPixels(opacity)[1], 2) << "two of the three shapes are visible";
}

TEST_F(CoreTest, PluginRefusalsCarryThePluginsText) {
  EXPECT_TRUE(core_test::fails(zvrContextSetAOV(context, 7, makeFrameBuffer(context, 2, 2)), ZVR_ERROR_UNSUPPORTED, context,
                               "zvrContextSetAOV: plug-in CoreTest cannot render AOV 7: the test plug-in renders only AOVs 0, 1 and 64"));
  EXPECT_EQ(zvrContextSetAOV(context, 7, nullptr), ZVR_SUCCESS) << "unbinding asks nothing of the plug-in";
  EXPECT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_CPU_INTEGRATOR, "path"), ZVR_SUCCESS);
  EXPECT_TRUE(core_test::fails(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_GPU_INTEGRATOR, "gpucontour"),
                               ZVR_ERROR_UNSUPPORTED, context, "knows only \"path\""));
  EXPECT_EQ(core_test::info<uint32_t>(zvrContextGetInfo, context, ZVR_CONTEXT_PLUGIN_VERSION), 0x10203u);
  const int32_t active = core_test::info<int32_t>(zvrContextGetInfo, context, ZVR_CONTEXT_ACTIVE_PLUGIN);
  EXPECT_EQ(active, core_test::testPluginId());
  EXPECT_EQ(zvrContextSetActivePlugin(context, active + 100), ZVR_ERROR_NO_PLUGIN);
  EXPECT_EQ(zvrContextSetActivePlugin(context, active), ZVR_SUCCESS);
}

TEST_F(CoreTest, TraceHasEveryCallIsOneLineWithItsArgumentsAndStatus) {
  const std::string path = folder + "/trace.log";
  const int32_t plugin = core_test::testPluginId();  // registered before tracing starts
  ASSERT_GE(plugin, 0);
  setenv("ZVR_TRACE", path.c_str(), 1);
  {
    ScopedContext context({plugin});
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
