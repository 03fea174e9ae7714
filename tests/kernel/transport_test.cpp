// Light transport against answers known in closed form: the white furnace, a floor lit by a lamp
// seen at a grazing angle, the error falling as one over the square root of the sample count, and
// renders that do not depend on threads or tiles.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/aov.h"
#include "tests/kernel/test_support.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::test {
namespace {

using kernel::kAovColor;
using kernel::kAovOpacity;

struct FurnaceCase {
  std::string name;
  float metallic, roughness, transmission, specular;
  float tolerance = 0.005f;
  uint32_t iterations = 256;
};

class FurnaceTest : public ::testing::TestWithParam<FurnaceCase> {};

// A closed sphere of albedo one under a uniform environment of one is invisible: every pixel is one.
TEST_P(FurnaceTest, ClosedSphereEqualsEnvironment) {
  const FurnaceCase& c = GetParam();
  auto material = test::material(c.metallic, c.roughness, c.transmission);
  material->thickness = c.transmission > 0 ? 1.0f : 0.0f;
  material->specular = c.specular;
  const SceneSnapshot scene = sceneOf({shape(1, makeSphere(1.0f, 64, 32), material)}, {environmentLight(1.0f)},
                                      cameraAt(0, 0, 3.2f, 0, 0, 0, 0.75f));
  RenderParams params;
  params.maxDepth = params.maxDepthDiffuse = params.maxDepthGlossy = params.maxDepthRefraction =
      params.maxDepthRefractionGlossy = 64;
  auto images = render(scene, params, 32, 32, c.iterations, {kAovColor, kAovOpacity});
  const auto &color = images[0], &opacity = images[1];
  double sum = 0;
  int count = 0;
  for (size_t i = 0; i < color.size(); i += 4) {
    if (opacity[i] < 1) continue;  // only pixels fully on the sphere
    sum += (color[i] + color[i + 1] + color[i + 2]) / 3;
    ++count;
  }
  ASSERT_GT(count, 200) << "the sphere should cover much of the image";
  EXPECT_NEAR(sum / count, 1.0, c.tolerance) << c.name;
}

// Every kind of material at every roughness: what single scattering loses between microfacets
// (a third of the light for a metal of roughness one) must come back, on glass entering and leaving.
// Glass paths are long and caustic: even at 4096 iterations the sphere's own noise is near 1% (it
// measured 0.992, 1.009 and 0.995 at roughness 0.3, 0.4 and 0.7), so its bound is wider; the 0.5%
// bound on glass is held where it can be measured, by the BSDF's white furnace sweep.
std::vector<FurnaceCase> furnaceSweep() {
  const char* names[] = {"diffuse", "conductor", "dielectric"};
  std::vector<FurnaceCase> cases;
  for (int kind = 0; kind < 3; ++kind)
    for (int r = 0; r <= 10; ++r)
      cases.push_back(FurnaceCase{std::string(names[kind]) + "_roughness_" + std::to_string(r), kind == 1 ? 1.0f : 0.0f,
                                  r / 10.0f, kind == 2 ? 1.0f : 0.0f, kind == 0 ? 0.0f : 1.0f, kind == 2 ? 0.02f : 0.005f,
                                  kind == 2 ? 1024u : 256u});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Roughness, FurnaceTest, ::testing::ValuesIn(furnaceSweep()),
                         [](const auto& info) { return info.param.name; });

SceneSnapshot boxScene() {
  auto lamp = emitter(1);
  lamp->emissiveStrength = 8;
  return sceneOf({shape(1, makeQuad(2.0f), diffuseMaterial(0.7f, 0.7f, 0.7f)),
                  shape(2, makeSphere(0.5f, 24, 12), diffuseMaterial(0.7f, 0.1f, 0.1f), translation(-0.6f, 0.5f, 0)),
                  shape(3, makeSphere(0.4f, 24, 12), material(1, 0.3f), translation(0.6f, 0.4f, 0.2f)),
                  shape(4, makeQuad(0.4f), lamp, facingDown(2.5f))},
                 {environmentLight(0.2f)}, cameraAt(0, 1.5f, 4, 0, 0.5f, 0, 0.8f));
}

double rmse(const std::vector<float>& a, const std::vector<float>& b) {
  double s = 0;
  size_t n = 0;
  for (size_t i = 0; i < a.size(); i += 4)
    for (int k = 0; k < 3; ++k, ++n) s += (a[i + k] - b[i + k]) * (a[i + k] - b[i + k]);
  return std::sqrt(s / n);
}

// A floor point lit by a square lamp overhead, once nearly below it and once far to the side,
// where the lamp's face lies nearly along the shadow ray: direct light against Lambert's formula
// for a polygon. A shadow ray that ended behind the lamp's face there made the lamp shadow itself,
// also after crossing a cut-out surface, which the second pass adds across every shadow ray.
TEST(DirectLight, FloorUnderALampMatchesLambertsFormulaAtAnyAngle) {
  constexpr float kAlbedo = 0.5f, kRadiance = 4, kHeight = 0.5f, kHalf = 0.5f;
  for (int cutOut = 0; cutOut < 2; ++cutOut)
  for (float x : {0.3f, 3.0f}) {
    SCOPED_TRACE("floor point at x = " + std::to_string(x) + (cutOut ? ", under a cut-out sheet" : ""));
    CameraData camera;
    camera.type = 1;
    camera.orthoHeight = 0.02f;
    camera.transform = lookAt(x, 5, 0.2f, x, 0, 0.2f);
    SceneSnapshot scene = sceneOf({shape(1, makeQuad(20), diffuseMaterial(kAlbedo, kAlbedo, kAlbedo)),
                                   shape(2, makeQuad(kHalf), emitter(kRadiance), facingDown(kHeight))},
                                  {}, camera);
    // The camera looks past the lamp's edge at x = 0.3, so the lamp does not hide the point.
    scene.shapes[1].transform.m[14] = -0.6f;
    if (cutOut) {
      auto sheet = diffuseMaterial(1, 1, 1);
      sheet->alphaMode = 1;  // masked, and cut away everywhere
      sheet->baseColor[3] = 0;
      scene.shapes.push_back(shape(3, makeQuad(20), sheet, translation(0, 0.1f, 0)));
    }
    RenderParams params;
    params.maxDepth = 0;
    const auto images = render(scene, params, 4, 4, 256, {kAovColor});
    double mean = 0;
    for (size_t i = 0; i < images[0].size(); i += 4) mean += images[0][i] / 16.0;
    const kernel::Vec3 p(x, 0, 0.2f), up(0, 1, 0);
    const kernel::Vec3 corners[] = {{-kHalf, kHeight, -0.6f - kHalf}, {kHalf, kHeight, -0.6f - kHalf},
                                    {kHalf, kHeight, -0.6f + kHalf}, {-kHalf, kHeight, -0.6f + kHalf}};
    double formFactor = 0;
    for (int i = 0; i < 4; ++i) {
      const kernel::Vec3 a = kernel::normalize(corners[i] - p), b = kernel::normalize(corners[(i + 1) % 4] - p);
      formFactor += std::atan2(kernel::length(kernel::cross(a, b)), kernel::dot(a, b)) *
                    kernel::dot(up, kernel::normalize(kernel::cross(a, b))) / (2 * kernel::kPi);
    }
    EXPECT_NEAR(mean / (kAlbedo * kRadiance * std::fabs(formFactor)), 1.0, 0.01);
  }
}

TEST(Convergence, ErrorFallsAsInverseSquareRootOfSamples) {
  SceneSnapshot scene = boxScene();
  RenderParams params;
  // Unclamped, the rare caustic paths off the metal sphere decide a single render's error: the
  // ratios then ranged from 1.0 to 4.4 over sample offsets. The reference is clamped alike.
  params.radianceClamp = 2;
  velder::VelderPlugin plugin;
  // The reference uses sample indices far from those of the test renders, so they are independent.
  auto reference = renderWith(plugin, scene, params, 16, 16, 2048, {kAovColor}, 1u << 20);
  ASSERT_EQ(reference.status, 0) << reference.error;
  auto ref = reference.image();
  // Errors averaged over four sample ranges: one range alone is decided by a few paths, and its
  // ratios ranged from 1.35 to 2.44 over eight ranges; the averages stay within 1.7 to 1.9.
  double e16 = 0, e64 = 0, e256 = 0;
  for (uint64_t range = 0; range < 4; ++range) {
    auto error = [&](uint32_t samples) {
      return rmse(renderWith(plugin, scene, params, 16, 16, samples, {kAovColor}, range << 12).image(), ref);
    };
    e16 += error(16);
    e64 += error(64);
    e256 += error(256);
  }
  // Each fourfold increase should halve the error; low-discrepancy samples may do better, and a
  // sampler that stops converging gives 1.
  EXPECT_GT(e16 / e64, 1.5) << e16 << " " << e64;
  EXPECT_GT(e64 / e256, 1.5) << e64 << " " << e256;
  // Also fails when the error vanished, which only a copy of the reference could do.
  EXPECT_LT(e16 / e256, 12.0) << "error fell faster than any unbiased estimator allows: " << e16 << " " << e256;
}

TEST(Determinism, RendersAreBitwiseIdenticalAcrossRunsAndThreadCounts) {
  SceneSnapshot scene = boxScene();
  RenderParams params;
  params.threadCount = 1;
  velder::VelderPlugin plugin, other;
  auto run = [&](velder::VelderPlugin& p, uint64_t firstSample = 0) {
    RenderOutput out = renderWith(p, scene, params, 24, 20, 4, {kAovColor, kernel::kAovNormal}, firstSample);
    EXPECT_EQ(out.status, 0) << out.error;
    return std::vector<std::vector<float>>{out.targets[0]->raw(), out.targets[1]->raw()};
  };
  const auto first = run(plugin);
  EXPECT_EQ(run(plugin), first) << "two runs differ";
  params.threadCount = 2;
  EXPECT_EQ(run(other), first) << "1 and 2 threads differ";
  params.tileSize[0] = params.tileSize[1] = 5;
  EXPECT_EQ(run(other), first) << "another tile size differs";
  // Sides past 32 bits or infinite once wrapped to a zero grain and never finished.
  params.tileSize[0] = 4294967040.0f;
  params.tileSize[1] = INFINITY;
  EXPECT_EQ(run(other), first) << "tiles wider than the image differ";
  EXPECT_NE(run(other, 4)[0], first[0]) << "a different sample range gives the same picture";
}

}  // namespace
}  // namespace zvr::test
