// The three plug-ins as the core sees them: loading, integrator names, render layers, preview
// averaging, progress and abort, and refusals of bad requests.
#include <gtest/gtest.h>
#include <dlfcn.h>

#include <functional>
#include <set>
#include <tuple>

#include "kernel/aov.h"
#include "plugins/dorrik/dorrik_plugin.h"
#include "plugins/quillon/quillon_plugin.h"
#include "tests/kernel/test_support.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::test {
namespace {

using namespace kernel;

SceneSnapshot simpleScene() {
  SceneSnapshot scene;
  scene.shapes.push_back(shape(1, makeQuad(3), diffuseMaterial(0.5f, 0.5f, 0.5f)));
  scene.shapes.push_back(shape(2, makeSphere(0.5f, 16, 8), diffuseMaterial(0.8f, 0.2f, 0.2f), translation(0, 0.5f, 0)));
  scene.lights.push_back(environmentLight(1));
  scene.lights.push_back(pointLight(1, 2, 1, 3));
  scene.hasCamera = true;
  scene.camera.transform = lookAt(0, 1, 3, 0, 0.4f, 0);
  return scene;
}

struct LoadCase {
  const char* file;
  const char* name;
  ZvrPluginFamily family;
};

class PluginLoadTest : public ::testing::TestWithParam<LoadCase> {};

TEST_P(PluginLoadTest, SharedLibraryExportsOnlyTheVersionedEntry) {
  const LoadCase& c = GetParam();
  std::string path = std::string(ZVR_BIN_DIR) + "/" + c.file;
  void* lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  auto entry = reinterpret_cast<ZvrPluginEntryFn>(dlsym(lib, ZVR_PLUGIN_ENTRY_NAME));
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(dlsym(lib, "zvrPluginCreate_v0"), nullptr);
  EXPECT_EQ(dlsym(lib, "_ZN3zvr6kernel9invert3x3ERKNS_7Matrix4EPf"), nullptr) << "the kernel's symbols must stay hidden";
  std::unique_ptr<RenderPlugin> plugin(entry());
  ASSERT_NE(plugin, nullptr);
  EXPECT_STREQ(plugin->name(), c.name);
  EXPECT_EQ(plugin->family(), c.family);
  EXPECT_NE(plugin->version(), 0u);
  // A real render through the loaded library.
  SceneSnapshot scene = simpleScene();
  RenderParams params;
  auto out = renderWith(*plugin, scene, params, 8, 8, 2, {kAovColor});
  EXPECT_EQ(out.status, 0) << out.error;
  float sum = 0;
  for (float v : out.image()) sum += v;
  EXPECT_GT(sum, 8 * 8);  // alpha alone is 64; light must add to it
  plugin.reset();
  dlclose(lib);
}

INSTANTIATE_TEST_SUITE_P(Families, PluginLoadTest,
                         ::testing::Values(LoadCase{"libVelder64.so", "Velder", ZVR_PLUGIN_FAMILY_VELDER},
                                           LoadCase{"libQuillon64.so", "Quillon", ZVR_PLUGIN_FAMILY_QUILLON},
                                           LoadCase{"libDorrik.so", "Dorrik", ZVR_PLUGIN_FAMILY_DORRIK}),
                         [](const auto& info) { return std::string(info.param.name); });

struct IntegratorCase {
  const char* name;
  bool accepted;
  const char* errorPart;
};

class QuillonIntegratorTest : public ::testing::TestWithParam<IntegratorCase> {};

TEST_P(QuillonIntegratorTest, NamesAreAcceptedOrRefusedWithTheReason) {
  const IntegratorCase& c = GetParam();
  for (bool gpuKey : {false, true}) {
    quillon::QuillonPlugin plugin;
    std::string error;
    EXPECT_EQ(plugin.setIntegrator(gpuKey, c.name, &error), c.accepted) << c.name;
    if (c.accepted) EXPECT_TRUE(error.empty());
    else EXPECT_NE(error.find(c.errorPart), std::string::npos) << error;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Names, QuillonIntegratorTest,
    ::testing::Values(IntegratorCase{"pathtracer", true, ""}, IntegratorCase{"direct", true, ""}, IntegratorCase{"ao", true, ""},
                      IntegratorCase{"cpu", true, ""}, IntegratorCase{"gpu", true, ""},
                      IntegratorCase{"gpucontour", true, ""},
                      IntegratorCase{"bidir", false, "\"pathtracer\", \"direct\", \"ao\", \"gpucontour\", \"cpu\", \"gpu\""},
                      IntegratorCase{"", false, "unknown integrator"}),
    [](const auto& info) { return info.index == 7 ? std::string("empty") : std::string(info.param.name); });

TEST(QuillonIntegrators, ChangeThePicture) {
  SceneSnapshot scene = simpleScene();
  RenderParams params;
  params.imageFilterType = 0;
  auto render = [&](const char* name) {
    quillon::QuillonPlugin plugin;
    std::string error;
    EXPECT_TRUE(plugin.setIntegrator(false, name, &error));
    auto out = renderWith(plugin, scene, params, 16, 16, 16, {kAovColor, kAovIndirectIllumination, kAovAo});
    EXPECT_EQ(out.status, 0) << out.error;
    return std::make_tuple(out.image(0), out.image(1), out.image(2));
  };
  auto [path, pathIndirect, pathAo] = render("pathtracer");
  auto [direct, directIndirect, directAo] = render("direct");
  auto [ao, aoIndirect, aoAo] = render("ao");
  double indirectPath = 0, indirectDirect = 0;
  for (size_t i = 0; i < path.size(); i += 4) {
    indirectPath += pathIndirect[i];
    indirectDirect += directIndirect[i];
    // The AO integrator's colour is the occlusion value, in [0, 1] and grey.
    ASSERT_GE(ao[i], 0.0f);
    ASSERT_LE(ao[i], 1.0f);
    ASSERT_EQ(ao[i], ao[i + 1]);
  }
  EXPECT_GT(indirectPath, 0.0);
  EXPECT_EQ(indirectDirect, 0.0) << "direct lighting has no indirect part";
  EXPECT_NE(path, direct);

  // Every device falls back to the CPU: the key set last decides, and a refused name changes nothing.
  quillon::QuillonPlugin plugin;
  std::string error;
  ASSERT_TRUE(plugin.setIntegrator(false, "direct", &error));
  ASSERT_TRUE(plugin.setIntegrator(true, "ao", &error));
  ASSERT_FALSE(plugin.setIntegrator(false, "bidir", &error));
  EXPECT_EQ(plugin.mode(false), kernel::IntegratorMode::Direct);
  EXPECT_EQ(plugin.mode(true), kernel::IntegratorMode::AmbientOcclusion);
  auto out = renderWith(plugin, scene, params, 16, 16, 16, {kAovColor});
  EXPECT_EQ(out.image(), ao);
}

TEST(QuillonLayers, AttachedLayersFilterShapesWithLayers) {
  SceneSnapshot scene = simpleScene();
  scene.shapes[1].layers = {"hero"};
  scene.shapes[1].objectId = 5;
  scene.shapes[0].objectId = 3;  // no layers: always rendered
  quillon::QuillonPlugin plugin;
  EXPECT_TRUE(plugin.supportsRenderLayers());
  auto idsVisible = [&](RenderParams params) {
    params.imageFilterType = 0;
    auto out = renderWith(plugin, scene, params, 16, 16, 1, {kAovObjectId});
    EXPECT_EQ(out.status, 0) << out.error;
    std::set<float> ids;
    auto img = out.image();
    for (size_t i = 0; i < img.size(); i += 4) ids.insert(img[i]);
    return ids;
  };
  RenderParams none;
  EXPECT_TRUE(idsVisible(none).count(5)) << "without attached layers every shape renders";
  RenderParams other;
  other.anyLayerAttached = true;
  other.attachedLayers = {"background"};
  auto ids = idsVisible(other);
  EXPECT_FALSE(ids.count(5)) << "a shape whose layers are all detached must vanish";
  EXPECT_TRUE(ids.count(3)) << "shapes without layers always render";
  RenderParams hero;
  hero.anyLayerAttached = true;
  hero.attachedLayers = {"background", "hero"};
  EXPECT_TRUE(idsVisible(hero).count(5));
}

TEST(Dorrik, FramebuffersHoldRunningAveragesOfWholeIterations) {
  SceneSnapshot scene = simpleScene();
  RenderParams params;
  dorrik::DorrikPlugin plugin;
  auto out = renderWith(plugin, scene, params, 12, 12, 5, {kAovColor, kAovAo, kAovDepth});
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
    auto one = renderWith(plugin, scene, params, 12, 12, 1, {kAovColor}, i);
    auto img = one.image();
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
  auto lamp = diffuseMaterial(0, 0, 0);
  lamp->emissive[0] = lamp->emissive[1] = lamp->emissive[2] = 5;
  scene.shapes.push_back(shape(3, makeSphere(0.4f, 12, 6), lamp, translation(-0.8f, 1.2f, 0.3f)));
  RenderParams params;
  params.maxDepth = 1;
  dorrik::DorrikPlugin preview;
  velder::VelderPlugin velder;
  auto a = renderWith(preview, scene, params, 8, 8, 1024, {kAovColor}).image();
  auto b = renderWith(velder, scene, params, 8, 8, 1024, {kAovColor}).image();
  double sa = 0, sb = 0;
  for (size_t i = 0; i < a.size(); i += 4) {
    sa += a[i] + a[i + 1] + a[i + 2];
    sb += b[i] + b[i + 1] + b[i + 2];
  }
  EXPECT_NEAR(sa / sb, 1.0, 0.008);
}

TEST(Dorrik, RefusesAovsOfThePathTracer) {
  dorrik::DorrikPlugin plugin;
  std::string why;
  for (uint32_t aov : {kAovColor, kAovOpacity, kAovDepth, kAovNormal, kAovNormalGeom, kAovWorldCoordinate, kAovUv,
                       kAovMaterialId, kAovObjectId, kAovMeshId, kAovGroupId, kAovAlbedoDiffuse, kAovAo})
    EXPECT_TRUE(plugin.supportsAov(aov, &why)) << aov;
  velder::VelderPlugin velder;
  for (uint32_t aov : std::initializer_list<uint32_t>{kAovVariance, kAovDirectDiffuse, kAovEmission, kAovBackground,
                       kAovShadowCatcher, kAovReflectionCatcher, kAovMattePass, kAovCryptoObject0 + 5,
                       kAovCryptoMaterial0, kAovDeepColor, kAovLpe0, kAovLightGroup0}) {
    EXPECT_FALSE(plugin.supportsAov(aov, &why)) << aov;
    EXPECT_NE(why.find("preview"), std::string::npos) << why;
    EXPECT_TRUE(velder.supportsAov(aov, &why)) << aov << ": " << why;
  }
  EXPECT_FALSE(velder.supportsAov(999, &why));
  EXPECT_NE(why.find("not a known AOV"), std::string::npos) << why;
}

TEST(RenderLoop, ReportsProgressPerIterationAndStopsOnAbort) {
  SceneSnapshot scene = simpleScene();
  RenderParams params;
  velder::VelderPlugin plugin;
  auto out = renderWith(plugin, scene, params, 8, 8, 4, {kAovColor});
  ASSERT_EQ(out.status, 0);
  EXPECT_EQ(out.host.progress, (std::vector<float>{0.25f, 0.5f, 0.75f, 1.0f}));
  EXPECT_EQ(out.host.updateTimes.size(), 1u);
  EXPECT_EQ(out.host.firstIterationTimes.size(), 1u);
  EXPECT_EQ(out.targets[0]->iterations(), 4u);

  RenderOutput aborted;
  aborted.host.abortAfter = 2;
  RenderRequest request;
  request.scene = &scene;
  request.params = &params;
  request.iterations = 10;
  request.width = request.height = 8;
  request.host = &aborted.host;
  TestTarget target(8, 8);
  request.targets.push_back({kAovColor, &target});
  std::string error;
  EXPECT_EQ(plugin.render(request, &error), 0) << "an abort is not a failure";
  EXPECT_EQ(target.iterations(), 2u) << "only whole iterations reach the framebuffer";
}

struct BadRequestCase {
  const char* name;
  std::function<void(SceneSnapshot&, RenderParams&, uint32_t&)> spoil;
  const char* errorPart;
};

class BadRequestTest : public ::testing::TestWithParam<BadRequestCase> {};

TEST_P(BadRequestTest, IsRefusedWithAClearError) {
  const BadRequestCase& c = GetParam();
  SceneSnapshot scene = simpleScene();
  RenderParams params;
  uint32_t aov = kAovColor;
  c.spoil(scene, params, aov);
  velder::VelderPlugin plugin;
  auto out = renderWith(plugin, scene, params, 8, 8, 1, {aov});
  EXPECT_LT(out.status, 0) << c.name;
  EXPECT_NE(out.error.find(c.errorPart), std::string::npos) << out.error;
  EXPECT_EQ(out.targets[0]->iterations(), 0u);
  // The plug-in stays usable afterwards.
  SceneSnapshot good = simpleScene();
  good.geometryRevision = 99;
  auto again = renderWith(plugin, good, RenderParams{}, 8, 8, 1, {kAovColor});
  EXPECT_EQ(again.status, 0) << again.error;
}

std::shared_ptr<MeshData> meshWith(std::function<void(MeshData&)> edit) {
  auto m = makeQuad(1);
  edit(*m);
  return m;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadRequestTest,
    ::testing::Values(
        BadRequestCase{"no_camera", [](SceneSnapshot& s, RenderParams&, uint32_t&) { s.hasCamera = false; }, "no camera"},
        BadRequestCase{"index_past_vertices",
                       [](SceneSnapshot& s, RenderParams&, uint32_t&) {
                         s.shapes[0].mesh = meshWith([](MeshData& m) { m.indices[4] = 17; });
                       },
                       "index 4 of triangle 1 is 17, past the 4 vertices"},
        BadRequestCase{"short_normal_stream",
                       [](SceneSnapshot& s, RenderParams&, uint32_t&) {
                         s.shapes[0].mesh = meshWith([](MeshData& m) { m.normals.pop_back(); });
                       },
                       "normal stream holds 11 floats, expected 12"},
        BadRequestCase{"ragged_indices",
                       [](SceneSnapshot& s, RenderParams&, uint32_t&) {
                         s.shapes[0].mesh = meshWith([](MeshData& m) { m.indices.push_back(0); });
                       },
                       "not a multiple of 3"},
        BadRequestCase{"nan_position",
                       [](SceneSnapshot& s, RenderParams&, uint32_t&) {
                         s.shapes[0].mesh = meshWith([](MeshData& m) { m.positions[1] = NAN; });
                       },
                       "not finite"},
        BadRequestCase{"camera_mode", [](SceneSnapshot& s, RenderParams&, uint32_t&) { s.camera.mode = 5; }, "camera mode 5"},
        BadRequestCase{"camera_fov", [](SceneSnapshot& s, RenderParams&, uint32_t&) { s.camera.fovY = 0; }, "field of view"},
        BadRequestCase{"camera_nan", [](SceneSnapshot& s, RenderParams&, uint32_t&) { s.camera.transform.m[13] = NAN; },
                       "camera transform"},
        BadRequestCase{"ortho_height",
                       [](SceneSnapshot& s, RenderParams&, uint32_t&) {
                         s.camera.type = 1;
                         s.camera.orthoHeight = -2;
                       },
                       "orthographic camera height"},
        BadRequestCase{"post_scale", [](SceneSnapshot& s, RenderParams&, uint32_t&) { s.camera.postScale = 0; }, "post scale"},
        // Beyond Embree's coordinate range the tracer would stop the process.
        BadRequestCase{"ortho_film_too_wide",
                       [](SceneSnapshot& s, RenderParams&, uint32_t&) {
                         s.camera.type = 1;
                         s.camera.orthoHeight = 2e30f;
                       },
                       "the camera's rays start at coordinate 1e+30, beyond the ray tracer's range of +-5e+17"},
        BadRequestCase{"camera_too_far", [](SceneSnapshot& s, RenderParams&, uint32_t&) { s.camera.transform.m[14] = 3e20f; },
                       "beyond the ray tracer's range"},
        BadRequestCase{"camera_collapsed",
                       [](SceneSnapshot& s, RenderParams&, uint32_t&) {
                         for (int k : {0, 1, 2}) s.camera.transform.m[k] = 0;
                       },
                       "collapses an axis"},
        BadRequestCase{"vertex_too_far",
                       [](SceneSnapshot& s, RenderParams&, uint32_t&) {
                         s.shapes[0].mesh = meshWith([](MeshData& m) { m.positions[3] = -4e19f; });
                       },
                       "vertex 1 lies at coordinate 4e+19 once placed, beyond the ray tracer's range of +-5e+17"},
        BadRequestCase{"shape_transform", [](SceneSnapshot& s, RenderParams&, uint32_t&) { s.shapes[1].transform.m[0] = INFINITY; },
                       "shape 2: transform"},
        BadRequestCase{"light_radiance", [](SceneSnapshot& s, RenderParams&, uint32_t&) { s.lights[1].radiance[2] = NAN; },
                       "light 1001: radiance"},
        BadRequestCase{"filter_type", [](SceneSnapshot&, RenderParams& p, uint32_t&) { p.imageFilterType = 9; }, "filter type 9"},
        BadRequestCase{"filter_radius", [](SceneSnapshot&, RenderParams& p, uint32_t&) { p.imageFilterRadius = -1; }, "radius"},
        BadRequestCase{"unknown_aov", [](SceneSnapshot&, RenderParams&, uint32_t& a) { a = 999; }, "not a known AOV id"},
        BadRequestCase{"lpe_without_expression", [](SceneSnapshot&, RenderParams&, uint32_t& a) { a = kAovLpe0; },
                       "the lpe0 framebuffer has no light path expression"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RenderRequestChecks, MismatchedTargetSizeIsRefused) {
  SceneSnapshot scene = simpleScene();
  RenderParams params;
  TestHost host;
  TestTarget color(8, 8), small(4, 8);
  RenderRequest r;
  r.scene = &scene;
  r.params = &params;
  r.width = r.height = 8;
  r.host = &host;
  r.targets = {{kAovColor, &color}, {kAovDepth, &small}};
  velder::VelderPlugin plugin;
  std::string error;
  EXPECT_EQ(plugin.render(r, &error), -2);
  EXPECT_NE(error.find("framebuffer of AOV 7 is 4x8, the colour target is 8x8"), std::string::npos) << error;
  r.targets = {{kAovColor, nullptr}};
  EXPECT_EQ(plugin.render(r, &error), -2);
  r.scene = nullptr;
  EXPECT_EQ(plugin.render(r, &error), -2);
}

}  // namespace
}  // namespace zvr::test
