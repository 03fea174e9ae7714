// Light sampling: each light's sample density agrees with the density MIS evaluates, the
// estimators integrate known totals, and spot and directional lights light a plane as expected.
#include <cmath>
#include <array>
#include <functional>
#include <tuple>

#include "kernel/aov.h"
#include "kernel/lights.h"
#include "kernel/spherical_rectangle.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

// The mean of L / pdf over sampled directions is the integral of L over the sphere; over the
// hemisphere a caller restricts a constant sky to, that of L cos, which a density other than the
// cosine's would make noisy and wrong.
TEST_F(KernelTest, EnvironmentSamplingIntegratesTheSphereAndMatchesItsOwnPdf) {
  // A 16x8 lat-long image, bright in one region.
  std::vector<float> pixels(16 * 8 * 3, 0.1f);
  for (int y = 2; y < 4; ++y)
    for (int x = 9; x < 12; ++x)
      for (int k = 0; k < 3; ++k) pixels[(y * 16 + x) * 3 + k] = 20;
  double imageIntegral = 0;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 16; ++x)
      imageIntegral +=
          2 * pixels[(y * 16 + x) * 3] * (std::cos(kPi * y / 8) - std::cos(kPi * (y + 1) / 8)) * 2 * kPi / 16;
  for (int kind = 0; kind < 4; ++kind) {
    const char* name = kind == 0 ? "constant" : kind == 1 ? "image" : kind == 2 ? "rotated image" : "constant, a hemisphere";
    const Vec3 upper = kind == 3 ? normalize(Vec3(0.3f, 1, -0.2f)) : Vec3(0);
    SceneSnapshot snap = sceneOf({shape(1, makeQuad(1), diffuseMaterial(1, 1, 1))}, {environmentLight(2)});
    if (kind == 1 || kind == 2) snap.lights[0].image = image(16, 8, 3, pixels, ColorSpace::Linear, 5);
    if (kind == 2) snap.lights[0].transform = lookAt(0, 0, 0, 1, 0.3f, 0.2f);
    reset();
    ASSERT_TRUE(build(snap));
    Uniform u(7);
    constexpr int n = 200000;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
      LightSample ls;
      if (!lights_.sample(Vec3(0, 0, 0), u(), u(), u(), *scene_, ls, upper)) continue;
      ASSERT_TRUE(ls.infinite && !ls.delta) << name;
      ASSERT_TRUE(kind != 3 || dot(ls.wi, upper) > 0) << "a sample below the hemisphere";
      if (i < 1000) {
        ASSERT_NEAR(ls.pdf, lights_.environmentPdf(ls.wi, upper), 1e-3f * ls.pdf) << name;
        ASSERT_NEAR(ls.radiance.x, lights_.environment(ls.wi).x, 1e-5f) << name;
      }
      sum += ls.radiance.x * (kind == 3 ? dot(ls.wi, upper) : 1.0f) / ls.pdf;
    }
    const double expected = kind == 1 || kind == 2 ? imageIntegral : kind == 3 ? 2 * kPi : 2 * 4 * kPi;
    EXPECT_NEAR(sum / n / expected, 1.0, kind == 3 ? 1e-4 : 0.01) << name;
    if (kind == 3) {
      EXPECT_EQ(lights_.environmentPdf(-upper, upper), 0.0f) << "a density below the hemisphere";
    }
  }
}

// The sampling table reads three- and four-channel images on a fast road and the others texel by
// texel: one grey image in 1, 3 and 4 channels, with texels that are not finite or negative (read
// as black) and wide enough to be averaged in blocks, must give the same densities.
TEST_F(KernelTest, EnvironmentTableGivesTheSameDensityForEveryChannelCount) {
  constexpr uint32_t kW = 4100, kH = 6;
  std::vector<float> grey(size_t(kW) * kH);
  for (size_t i = 0; i < grey.size(); ++i) grey[i] = float((i * 37) % 101) / 10;
  grey[5] = NAN;
  grey[kW + 7] = INFINITY;
  grey[2 * kW + 9] = -3;
  std::vector<std::vector<float>> densities;
  for (uint32_t channels : {1u, 3u, 4u}) {
    std::vector<float> pixels;
    for (float g : grey) pixels.insert(pixels.end(), channels, g);
    SceneSnapshot snap = sceneOf({}, {environmentLight(1)});
    snap.lights[0].image = image(kW, kH, channels, pixels, ColorSpace::Linear, channels);
    reset();
    ASSERT_TRUE(build(snap));
    std::vector<float> d;
    for (int i = 0; i < 200; ++i) {
      const float theta = kPi * (i % 20 + 0.5f) / 20, phi = 2 * kPi * (i / 20 + 0.37f) / 10;
      d.push_back(lights_.environmentPdf(
          Vec3(std::sin(theta) * std::sin(phi), std::cos(theta), std::sin(theta) * std::cos(phi))));
    }
    densities.push_back(d);
  }
  EXPECT_EQ(densities[1], densities[0]) << "three channels";
  EXPECT_EQ(densities[2], densities[0]) << "four channels";
}

TEST_F(KernelTest, EmissiveTriangleSampleDensityMatchesTheMisDensity) {
  auto lamp = emitter(3);
  lamp->doubleSided = true;  // the quad turns its back to the reference point
  // Two quads around a lone triangle: the quads pair into rectangles, the triangle stays alone.
  // They are close enough to be sampled by solid angle, where a wrong light shows in the density.
  auto strip = std::make_shared<MeshData>();
  strip->positions = {-1.2f, 0.5f, -0.5f, -0.2f, 0.5f, -0.5f, -0.2f, 0.5f, 0.5f, -1.2f, 0.5f, 0.5f, 0.3f, 0.5f, -0.5f, 0.9f, 0.5f,
                      -0.5f, 0.6f,  0.5f, 0.3f,  -1.2f, 0.4f, 0.7f,  -0.2f, 0.4f, 0.7f,  -0.2f, 0.4f, 1.5f, -1.2f, 0.4f, 1.5f};
  strip->normals.assign(strip->positions.size(), 0);
  for (size_t i = 1; i < strip->normals.size(); i += 3) strip->normals[i] = -1;
  strip->indices = {0, 1, 2, 0, 2, 3, 4, 5, 6, 7, 8, 9, 7, 9, 10};
  const SceneSnapshot snap = sceneOf({shape(1, makeQuad(0.5f), lamp, translation(0.2f, 2, -0.1f)),
                                      shape(2, makeSphere(0.3f, 8, 4), lamp, translation(1, 1, 1)), shape(3, strip, lamp)});
  ASSERT_TRUE(build(snap));
  Uniform u(3);
  const Vec3 ref(0, 0, 0);
  int checked = 0;
  for (int i = 0; i < 2000; ++i) {
    LightSample ls;
    if (!lights_.sample(ref, u(), u(), u(), *scene_, ls)) continue;
    EXPECT_NEAR(ls.radiance.x, 3, 1e-6f);
    // Ask the triangle along the sampled direction for its density, skipping points hidden behind
    // another triangle and points on an edge, which the neighbour may answer for.
    SurfaceHit hit;
    if (!scene_->intersect(Ray{ref, ls.wi, 0, 1e30f}, hit) || std::fabs(hit.t - ls.distance) > 1e-5f * ls.distance ||
        std::min({hit.b1, hit.b2, 1 - hit.b1 - hit.b2}) < 1e-4f)
      continue;
    ASSERT_NEAR(lights_.trianglePdf(*scene_, hit.shape, hit.prim, ref, hit.p, hit.ng), ls.pdf, 2e-3f * ls.pdf);
    ++checked;
  }
  EXPECT_GT(checked, 1000);
}

// Two emissive triangles share a texture whose one texel shines: light samples go to the lit
// triangle but for the floor's share, and each reports the density MIS gives its point.
TEST_F(KernelTest, TexturedEmitterIsChosenWhereItsTextureShines) {
  auto mesh = std::make_shared<MeshData>();
  mesh->positions = {-1, 2, -0.5f, -0.2f, 2, -0.5f, -1, 2, 0.5f, 0.2f, 2, -0.5f, 1, 2, -0.5f, 0.2f, 2, 0.5f};
  mesh->normals = {0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0};
  mesh->texcoords0 = {0.05f, 0.05f, 0.45f, 0.05f, 0.05f, 0.95f, 0.55f, 0.05f, 0.95f, 0.05f, 0.55f, 0.95f};
  mesh->indices = {0, 1, 2, 3, 4, 5};
  auto lamp = emitter(1);
  lamp->doubleSided = true;
  lamp->emissiveTexture.image = image(2, 1, 1, {1, 0}, ColorSpace::Linear, 91);
  lamp->emissiveTexture.magFilter = lamp->emissiveTexture.minFilter = 1;
  ASSERT_TRUE(build(sceneOf({shape(1, mesh, lamp)})));
  Uniform u(5);
  int black = 0;
  for (int i = 0; i < 1000; ++i) {
    LightSample ls;
    ASSERT_TRUE(lights_.sample(Vec3(0, 0, 0), u(), u(), u(), *scene_, ls));
    black += ls.radiance.x == 0;
    SurfaceHit hit;
    ASSERT_TRUE(scene_->intersect(Ray{Vec3(0, 0, 0), ls.wi, 0, 1e30f}, hit));
    ASSERT_NEAR(lights_.trianglePdf(*scene_, hit.shape, hit.prim, Vec3(0, 0, 0), hit.p, hit.ng), ls.pdf, 2e-3f * ls.pdf);
  }
  EXPECT_LE(black, 5) << "samples on the black triangle";
}

// Irradiance from an emissive quad overhead against Lambert's closed form for a polygon, once for a
// quad close enough to be sampled by solid angle and once for one small enough to be sampled by area.
TEST_F(KernelTest, EmissiveQuadIrradianceMatchesLambertsFormula) {
  struct Case {
    const char* name;
    float halfSize, height;
  } cases[] = {{"near, by solid angle", 0.5f, 0.6f}, {"far, by area", 0.01f, 3}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Vec3 offset(0.2f, c.height, -0.1f), up(0, 1, 0);
    SceneSnapshot snap;
    auto lamp = emitter(3);
    lamp->doubleSided = true;  // the quad faces up, away from the point below it
    snap.shapes.push_back(shape(1, makeQuad(c.halfSize), lamp, translation(offset.x, offset.y, offset.z)));
    reset();
    ASSERT_TRUE(build(snap));
    LightSet lights;
    lights.build(snap, *scene_);
    const float h = c.halfSize;
    const Vec3 corners[] = {offset + Vec3(-h, 0, h), offset + Vec3(h, 0, h), offset + Vec3(h, 0, -h), offset + Vec3(-h, 0, -h)};
    double lambert = 0;
    for (int i = 0; i < 4; ++i) {
      Vec3 a = normalize(corners[i]), b = normalize(corners[(i + 1) % 4]);
      // atan2 keeps the small angles of the far quad that acos would lose to rounding.
      lambert += std::atan2(length(cross(a, b)), dot(a, b)) * dot(up, normalize(cross(a, b))) / 2;
    }
    Uniform u(11);
    constexpr int n = 100000;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
      LightSample ls;
      if (lights.sample(Vec3(0, 0, 0), u(), u(), u(), *scene_, ls)) sum += ls.radiance.x * dot(up, ls.wi) / ls.pdf;
    }
    EXPECT_NEAR(sum / n / (3 * std::fabs(lambert)), 1.0, 0.005);
  }
}

// Directions to a rectangle are uniform in solid angle: each of its 4 x 4 cells takes samples in
// proportion to the solid angle it shows, and the cells' angles add up to the rectangle's.
TEST(SphericalRectangleTest, SamplesEachCellByItsSolidAngle) {
  auto triangleAngle = [](Vec3 a, Vec3 b, Vec3 c) {
    a = normalize(a), b = normalize(b), c = normalize(c);
    return std::fabs(2 * std::atan2(dot(a, cross(b, c)), 1 + dot(a, b) + dot(b, c) + dot(c, a)));
  };
  const Vec3 corner(-0.5f, 1, -0.3f), x = normalize(Vec3(1, 0, 0.2f)), y = normalize(cross(Vec3(0, 1, 0), x));
  const float width = 1.2f, height = 0.8f;
  const struct {
    const char* name;
    Vec3 ref;
  } views[] = {{"below the centre", Vec3(0.1f, 0, 0.1f)}, {"off beyond a corner", Vec3(1.5f, 0.4f, -1.5f)},
               {"from above, grazing", Vec3(-2, 1.05f, 0.3f)}, {"close under an edge", Vec3(0.6f, 0.9f, 0.2f)}};
  for (const auto& view : views) {
    SCOPED_TRACE(view.name);
    const SphericalRectangle rect(corner, x, y, width, height, view.ref);
    float cells[4][4], total = 0;
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) {
        auto at = [&](float a, float b) { return corner + x * (width * a / 4) + y * (height * b / 4) - view.ref; };
        cells[i][j] = triangleAngle(at(i, j), at(i + 1, j), at(i + 1, j + 1)) + triangleAngle(at(i, j), at(i + 1, j + 1), at(i, j + 1));
        total += cells[i][j];
      }
    ASSERT_NEAR(rect.solidAngle(), total, 1e-4f * total);
    constexpr int n = 64000;
    int counts[4][4] = {};
    Uniform u(17);
    for (int k = 0; k < n; ++k) {
      const Vec3 p = rect.sample(u(), u()) - corner;
      const int i = std::clamp(int(dot(p, x) / width * 4), 0, 3), j = std::clamp(int(dot(p, y) / height * 4), 0, 3);
      ++counts[i][j];
    }
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) {
        const double expected = n * cells[i][j] / total;
        EXPECT_NEAR(counts[i][j], expected, 5 * std::sqrt(expected) + 2) << "cell " << i << "," << j;
      }
  }
}

// A unit-albedo diffuse plane under one light: radiance = irradiance / pi.
TEST(PunctualLights, PointSpotAndDirectionalIrradiance) {
  const float h = 2, cosInner = std::cos(0.3f), cosOuter = std::cos(0.5f);
  LightData spot = light(0, LightType::Spot, lookAt(0, h, 0, 0, 0, 0), 4);  // shines along its -z: straight down
  spot.innerCone = 0.3f;
  spot.outerCone = 0.5f;
  // Travels along -(1,1,0)/sqrt2.
  const LightData sun = light(0, LightType::Directional, lookAt(1, 1, 0, 0, 0, 0), 1.5f);
  auto spotIrradiance = [&](float x, float z) {
    float r2 = x * x + z * z + h * h, cosT = h / std::sqrt(r2);
    float s = std::clamp((cosT - cosOuter) / (cosInner - cosOuter), 0.0f, 1.0f);
    return 4 * s * s * (3 - 2 * s) * cosT / r2;
  };
  auto sunIrradiance = [](float, float) { return 1.5f * std::sqrt(0.5f); };
  // Label, light, its irradiance at (x, z) on the plane, relative and absolute tolerance: pixels
  // straddling the cone's edge average a steep falloff, so they are allowed more.
  using Irradiance = std::function<float(float x, float z)>;
  std::vector<std::tuple<const char*, LightData, Irradiance, float, float>> probes = {
      {"spot", spot, spotIrradiance, 0.03f, 0.004f}, {"directional", sun, sunIrradiance, 0.03f, 0.004f}};
  // Point lights: irradiance I cos(theta) / r^2.
  for (auto [x, y, intensity] : {std::array<float, 3>{0, 1, 1}, {0, 2.5f, 10}, {1.5f, 0.7f, 2}}) {
    auto irradiance = [x = x, y = y, intensity = intensity](float px, float pz) {
      float r2 = (px - x) * (px - x) + y * y + pz * pz;
      return intensity * y / std::sqrt(r2) / r2;
    };
    probes.emplace_back("point", pointLight(x, y, 0, intensity), irradiance, 0.01f, 1e-5f);
  }
  for (const auto& [name, light, irradiance, relative, absolute] : probes) {
    SCOPED_TRACE(name);
    const SceneSnapshot scene = sceneOf({shape(1, makeQuad(3), diffuseMaterial(1, 1, 1))}, {light}, orthoDown(3, 4));
    auto images = render(scene, boxFilter(), 48, 48, 16, {kAovColor, kAovWorldCoordinate});
    const auto &color = images[0], &pos = images[1];
    int lit = 0, dark = 0;
    for (size_t i = 0; i < color.size(); i += 4) {
      float e = irradiance(pos[i], pos[i + 2]) / kPi;
      ASSERT_NEAR(color[i], e, relative * e + absolute) << "at " << pos[i] << ", " << pos[i + 2];
      ++(e > 0 ? lit : dark);
    }
    EXPECT_GT(lit, 50);
    if (light.type == LightType::Spot) {
      EXPECT_GT(dark, 50) << "outside the outer cone the spot gives nothing";
    }
  }
}

}  // namespace
}  // namespace zvr::test
