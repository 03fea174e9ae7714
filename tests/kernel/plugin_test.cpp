// The three plug-ins as the core sees them: loading, integrator names, render layers, preview
// averaging, progress and abort, and refusals of bad requests.
#include <dlfcn.h>

#include <set>
#include <tuple>

#include "kernel/aov.h"
#include "plugins/dorrik/dorrik_plugin.h"
#include "plugins/quillon/quillon_plugin.h"
#include "plugins/velder/velder_plugin.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

SceneSnapshot simpleScene() {
  return sceneOf({shape(1, makeQuad(3), diffuseMaterial(0.5f, 0.5f, 0.5f)),
                  shape(2, makeSphere(0.5f, 16, 8), diffuseMaterial(0.8f, 0.2f, 0.2f), translation(0, 0.5f, 0))},
                 {environmentLight(1), pointLight(1, 2, 1, 3)}, cameraAt(0, 1, 3, 0, 0.4f, 0));
}

TEST(Plugins, SharedLibrariesExportOnlyTheVersionedEntryAndRender) {
  const std::tuple<const char*, const char*, ZvrPluginFamily> plugins[] = {
      {"libVelder64.so", "Velder", ZVR_PLUGIN_FAMILY_VELDER},
      {"libQuillon64.so", "Quillon", ZVR_PLUGIN_FAMILY_QUILLON},
      {"libDorrik.so", "Dorrik", ZVR_PLUGIN_FAMILY_DORRIK}};
  for (const auto& [file, name, family] : plugins) {
    SCOPED_TRACE(file);
    void* lib = dlopen((std::string(ZVR_BIN_DIR) + "/" + file).c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    auto entry = reinterpret_cast<ZvrPluginEntryFn>(dlsym(lib, ZVR_PLUGIN_ENTRY_NAME));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(dlsym(lib, "zvrPluginCreate_v0"), nullptr);
    EXPECT_EQ(dlsym(lib, "_ZN3zvr6kernel9invert3x3ERKNS_7Matrix4EPf"), nullptr) << "the kernel's symbols must stay hidden";
    std::unique_ptr<RenderPlugin> plugin(entry());
    ASSERT_NE(plugin, nullptr);
    EXPECT_STREQ(plugin->name(), name);
    EXPECT_EQ(plugin->family(), family);
    EXPECT_NE(plugin->version(), 0u);
    EXPECT_GT(meanChannel(render(simpleScene(), RenderParams{}, 8, 8, 2, {kAovColor}, plugin.get())[0], 0), 0.0f);
    plugin.reset();
    dlclose(lib);
  }
}

TEST(Quillon, IntegratorNamesChangeThePictureOrAreRefused) {
  const char* const valid = "\"pathtracer\", \"direct\", \"ao\", \"gpucontour\", \"cpu\", \"gpu\"";
  for (const char* name : {"pathtracer", "direct", "ao", "cpu", "gpu", "gpucontour", "bidir", ""})
    for (bool gpuKey : {false, true}) {
      quillon::QuillonPlugin plugin;
      std::string error;
      const bool known = *name && std::string(name) != "bidir";
      EXPECT_EQ(plugin.setIntegrator(gpuKey, name, &error), known) << name;
      if (known) EXPECT_EQ(error, "") << name;
      else EXPECT_NE(error.find(*name ? valid : "unknown integrator"), std::string::npos) << error;
    }
  SceneSnapshot scene = simpleScene();
  auto picture = [&](quillon::QuillonPlugin& plugin) {
    return render(scene, boxFilter(), 16, 16, 16, {kAovColor, kAovIndirectIllumination}, &plugin);
  };
  std::string error;
  quillon::QuillonPlugin path, direct, ao;
  ASSERT_TRUE(direct.setIntegrator(false, "direct", &error));
  ASSERT_TRUE(ao.setIntegrator(false, "ao", &error));
  auto withPaths = picture(path), withDirect = picture(direct);
  auto aoColor = picture(ao)[0];
  EXPECT_GT(meanChannel(withPaths[1], 0), 0.0f);
  EXPECT_EQ(meanChannel(withDirect[1], 0), 0.0f) << "direct lighting has no indirect part";
  EXPECT_NE(withPaths[0], withDirect[0]);
  for (size_t i = 0; i < aoColor.size(); i += 4) {
    ASSERT_TRUE(aoColor[i] >= 0 && aoColor[i] <= 1) << "occlusion is a fraction";
    ASSERT_EQ(aoColor[i], aoColor[i + 1]) << "occlusion is grey";
  }
  // Every device falls back to the CPU: the key set last decides, and a refused name changes nothing.
  quillon::QuillonPlugin plugin;
  ASSERT_TRUE(plugin.setIntegrator(false, "direct", &error));
  ASSERT_TRUE(plugin.setIntegrator(true, "ao", &error));
  ASSERT_FALSE(plugin.setIntegrator(false, "bidir", &error));
  EXPECT_EQ(plugin.mode(false), IntegratorMode::Direct);
  EXPECT_EQ(picture(plugin)[0], aoColor);
}

TEST(Quillon, AttachedLayersFilterShapesWithLayers) {
  SceneSnapshot scene = simpleScene();
  scene.shapes[1].layers = {"hero"};
  scene.shapes[1].objectId = 5;
  scene.shapes[0].objectId = 3;  // no layers: always rendered
  quillon::QuillonPlugin plugin;
  EXPECT_TRUE(plugin.supportsRenderLayers());
  auto idsVisible = [&](bool attached, std::vector<std::string> layers) {
    RenderParams params = boxFilter();
    params.anyLayerAttached = attached;
    params.attachedLayers = std::move(layers);
    auto img = render(scene, params, 16, 16, 1, {kAovObjectId}, &plugin)[0];
    std::set<float> ids;
    for (size_t i = 0; i < img.size(); i += 4) ids.insert(img[i]);
    return ids;
  };
  EXPECT_TRUE(idsVisible(false, {}).count(5)) << "without attached layers every shape renders";
  auto ids = idsVisible(true, {"background"});
  EXPECT_FALSE(ids.count(5)) << "a shape whose layers are all detached vanishes";
  EXPECT_TRUE(ids.count(3)) << "shapes without layers always render";
  EXPECT_TRUE(idsVisible(true, {"background", "hero"}).count(5));
}

TEST(Dorrik, FramebuffersHoldRunningAveragesOfWholeIterations) {
  SceneSnapshot scene = simpleScene();
  dorrik::DorrikPlugin plugin;
  auto out = renderWith(plugin, scene, RenderParams{}, 12, 12, 5, {kAovColor, kAovAo, kAovDepth});
  ASSERT_EQ(out.status, 0) << out.error;
  for (auto& t : out.targets) {
    EXPECT_EQ(t->averages, 5);
    EXPECT_EQ(t->adds, 0);
    for (size_t i = 3; i < t->raw().size(); i += 4) ASSERT_EQ(t->raw()[i], 1.0f);
  }
  // Five single iterations with the same sample indices average to the same picture; colour does
  // not depend on which other AOVs are bound.
  std::vector<float> sum(12 * 12 * 4, 0.0f);
  for (uint32_t i = 0; i < 5; ++i) {
    auto img = renderWith(plugin, scene, RenderParams{}, 12, 12, 1, {kAovColor}, i).image();
    for (size_t k = 0; k < sum.size(); ++k) sum[k] += img[k] / 5;
  }
  auto avg = out.image(0);
  for (size_t k = 0; k < sum.size(); ++k) ASSERT_NEAR(avg[k], sum[k], 1e-4f * std::max(1.0f, sum[k]));
}

// The preview's estimator (light sampling only, its bounce followed on a fraction of samples)
// converges to the same one-bounce picture as the path tracer limited to one bounce.
TEST(Dorrik, ConvergesToTheOneBouncePathTracer) {
  SceneSnapshot scene = simpleScene();
  scene.lights.clear();  // lit by an emissive sphere alone, so each estimator's handling of it shows
  scene.shapes.push_back(shape(3, makeSphere(0.4f, 12, 6), emitter(5), translation(-0.8f, 1.2f, 0.3f)));
  RenderParams params;
  params.maxDepth = 1;
  dorrik::DorrikPlugin preview;
  auto a = render(scene, params, 8, 8, 1024, {kAovColor}, &preview)[0];
  auto b = render(scene, params, 8, 8, 1024, {kAovColor})[0];
  double sa = 0, sb = 0;
  for (int k = 0; k < 3; ++k) sa += meanChannel(a, k), sb += meanChannel(b, k);
  EXPECT_NEAR(sa / sb, 1.0, 0.008);
}

TEST(Dorrik, RefusesAovsOfThePathTracer) {
  dorrik::DorrikPlugin plugin;
  velder::VelderPlugin velder;
  std::string why;
  for (uint32_t aov : {kAovColor, kAovDepth, kAovObjectId, kAovAlbedoDiffuse, kAovAo})
    EXPECT_TRUE(plugin.supportsAov(aov, &why)) << aov;
  for (uint32_t aov : std::initializer_list<uint32_t>{kAovVariance, kAovDirectDiffuse, kAovShadowCatcher,
                                                      kAovCryptoObject0 + 5, kAovDeepColor, kAovLpe0, kAovLightGroup0}) {
    EXPECT_FALSE(plugin.supportsAov(aov, &why)) << aov;
    EXPECT_NE(why.find("preview"), std::string::npos) << why;
    EXPECT_TRUE(velder.supportsAov(aov, &why)) << aov << ": " << why;
  }
  EXPECT_FALSE(velder.supportsAov(999, &why));
  EXPECT_NE(why.find("not a known AOV"), std::string::npos) << why;
}

TEST(RenderLoop, ReportsProgressPerIterationAndStopsOnAbort) {
  SceneSnapshot scene = simpleScene();
  velder::VelderPlugin plugin;
  auto out = renderWith(plugin, scene, RenderParams{}, 8, 8, 4, {kAovColor});
  ASSERT_EQ(out.status, 0);
  EXPECT_EQ(out.host.progress, (std::vector<float>{0.25f, 0.5f, 0.75f, 1.0f}));
  EXPECT_EQ(out.host.updateTimes.size(), 1u);
  EXPECT_EQ(out.host.firstIterationTimes.size(), 1u);
  EXPECT_EQ(out.targets[0]->iterations(), 4u);

  RenderParams params;
  TestHost host;
  host.abortAfter = 2;
  TestTarget target(8, 8);
  RenderRequest request;
  request.scene = &scene;
  request.params = &params;
  request.iterations = 10;
  request.width = request.height = 8;
  request.host = &host;
  request.targets = {{kAovColor, &target}};
  std::string error;
  EXPECT_EQ(plugin.render(request, &error), 0) << "an abort is not a failure";
  EXPECT_EQ(target.iterations(), 2u) << "only whole iterations reach the framebuffer";
  // Targets of another size than colour's, a missing target and a missing scene are refused.
  TestTarget small(4, 8);
  request.targets = {{kAovColor, &target}, {kAovDepth, &small}};
  EXPECT_EQ(plugin.render(request, &error), -2);
  EXPECT_NE(error.find("framebuffer of AOV 7 is 4x8, the colour target is 8x8"), std::string::npos) << error;
  request.targets = {{kAovColor, nullptr}};
  EXPECT_EQ(plugin.render(request, &error), -2);
  request.scene = nullptr;
  EXPECT_EQ(plugin.render(request, &error), -2);
}

TEST(RenderRequestChecks, BadScenesAndParametersAreRefusedWithAClearError) {
  using Spoil = std::function<void(SceneSnapshot&, RenderParams&, uint32_t&)>;
  auto mesh = [](std::function<void(MeshData&)> edit) {
    return Spoil([edit](SceneSnapshot& s, RenderParams&, uint32_t&) {
      auto m = makeQuad(1);
      edit(*m);
      s.shapes[0].mesh = m;
    });
  };
  auto camera = [](std::function<void(CameraData&)> edit) {
    return Spoil([edit](SceneSnapshot& s, RenderParams&, uint32_t&) { edit(s.camera); });
  };
  const std::pair<Spoil, const char*> cases[] = {
      {[](auto& s, auto&, auto&) { s.hasCamera = false; }, "no camera"},
      {mesh([](MeshData& m) { m.indices[4] = 17; }), "index 4 of triangle 1 is 17, past the 4 vertices"},
      {mesh([](MeshData& m) { m.normals.pop_back(); }), "normal stream holds 11 floats, expected 12"},
      {mesh([](MeshData& m) { m.indices.push_back(0); }), "not a multiple of 3"},
      {mesh([](MeshData& m) { m.positions[1] = NAN; }), "not finite"},
      // Beyond Embree's coordinate range the tracer would stop the process.
      {mesh([](MeshData& m) { m.positions[3] = -4e19f; }),
       "vertex 1 lies at coordinate 4e+19 once placed, beyond the ray tracer's range of +-5e+17"},
      {camera([](CameraData& c) { c.mode = 5; }), "camera mode 5"},
      {camera([](CameraData& c) { c.fovY = 0; }), "field of view"},
      {camera([](CameraData& c) { c.transform.m[13] = NAN; }), "camera transform"},
      {camera([](CameraData& c) { c.type = 1; c.orthoHeight = -2; }), "orthographic camera height"},
      {camera([](CameraData& c) { c.postScale = 0; }), "post scale"},
      {camera([](CameraData& c) { c.type = 1; c.orthoHeight = 2e30f; }),
       "the camera's rays start at coordinate 1e+30, beyond the ray tracer's range of +-5e+17"},
      {camera([](CameraData& c) { c.transform.m[14] = 3e20f; }), "beyond the ray tracer's range"},
      {camera([](CameraData& c) { c.transform.m[0] = c.transform.m[1] = c.transform.m[2] = 0; }), "collapses an axis"},
      {[](auto& s, auto&, auto&) { s.shapes[1].transform.m[0] = INFINITY; }, "shape 2: transform"},
      {[](auto& s, auto&, auto&) { s.lights[1].radiance[2] = NAN; }, "light 1001: radiance"},
      {[](auto&, auto& p, auto&) { p.imageFilterType = 9; }, "filter type 9"},
      {[](auto&, auto& p, auto&) { p.imageFilterRadius = -1; }, "radius"},
      {[](auto&, auto&, auto& a) { a = 999; }, "not a known AOV id"},
      {[](auto&, auto&, auto& a) { a = kAovLpe0; }, "the lpe0 framebuffer has no light path expression"},
  };
  velder::VelderPlugin plugin;
  for (const auto& [spoil, message] : cases) {
    SCOPED_TRACE(message);
    SceneSnapshot scene = simpleScene();
    RenderParams params;
    uint32_t aov = kAovColor;
    spoil(scene, params, aov);
    auto out = renderWith(plugin, scene, params, 8, 8, 1, {aov});
    EXPECT_LT(out.status, 0);
    EXPECT_NE(out.error.find(message), std::string::npos) << out.error;
    EXPECT_EQ(out.targets[0]->iterations(), 0u);
    // The plug-in stays usable afterwards.
    SceneSnapshot good = simpleScene();
    good.geometryRevision = 99;
    auto again = renderWith(plugin, good, RenderParams{}, 8, 8, 1, {kAovColor});
    EXPECT_EQ(again.status, 0) << again.error;
  }
}

}  // namespace
}  // namespace zvr::test
