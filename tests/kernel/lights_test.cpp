// Light sampling: each light's sample density agrees with the density MIS evaluates, the
// estimators integrate known totals, and spot and directional lights light a plane as expected.
#include <cmath>
#include <array>
#include <functional>
#include <tuple>

#include "kernel/aov.h"
#include "kernel/light_tree.h"
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
  int checked = 0;
  for (int i = 0; i < 6000; ++i) {
    const Vec3 ref = i < 2000 ? Vec3(0, 0, 0) : i < 4000 ? Vec3(1.5f, 2.5f, 0.3f) : Vec3(-0.5f, 0.45f, 1.1f);
    const Vec3 upper = i < 4000 ? Vec3(0) : normalize(Vec3(0.2f, 1, 0.1f));  // a surface that sees one side
    LightSample ls;
    if (!lights_.sample(ref, u(), u(), u(), *scene_, ls, upper, upper)) continue;
    EXPECT_NEAR(ls.radiance.x, 3, 1e-6f);
    // Ask the triangle along the sampled direction for its density, skipping points hidden behind
    // another triangle and points on an edge, which the neighbour may answer for.
    SurfaceHit hit;
    if (!scene_->intersect(Ray{ref, ls.wi, 0, 1e30f}, hit) || std::fabs(hit.t - ls.distance) > 1e-5f * ls.distance ||
        std::min({hit.b1, hit.b2, 1 - hit.b1 - hit.b2}) < 1e-4f)
      continue;
    ASSERT_NEAR(lights_.trianglePdf(*scene_, hit.shape, hit.prim, ref, hit.p, hit.ng, upper), ls.pdf, 2e-3f * ls.pdf);
    ++checked;
  }
  EXPECT_GT(checked, 3000);
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

// Irradiance from emissive quads overhead against Lambert's closed form for a polygon: a quad close
// enough to be sampled by solid angle, one small enough to be sampled by area, and a grid of them
// that is chosen from through the light hierarchy.
TEST_F(KernelTest, EmissiveQuadIrradianceMatchesLambertsFormula) {
  struct Case {
    const char* name;
    float halfSize, height;
    int grid;  // quads per side, 0.5 apart
  } cases[] = {{"near, by solid angle", 0.5f, 0.6f, 1}, {"far, by area", 0.01f, 3, 1}, {"a grid, by hierarchy", 0.1f, 0.8f, 3}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Vec3 up(0, 1, 0);
    SceneSnapshot snap;
    auto lamp = emitter(3);
    lamp->doubleSided = true;  // the quad faces up, away from the point below it
    double lambert = 0;
    const float h = c.halfSize;
    for (int gx = 0; gx < c.grid; ++gx)
      for (int gz = 0; gz < c.grid; ++gz) {
        const Vec3 offset(0.2f + 0.5f * gx, c.height + 0.1f * gz, -0.1f - 0.5f * gz);
        snap.shapes.push_back(shape(1 + gx * c.grid + gz, makeQuad(h), lamp, translation(offset.x, offset.y, offset.z)));
        const Vec3 corners[] = {offset + Vec3(-h, 0, h), offset + Vec3(h, 0, h), offset + Vec3(h, 0, -h), offset + Vec3(-h, 0, -h)};
        double quad = 0;
        for (int i = 0; i < 4; ++i) {
          Vec3 a = normalize(corners[i]), b = normalize(corners[(i + 1) % 4]);
          // atan2 keeps the small angles of the far quad that acos would lose to rounding.
          quad += std::atan2(length(cross(a, b)), dot(a, b)) * dot(up, normalize(cross(a, b))) / 2;
        }
        lambert += std::fabs(quad);
      }
    reset();
    ASSERT_TRUE(build(snap));
    LightSet lights;
    lights.build(snap, *scene_);
    Uniform u(11);
    constexpr int n = 100000;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
      LightSample ls;
      if (lights.sample(Vec3(0, 0, 0), u(), u(), u(), *scene_, ls)) sum += ls.radiance.x * dot(up, ls.wi) / ls.pdf;
    }
    EXPECT_NEAR(sum / n / (3 * lambert), 1.0, 0.005);
  }
}

// The hierarchy's choice for a point: the probabilities it reports match how often each emitter
// comes up (the rest of the unit is the chance of a node whose children, bounded more tightly,
// cannot light the point), and no emitter that can light the point is left out, which would bias
// the render: neither a point, a one-sided triangle turned any way nor a two-sided one, nor any
// of them above a point that sees one hemisphere only.
TEST(LightTreeTest, ChoosesEveryEmitterThatCanLightAPointAsOftenAsItSays) {
  Uniform u(17);
  std::vector<LightBounds> lights;
  for (int i = 0; i < 40; ++i) {
    LightBounds b;
    const Vec3 c(4 * u() - 2, 4 * u() - 2, 4 * u() - 2);
    b.lower = c - Vec3(0.1f * u());
    b.upper = c + Vec3(0.1f * u());
    b.power = i % 7 == 3 ? 0.0f : 0.1f + u();
    if (i % 5 != 0) {  // a triangle: normals along one axis
      b.axis = normalize(Vec3(u() - 0.5f, u() - 0.5f, u() - 0.5f));
      b.spread = 0;
      b.twoSided = i % 5 == 4;
    }
    if (i == 38) b.lower.x = b.upper.x = INFINITY;  // a lamp gone astray, which must spoil nothing
    lights.push_back(b);
  }
  LightTree tree;
  tree.build(lights);
  for (int query = 0; query < 60; ++query) {
    const Vec3 p(Vec3(u() - 0.5f, u() - 0.5f, u() - 0.5f) * (query % 2 ? 6.0f : 30.0f));
    // Every third point sees one hemisphere only.
    const Vec3 up = query % 3 == 2 ? normalize(Vec3(u() - 0.5f, u() - 0.5f, u() - 0.5f)) : Vec3(0);
    SCOPED_TRACE("point " + std::to_string(query));
    double total = 0;
    for (uint32_t i = 0; i < lights.size(); ++i) {
      const float pmf = tree.pmf(p, up, i);
      total += pmf;
      const LightBounds& b = lights[i];
      const Vec3 toP = p - (b.lower + b.upper) * 0.5f;
      const bool canLight = b.power > 0 && i != 38 && (b.spread >= kPi || b.twoSided || dot(toP, b.axis) > 0.05f * length(toP)) &&
                            -dot(toP, up) >= 0.05f * length(toP) * length(up);
      if (canLight) {
        EXPECT_GT(pmf, 0) << "emitter " << i;
      }
      if (b.power <= 0 || i == 38) {
        EXPECT_EQ(pmf, 0) << "emitter " << i;
      }
    }
    EXPECT_LE(total, 1 + 1e-5);
    if (query >= 4) continue;
    constexpr int kDraws = 40000;
    std::vector<int> count(lights.size(), 0);
    int failed = 0;
    for (int d = 0; d < kDraws; ++d) {
      uint32_t light = 0;
      float pmf = 0;
      if (!tree.sample(p, up, u(), light, pmf)) {
        ++failed;
        continue;
      }
      ASSERT_EQ(pmf, tree.pmf(p, up, light)) << "the reported probability must be the one MIS asks for";
      ++count[light];
    }
    const double missing = kDraws * std::max(0.0, 1 - total);
    EXPECT_NEAR(failed, missing, 5 * std::sqrt(missing) + 2);
    for (uint32_t i = 0; i < lights.size(); ++i) {
      const double expected = kDraws * double(tree.pmf(p, up, i));
      EXPECT_NEAR(count[i], expected, 5 * std::sqrt(expected) + 2) << "emitter " << i;
    }
  }
  // Normals a hair apart: a group's cone must still hold each, or a grazing point in front of the
  // tilted one alone would never choose it.
  for (float tilt : {1e-4f, 5e-4f}) {
    std::vector<LightBounds> panel;
    for (int i = 0; i < 8; ++i) {
      LightBounds b;
      b.lower = Vec3(0.02f * i - 0.005f, -0.005f, 0);
      b.upper = Vec3(0.02f * i + 0.005f, 0.005f, 0);
      b.power = 1;
      b.spread = 0;
      b.axis = i == 3 ? Vec3(0, -std::sin(tilt), std::cos(tilt)) : Vec3(0, 0, 1);
      panel.push_back(b);
    }
    LightTree grazed;
    grazed.build(panel);
    EXPECT_GT(grazed.pmf(Vec3(0.07f, -1e4f, -5e3f * tilt), Vec3(0), 3), 0) << "tilt " << tilt;
  }
}

// What the hierarchy is for: its choice must give a lower second moment than choosing by power
// alone, exactly computed over every lamp: for ceiling lamps over floor points, for lamps at mixed
// heights seen from points and normals anywhere in the room, and for a row of street lamps, which
// have no area to split by; and lose badly nowhere.
TEST(LightTreeTest, ChoosesWithLessVarianceThanPowerAloneInRooms) {
  enum Layout { kCeiling, kMixedHeights, kRow };
  struct Case {
    const char* name;
    Layout layout;
    double maxRatio;  // of the geometric mean of the two second moments
  } cases[] = {{"ceiling lamps over floor points", kCeiling, 0.7},
               {"lamps at mixed heights", kMixedHeights, 0.7},
               {"a row of lamps along a street", kRow, 0.2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Uniform u(5);
    double logRatio = 0, worst = 0;
    constexpr int kRooms = 200;
    for (int room = 0; room < kRooms; ++room) {
      std::vector<LightBounds> lamps;
      double totalPower = 0;
      for (int i = 0; i < (c.layout == kRow ? 100 : 24); ++i) {
        LightBounds b;
        const float y = c.layout != kMixedHeights || i % 3 == 0 ? 2.8f : i % 3 == 1 ? 0.3f + 1.5f * u() : 1.8f;
        b.lower = b.upper = c.layout == kRow ? Vec3(float(i), y, 5) : Vec3(10 * u(), y, 10 * u());
        b.power = 5 + 20 * u();
        totalPower += b.power;
        lamps.push_back(b);
      }
      const Vec3 p((c.layout == kRow ? 100 : 10) * u(), c.layout == kMixedHeights ? 2.5f * u() : 0.0f, 10 * u());
      const Vec3 n = c.layout == kMixedHeights ? normalize(Vec3(u() - 0.5f, u() - 0.5f, u() - 0.5f)) : Vec3(0, 1, 0);
      LightTree tree;
      tree.build(lamps);
      double lit = 0, treeMoment = 0, powerMoment = 0;
      for (uint32_t i = 0; i < lamps.size(); ++i) {
        const Vec3 d = lamps[i].lower - p;
        const double f = lamps[i].power * std::max(0.0f, dot(normalize(d), n)) / dot(d, d);
        if (f <= 0) continue;
        const double pmf = tree.pmf(p, n, i);
        ASSERT_GT(pmf, 0) << "room " << room << " lamp " << i;
        lit += f;
        treeMoment += f * f / pmf;
        powerMoment += f * f * totalPower / lamps[i].power;
      }
      if (lit <= 0) continue;
      logRatio += std::log(treeMoment / powerMoment);
      worst = std::max(worst, treeMoment / powerMoment);
    }
    EXPECT_LT(std::exp(logRatio / kRooms), c.maxRatio);
    EXPECT_LT(worst, 5);
  }
}

// Lamps over a floor point, reached by light sampling alone: the hierarchy must give the lamp
// overhead its share though a split may put it in a node with a lamp far away, and spots whose
// cones hold the point must count as fully as points, next to one that shines away from it.
TEST_F(KernelTest, LampsWithAFarOutlierLightAFloorPointInFull) {
  struct Case {
    const char* name;
    int lamps;
    float outlier;
    bool spots;
  } cases[] = {{"twelve lamps", 12, 0, false},           {"and one 300 m away", 12, 300, false},
               {"and one 2 km away", 12, 2000, false},   {"fifteen and one 30 km away", 15, 30000, false},
               {"twelve spots and one turned up", 12, 0, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<LightData> lamps;
    auto lampAt = [&](float x, float z, bool down) {
      if (!c.spots) return pointLight(x, 3, z, 10);
      LightData spot = light(1001, LightType::Spot, lookAt(x, 3, z, x, down ? 0.0f : 6.0f, z + 0.01f), 10);
      spot.innerCone = 1.3f;  // wide enough to hold the floor point fully
      spot.outerCone = 1.4f;
      return spot;
    };
    for (int i = 0; i < c.lamps; ++i) lamps.push_back(lampAt(3.0f * float(i % 4) - 4.5f, 3.0f * float(i / 4) - 3, true));
    if (c.outlier > 0) lamps.push_back(pointLight(c.outlier, 3, 0, 10));
    if (c.spots) lamps.push_back(lampAt(0, 0, false));
    const SceneSnapshot snap = sceneOf({shape(1, makeQuad(40), diffuseMaterial(0.5f, 0.5f, 0.5f))}, lamps);
    reset();
    ASSERT_TRUE(build(snap));
    const Vec3 p(1.5f, 0, 3), up(0, 1, 0);  // under lamp 10
    double expected = 0;
    for (size_t i = 0; i < size_t(c.lamps) + (c.outlier > 0); ++i) {
      const Matrix4& m = lamps[i].transform;
      const Vec3 d = Vec3(m.m[12], m.m[13], m.m[14]) - p;
      expected += 10 * dot(normalize(d), up) / dot(d, d);
    }
    Uniform u(23);
    constexpr int n = 200000;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
      LightSample ls;
      if (lights_.sample(p, u(), u(), u(), *scene_, ls)) sum += ls.radiance.x * std::max(0.0f, dot(up, ls.wi)) / ls.pdf;
    }
    EXPECT_NEAR(sum / n / expected, 1.0, 0.01);
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
