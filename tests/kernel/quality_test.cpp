// The render quality key trades indirect light for speed: each step down shortens paths, so the
// reference Cornell box gets darker in its indirect light and costs fewer rays per sample.
#include "kernel/aov.h"
#include "bench/cornell_scene.h"
#include "tests/kernel/test_support.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::test {
namespace {

struct QualityRun {
  double indirect = 0, direct = 0, raysPerSample = 0;
};

TEST(RenderQuality, LowerQualityDarkensIndirectLightAndTracesFewerRays) {
  SceneSnapshot scene;
  std::string error;
  ASSERT_TRUE(bench::loadGltfSnapshot(std::string(ZVR_SHARED_DIR) + "/reference/cornell-lambert.glb", scene, &error))
      << error;
  constexpr uint32_t kSize = 48, kIterations = 4;
  QualityRun runs[4];
  for (uint32_t quality = 0; quality < 4; ++quality) {
    RenderParams params;
    params.renderQuality = quality;
    velder::VelderPlugin plugin;
    RenderOutput out = renderWith(plugin, scene, params, kSize, kSize, kIterations,
                                  {kernel::kAovIndirectIllumination, kernel::kAovDirectIllumination});
    ASSERT_EQ(out.status, 0) << out.error;
    auto indirect = out.image(0), direct = out.image(1);
    for (size_t i = 0; i < indirect.size(); i += 4)
      for (int c = 0; c < 3; ++c) {
        runs[quality].indirect += indirect[i + c];
        runs[quality].direct += direct[i + c];
      }
    runs[quality].raysPerSample = double(plugin.raysTraced()) / (kSize * kSize * kIterations);
  }
  EXPECT_EQ(runs[0].indirect, 0.0) << "quality 0 is direct light only";
  for (uint32_t q = 1; q < 4; ++q) {
    SCOPED_TRACE("quality " + std::to_string(q));
    EXPECT_GT(runs[q].indirect, runs[q - 1].indirect * 1.02) << "a higher quality adds bounces of light";
    EXPECT_GT(runs[q].raysPerSample, runs[q - 1].raysPerSample + 0.1);
    // The first bounce's light does not depend on how far paths go on after it.
    EXPECT_NEAR(runs[q].direct, runs[0].direct, 1e-3 * runs[0].direct);
  }
}

}  // namespace
}  // namespace zvr::test
