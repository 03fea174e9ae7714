// The light split by lobe and by depth, light path expressions and light groups partition the
// beauty: the parts a partition names add up to colour sample for sample, and a group is the light
// of its emitters alone.
#include <functional>
#include <tuple>

#include "kernel/aov.h"
#include "kernel/light_paths.h"
#include "plugins/quillon/quillon_plugin.h"
#include "plugins/velder/velder_plugin.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

TEST(LightPaths, PartitionsAddUpToTheirWhole) {
  velder::VelderPlugin velder;
  quillon::QuillonPlugin quillon;
  const std::vector<uint32_t> aovs = {
      kAovColor,          kAovLpe0,         kAovLpe0 + 1,        lightGroupAov(0),    lightGroupAov(5),
      lightGroupAov(12),  kAovLpe0 + 2,     kAovLpe0 + 3,        kAovLpe0 + 4,        kAovLpe0 + 5,
      kAovEmission,       kAovBackground,   kAovDirectDiffuse,   kAovDirectReflect,   kAovIndirectDiffuse,
      kAovIndirectReflect, kAovRefract,     kAovVolume,          kAovSss,             kAovDirectIllumination,
      kAovIndirectIllumination};
  for (RenderPlugin* plugin : {static_cast<RenderPlugin*>(&velder), static_cast<RenderPlugin*>(&quillon)}) {
    SCOPED_TRACE(plugin->name());
    RenderParams params;
    params.radianceClamp = 0.3f;  // clamped pieces must land in the outputs as they land in colour
    auto out = renderWith(*plugin, mixedScene(), params, 32, 24, 8, aovs, 0,
                          {"", "CL", "C.+L", "", "", "", "C.*<L.'key'>", "C.*<L.[^'key']>", "C'floor'.*L", "C[^'floor'].*L"});
    ASSERT_EQ(out.status, 0) << out.error;
    expectSum(out, {1, 2}, 0, "CL + C.+L");
    expectSum(out, {3, 4, 5}, 0, "light groups");
    expectSum(out, {6, 7}, 0, "the light named key and the others");
    expectSum(out, {1, 8, 9}, 0, "seen directly, first on the floor, first elsewhere");
    expectSum(out, {10, 11, 12, 13, 14, 15, 16}, 0, "by lobe");
    expectSum(out, {10, 11, 19, 20}, 0, "by depth");
    EXPECT_EQ(meanChannel(out.image(17), 0) + meanChannel(out.image(18), 0), 0.0f) << "no volume, no subsurface";

    auto diffuse = renderWith(*plugin, mixedScene(true), params, 32, 24, 8, {kAovDirectDiffuse, kAovLpe0 + 3}, 0,
                              {"", "CDL"});
    ASSERT_EQ(diffuse.status, 0) << diffuse.error;
    expectSum(diffuse, {1}, 0, "CDL against direct.diffuse");
  }
}

TEST(LightPaths, AGroupIsTheLightOfItsEmittersAlone) {
  auto grouped = render(mixedScene(), RenderParams{}, 24, 18, 256, {lightGroupAov(5), lightGroupAov(12)});
  // The same scene with only the emissive sphere, then with only the point light.
  // Which group output, and how the scene keeps only that group's emitters.
  const std::tuple<size_t, std::function<void(SceneSnapshot&)>> cases[] = {
      {0, [](SceneSnapshot& s) { s.lights.clear(); }},
      {1, [](SceneSnapshot& s) {
         s.lights.erase(s.lights.begin());
         s.shapes.back().material = diffuseMaterial(0, 0, 0);  // still there, no longer emitting
       }},
  };
  for (const auto& [target, keepOnly] : cases) {
    SceneSnapshot alone = mixedScene();
    keepOnly(alone);
    const auto& group = grouped[target];
    auto color = render(alone, RenderParams{}, 24, 18, 256, {kAovColor})[0];
    double a = 0, b = 0, difference = 0;
    for (size_t i = 0; i < color.size(); i += 4)
      for (int k = 0; k < 3; ++k) {
        a += group[i + k];
        b += color[i + k];
        difference += std::fabs(group[i + k] - color[i + k]);
      }
    ASSERT_GT(b, 0.0);
    EXPECT_NEAR(a / b, 1.0, 0.03) << "group output " << target;
    EXPECT_LT(difference / b, 0.25) << "group output " << target << " differs pixel by pixel beyond noise";
  }
}

}  // namespace
}  // namespace zvr::test
