// Light path expression and light group outputs partition the beauty: the parts a partition
// names add up to colour sample for sample, and a group is the light of its emitters alone.
#include <functional>

#include "kernel/aov.h"
#include "kernel/light_paths.h"
#include "plugins/quillon/quillon_plugin.h"
#include "plugins/velder/velder_plugin.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

// Diffuse, glossy and glass objects lit by a point light, an emissive sphere and the sky; each
// emitter in its own light group when `tagged`.
SceneSnapshot litScene(bool diffuseOnly, bool tagged) {
  auto plastic = diffuseOnly ? diffuseMaterial(0.8f, 0.5f, 0.3f) : material(0, 0.3f);
  auto glass = diffuseOnly ? diffuseMaterial(0.3f, 0.6f, 0.8f) : material(0, 0, 1);
  SceneSnapshot scene;
  scene.shapes = {shape(1, makeSphere(0.5f, 24, 12), plastic, translation(-0.6f, 0.5f, 0)),
                  shape(2, makeSphere(0.4f, 24, 12), glass, translation(0.6f, 0.4f, 0)),
                  shape(3, makeQuad(3), diffuseMaterial(0.6f, 0.6f, 0.6f)),
                  shape(4, makeSphere(0.2f, 12, 6), emitter(3), translation(0.2f, 1.4f, 0.6f))};
  scene.shapes[3].lightGroup = tagged ? 5 : -1;
  scene.lights = {environmentLight(0.4f), pointLight(1, 3, 2, 4)};
  scene.lights[0].group = tagged ? 0 : -1;
  scene.lights[1].group = tagged ? 12 : -1;
  scene.shapes[2].name = "floor";
  scene.lights[1].name = "key";
  scene.hasCamera = true;
  scene.camera.transform = lookAt(0, 1.2f, 3.5f, 0, 0.4f, 0);
  scene.camera.fovY = 0.9f;
  return scene;
}

void expectSum(const RenderOutput& out, const std::vector<size_t>& parts, size_t whole, const char* what) {
  auto expected = out.image(whole);
  std::vector<std::vector<float>> images;
  for (size_t p : parts) images.push_back(out.image(p));
  std::vector<double> totals(parts.size(), 0.0);
  for (size_t i = 0; i < expected.size(); i += 4)
    for (int k = 0; k < 3; ++k) {
      float sum = 0;
      for (size_t p = 0; p < parts.size(); ++p) {
        sum += images[p][i + k];
        totals[p] += images[p][i + k];
      }
      ASSERT_NEAR(sum, expected[i + k], 1e-4f * std::max(1.0f, expected[i + k])) << what << ", pixel " << i / 4;
    }
  // A part that stays black would make the sum prove nothing.
  for (size_t p = 0; p < parts.size(); ++p) EXPECT_GT(totals[p], 0.0) << what << ": part " << p << " stayed black";
}

TEST(LightPaths, PartitionsAddUpToTheirWhole) {
  velder::VelderPlugin velder;
  quillon::QuillonPlugin quillon;
  for (RenderPlugin* plugin : {static_cast<RenderPlugin*>(&velder), static_cast<RenderPlugin*>(&quillon)}) {
    RenderParams params;
    params.radianceClamp = 0.3f;  // clamped pieces must land in the outputs as they land in colour
    auto out = renderWith(*plugin, litScene(false, true), params, 32, 24, 8,
                          {kAovColor, kAovLpe0, kAovLpe0 + 1, lightGroupAov(0), lightGroupAov(5), lightGroupAov(12),
                           kAovLpe0 + 2, kAovLpe0 + 3, kAovLpe0 + 4, kAovLpe0 + 5},
                          0, {"", "CL", "C.+L", "", "", "", "C.*<L.'key'>", "C.*<L.[^'key']>", "C'floor'.*L", "C[^'floor'].*L"});
    ASSERT_EQ(out.status, 0) << out.error;
    expectSum(out, {1, 2}, 0, "CL + C.+L");
    expectSum(out, {3, 4, 5}, 0, "light groups");
    expectSum(out, {6, 7}, 0, "the light named key and the others");
    expectSum(out, {1, 8, 9}, 0, "seen directly, first on the floor, first elsewhere");

    auto diffuse = renderWith(*plugin, litScene(true, false), params, 32, 24, 8, {kAovDirectDiffuse, kAovLpe0 + 3}, 0,
                              {"", "CDL"});
    ASSERT_EQ(diffuse.status, 0) << diffuse.error;
    expectSum(diffuse, {1}, 0, "CDL against direct.diffuse");
  }
}

TEST(LightPaths, AGroupIsTheLightOfItsEmittersAlone) {
  velder::VelderPlugin plugin;
  RenderParams params;
  SceneSnapshot full = litScene(false, true);
  auto grouped = renderWith(plugin, full, params, 24, 18, 256, {lightGroupAov(5), lightGroupAov(12)});
  ASSERT_EQ(grouped.status, 0) << grouped.error;
  // The same scene with only the emissive sphere, then with only the point light.
  struct Case {
    size_t target;
    std::function<void(SceneSnapshot&)> keepOnly;
  };
  const Case cases[] = {
      {0, [](SceneSnapshot& s) { s.lights.clear(); }},
      {1, [](SceneSnapshot& s) {
         s.lights.erase(s.lights.begin());
         s.shapes.back().material = diffuseMaterial(0, 0, 0);  // still there, no longer emitting
       }},
  };
  for (const Case& c : cases) {
    SceneSnapshot alone = litScene(false, true);
    c.keepOnly(alone);
    auto reference = renderWith(plugin, alone, params, 24, 18, 256, {kAovColor});
    ASSERT_EQ(reference.status, 0) << reference.error;
    auto group = grouped.image(c.target), color = reference.image();
    double a = 0, b = 0, difference = 0;
    for (size_t i = 0; i < color.size(); i += 4)
      for (int k = 0; k < 3; ++k) {
        a += group[i + k];
        b += color[i + k];
        difference += std::fabs(group[i + k] - color[i + k]);
      }
    ASSERT_GT(b, 0.0);
    EXPECT_NEAR(a / b, 1.0, 0.03) << "group output " << c.target;
    EXPECT_LT(difference / b, 0.25) << "group output " << c.target << " differs pixel by pixel beyond noise";
  }
}

}  // namespace
}  // namespace zvr::test
