// Light sampling: each light's sample density agrees with the density MIS evaluates, the
// estimators integrate known totals, and spot and directional lights light a plane as expected.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "kernel/aov.h"
#include "kernel/lights.h"
#include "tests/kernel/test_support.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::kernel {
namespace {

struct EnvironmentCase {
  const char* name;
  bool image;
  bool rotated;
};

class EnvironmentSamplingTest : public ::testing::TestWithParam<EnvironmentCase> {};

// The mean of L / pdf over sampled directions is the integral of L over the sphere.
TEST_P(EnvironmentSamplingTest, IntegratesTheSphereAndMatchesItsOwnPdf) {
  const EnvironmentCase& c = GetParam();
  SceneSnapshot snap = [] {
    SceneSnapshot s;
    s.shapes.push_back(test::shape(1, test::makeQuad(1), test::diffuseMaterial(1, 1, 1)));
    return s;
  }();
  LightData env = test::environmentLight(2);
  double analytic = 2 * 4 * kPi;
  if (c.image) {
    // 16x8 lat-long image, bright in one region.
    auto img = std::make_shared<ImageData>();
    img->id = 5;
    img->width = 16;
    img->height = 8;
    img->channels = 3;
    img->pixels.assign(16 * 8 * 3, 0.1f);
    for (int y = 2; y < 4; ++y)
      for (int x = 9; x < 12; ++x)
        for (int k = 0; k < 3; ++k) img->pixels[(y * 16 + x) * 3 + k] = 20;
    env.image = img;
    analytic = 0;
    for (int y = 0; y < 8; ++y) {
      double solidAngle = (std::cos(kPi * y / 8) - std::cos(kPi * (y + 1) / 8)) * 2 * kPi / 16;
      for (int x = 0; x < 16; ++x) analytic += 2 * img->pixels[(y * 16 + x) * 3] * solidAngle;
    }
  }
  if (c.rotated) env.transform = test::lookAt(0, 0, 0, 1, 0.3f, 0.2f);
  snap.lights.push_back(env);
  RTCDevice device = rtcNewDevice(nullptr);
  DeviceErrors errors;
  {
    Scene scene(device, &errors);
    std::string error;
    ASSERT_TRUE(scene.update(snap, RenderParams{}, 1, [](const ShapeData&) { return true; }, &error)) << error;
    LightSet lights;
    lights.build(snap, scene);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(0.0f, 0x1.fffffep-1f);
    constexpr int n = 200000;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
      LightSample ls;
      if (!lights.sample(Vec3(0, 0, 0), u(rng), u(rng), u(rng), scene, ls)) continue;
      ASSERT_TRUE(ls.infinite);
      ASSERT_FALSE(ls.delta);
      if (i < 1000) {
        ASSERT_NEAR(ls.pdf, lights.environmentPdf(ls.wi), 1e-3f * ls.pdf) << c.name;
        Vec3 l = lights.environment(ls.wi);
        ASSERT_NEAR(ls.radiance.x, l.x, 1e-5f);
      }
      sum += ls.radiance.x / ls.pdf;
    }
    EXPECT_NEAR(sum / n / analytic, 1.0, 0.01) << c.name;
  }
  rtcReleaseDevice(device);
}

INSTANTIATE_TEST_SUITE_P(Kinds, EnvironmentSamplingTest,
                         ::testing::Values(EnvironmentCase{"constant", false, false}, EnvironmentCase{"image", true, false},
                                           EnvironmentCase{"rotated_image", true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// The sampling table reads three- and four-channel images on a fast road and the others texel by
// texel: one grey image in 1, 3 and 4 channels, with texels that are not finite or negative (read
// as black) and wide enough to be averaged in blocks, must give the same densities.
TEST(EnvironmentTable, EveryChannelCountGivesTheSameDensity) {
  constexpr uint32_t kW = 4100, kH = 6;
  std::vector<float> grey(size_t(kW) * kH);
  for (size_t i = 0; i < grey.size(); ++i) grey[i] = float((i * 37) % 101) / 10;
  grey[5] = NAN;
  grey[kW + 7] = INFINITY;
  grey[2 * kW + 9] = -3;
  RTCDevice device = rtcNewDevice(nullptr);
  DeviceErrors errors;
  std::vector<std::vector<float>> densities;
  for (uint32_t channels : {1u, 3u, 4u}) {
    auto img = std::make_shared<ImageData>();
    img->id = channels;
    img->width = kW;
    img->height = kH;
    img->channels = channels;
    for (float g : grey) img->pixels.insert(img->pixels.end(), channels, g);
    SceneSnapshot snap;
    LightData env = test::environmentLight(1);
    env.image = img;
    snap.lights.push_back(env);
    Scene scene(device, &errors);
    std::string error;
    ASSERT_TRUE(scene.update(snap, RenderParams{}, 1, [](const ShapeData&) { return true; }, &error)) << error;
    LightSet lights;
    lights.build(snap, scene);
    std::vector<float> d;
    for (int i = 0; i < 200; ++i) {
      const float theta = kPi * (i % 20 + 0.5f) / 20, phi = 2 * kPi * (i / 20 + 0.37f) / 10;
      d.push_back(lights.environmentPdf(Vec3(std::sin(theta) * std::sin(phi), std::cos(theta), std::sin(theta) * std::cos(phi))));
    }
    densities.push_back(d);
  }
  rtcReleaseDevice(device);
  EXPECT_EQ(densities[1], densities[0]) << "three channels";
  EXPECT_EQ(densities[2], densities[0]) << "four channels";
}

TEST(EmissiveTriangles, SampleDensityMatchesTheMisDensity) {
  SceneSnapshot snap;
  auto lamp = test::diffuseMaterial(0, 0, 0);
  lamp->emissive[0] = lamp->emissive[1] = lamp->emissive[2] = 3;
  lamp->doubleSided = true;  // the quad turns its back to the reference point
  Matrix4 m = test::translation(0.2f, 2, -0.1f);
  snap.shapes.push_back(test::shape(1, test::makeQuad(0.5f), lamp, m));
  snap.shapes.push_back(test::shape(2, test::makeSphere(0.3f, 8, 4), lamp, test::translation(1, 1, 1)));
  RTCDevice device = rtcNewDevice(nullptr);
  DeviceErrors errors;
  {
    Scene scene(device, &errors);
    std::string error;
    ASSERT_TRUE(scene.update(snap, RenderParams{}, 1, [](const ShapeData&) { return true; }, &error)) << error;
    LightSet lights;
    lights.build(snap, scene);
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(0.0f, 0x1.fffffep-1f);
    Vec3 ref(0, 0, 0);
    int checked = 0;
    for (int i = 0; i < 2000; ++i) {
      LightSample ls;
      if (!lights.sample(ref, u(rng), u(rng), u(rng), scene, ls)) continue;
      EXPECT_NEAR(ls.radiance.x, 3, 1e-6f);
      // Find the triangle along the sampled direction and ask for its density.
      Ray ray{ref, ls.wi, 0, 1e30f};
      SurfaceHit hit;
      // Skip points hidden behind another triangle (also a neighbour just in front near an edge).
      if (!scene.intersect(ray, hit) || std::fabs(hit.t - ls.distance) > 1e-5f * ls.distance) continue;
      float pdf = lights.trianglePdf(scene, hit.shape, hit.prim, ref, hit.p, hit.ng);
      ASSERT_NEAR(pdf, ls.pdf, 2e-3f * ls.pdf);
      ++checked;
    }
    EXPECT_GT(checked, 1000);
  }
  rtcReleaseDevice(device);
}

// A unit-albedo diffuse plane under one light: radiance = irradiance / pi.
TEST(PunctualLights, SpotConeAndDirectionalIrradiance) {
  using namespace test;
  struct Probe {
    const char* name;
    LightData light;
    std::function<float(float x, float z)> irradiance;
  };
  const float h = 2;
  LightData spot;
  spot.type = LightType::Spot;
  spot.transform = lookAt(0, h, 0, 0, 0, 0);  // shines along its -z: straight down
  spot.radiance[0] = spot.radiance[1] = spot.radiance[2] = 4;
  spot.innerCone = 0.3f;
  spot.outerCone = 0.5f;
  LightData sun;
  sun.type = LightType::Directional;
  sun.transform = lookAt(1, 1, 0, 0, 0, 0);  // travels along -(1,1,0)/sqrt2
  sun.radiance[0] = sun.radiance[1] = sun.radiance[2] = 1.5f;
  std::vector<Probe> probes = {
      {"spot", spot,
       [&](float x, float z) {
         float r2 = x * x + z * z + h * h, cosT = h / std::sqrt(r2);
         float angle = std::acos(cosT);
         float t = std::cos(angle) <= std::cos(0.5f) ? 0.0f
                   : std::cos(angle) >= std::cos(0.3f)
                       ? 1.0f
                       : [&] {
                           float s = (std::cos(angle) - std::cos(0.5f)) / (std::cos(0.3f) - std::cos(0.5f));
                           return s * s * (3 - 2 * s);
                         }();
         return 4 * t * cosT / r2;
       }},
      {"directional", sun, [](float, float) { return 1.5f * std::sqrt(0.5f); }},
  };
  for (const auto& probe : probes) {
    SceneSnapshot scene;
    scene.shapes.push_back(shape(1, makeQuad(3), diffuseMaterial(1, 1, 1)));
    scene.lights.push_back(probe.light);
    scene.hasCamera = true;
    scene.camera.type = 1;
    scene.camera.orthoHeight = 4;
    scene.camera.transform = lookAt(0, 3, 0, 0, 0, 0);
    RenderParams params;
    params.imageFilterType = 0;
    velder::VelderPlugin plugin;
    auto out = renderWith(plugin, scene, params, 48, 48, 16, {kAovColor, kAovWorldCoordinate});
    ASSERT_EQ(out.status, 0) << out.error;
    auto color = out.image(0), pos = out.image(1);
    int lit = 0, dark = 0;
    for (size_t i = 0; i < color.size(); i += 4) {
      float e = probe.irradiance(pos[i], pos[i + 2]) / kPi;
      // Pixels straddling the cone's edge average a steep falloff: allow them more.
      ASSERT_NEAR(color[i], e, 0.03f * e + 0.004f) << probe.name << " at " << pos[i] << ", " << pos[i + 2];
      if (e > 0) ++lit;
      else ++dark;
    }
    EXPECT_GT(lit, 50) << probe.name;
    if (probe.light.type == LightType::Spot) {
      EXPECT_GT(dark, 50) << "outside the outer cone the spot gives nothing";
    }
  }
}

}  // namespace
}  // namespace zvr::kernel
