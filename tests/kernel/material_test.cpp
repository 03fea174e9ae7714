// Material features seen in renders: alpha modes, vertex colours, normal maps, unlit, emission
// strength, Beer absorption, depth limits, radiance clamp and caustics reduction.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/aov.h"
#include "plugins/quillon/quillon_plugin.h"
#include "tests/kernel/test_support.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::test {
namespace {

using kernel::kAovColor;
using kernel::kAovNormal;
using kernel::kAovOpacity;

// An orthographic camera straight down onto a quad under a uniform environment of one.
SceneSnapshot quadUnderSky(std::shared_ptr<MaterialData> material, std::shared_ptr<MeshData> mesh = makeQuad(1)) {
  SceneSnapshot scene;
  scene.shapes.push_back(shape(1, mesh, material));
  scene.lights.push_back(environmentLight(1));
  scene.hasCamera = true;
  scene.camera.type = 1;
  scene.camera.orthoHeight = 1.5f;
  scene.camera.transform = lookAt(0, 2, 0, 0, 0, 0);
  return scene;
}

float meanChannel(const std::vector<float>& img, int channel) {
  double s = 0;
  for (size_t i = channel; i < img.size(); i += 4) s += img[i];
  return float(s / (img.size() / 4));
}

struct AlphaCase {
  const char* name;
  uint32_t mode;
  float alpha, cutoff;
  float expectedColor;  // the quad's albedo is 0.5; the sky behind is 1
  float expectedCoverage;
};

class AlphaTest : public ::testing::TestWithParam<AlphaCase> {};

TEST_P(AlphaTest, ModesMixSurfaceAndBackground) {
  const AlphaCase& c = GetParam();
  auto m = diffuseMaterial(0.5f, 0.5f, 0.5f);
  m->alphaMode = c.mode;
  m->baseColor[3] = c.alpha;
  m->alphaCutoff = c.cutoff;
  m->doubleSided = true;
  SceneSnapshot scene = quadUnderSky(m);
  RenderParams params;
  params.imageFilterType = 0;
  velder::VelderPlugin plugin;
  auto out = renderWith(plugin, scene, params, 8, 8, 256, {kAovColor, kAovOpacity});
  ASSERT_EQ(out.status, 0) << out.error;
  EXPECT_NEAR(meanChannel(out.image(0), 0), c.expectedColor, 0.02f) << c.name;
  EXPECT_NEAR(meanChannel(out.image(1), 0), c.expectedCoverage, 0.03f) << c.name;
}

// A half-transparent quad seen against the sky: 0.3 * 0.5 (surface) + 0.7 * 1 (sky) = 0.85, the
// surface itself lit by a sky dimmed nowhere (nothing above it).
INSTANTIATE_TEST_SUITE_P(Modes, AlphaTest,
                         ::testing::Values(AlphaCase{"opaque_ignores_alpha", 0, 0.3f, 0.5f, 0.5f, 1},
                                           AlphaCase{"mask_below_cutoff_cuts", 1, 0.3f, 0.5f, 1.0f, 0},
                                           AlphaCase{"mask_above_cutoff_keeps", 1, 0.7f, 0.5f, 0.5f, 1},
                                           AlphaCase{"blend_mixes", 2, 0.3f, 0.5f, 0.85f, 0.3f}),
                         [](const auto& info) { return std::string(info.param.name); });

// Shadow rays pass alpha-blended surfaces, each dimming the light by its transparency, up to the
// shadow depth limit; beyond it the light counts as blocked.
TEST(AlphaShadows, BlendedLayersDimLightUpToTheShadowDepth) {
  auto veil = diffuseMaterial(0.5f, 0.5f, 0.5f);
  veil->alphaMode = 2;
  veil->baseColor[3] = 0.5f;
  veil->doubleSided = true;
  SceneSnapshot scene;
  scene.shapes.push_back(shape(1, makeQuad(3), diffuseMaterial(1, 1, 1)));
  for (int i = 0; i < 3; ++i) scene.shapes.push_back(shape(2 + i, makeQuad(1.5f, 1.0f + 0.2f * i), veil));
  scene.lights.push_back(pointLight(0, 3, 0, 9));
  scene.hasCamera = true;
  scene.camera.transform = lookAt(3, 0.4f, 0, 0, 0, 0);  // low, under the veils
  scene.camera.fovY = 0.05f;                              // a narrow view of the floor's centre
  RenderParams params;
  params.imageFilterType = 0;
  velder::VelderPlugin plugin;
  auto centre = [&](uint32_t shadowDepth) {
    RenderParams p = params;
    p.maxDepthShadow = shadowDepth;
    p.maxDepth = 0;  // direct light only: the floor sees the lamp through the veils
    auto out = renderWith(plugin, scene, p, 4, 4, 8, {kAovColor, kernel::kAovWorldCoordinate});
    auto img = out.image(0), pos = out.image(1);
    // Divide out the unshadowed radiance I cos / r^2 / pi, leaving the veils' transmittance.
    double sum = 0;
    for (size_t i = 0; i < img.size(); i += 4) {
      float dx = pos[i], dz = pos[i + 2], r2 = dx * dx + dz * dz + 9;
      sum += img[i] / (9 * (3 / std::sqrt(r2)) / r2 / 3.14159265f);
    }
    return float(sum / (img.size() / 4));
  };
  EXPECT_NEAR(centre(8), 0.125f, 1e-3f);
  EXPECT_NEAR(centre(3), 0.125f, 1e-3f);
  EXPECT_EQ(centre(2), 0.0f) << "a fourth surface is more than the shadow ray may pass";
}

TEST(Surface, VertexColoursUnlitAndEmissionStrength) {
  RenderParams params;
  params.imageFilterType = 0;
  velder::VelderPlugin plugin;
  // Vertex colours multiply the base colour.
  auto mesh = makeQuad(1);
  mesh->colors.assign(16, 1.0f);
  for (int v = 0; v < 4; ++v) mesh->colors[4 * v + 1] = 0.25f;
  auto out = renderWith(plugin, quadUnderSky(diffuseMaterial(0.8f, 0.8f, 0.8f), mesh), params, 8, 8, 64, {kAovColor});
  auto img = out.image();
  EXPECT_NEAR(meanChannel(img, 0), 0.8f, 0.01f);
  EXPECT_NEAR(meanChannel(img, 1), 0.2f, 0.01f);
  // Unlit shows the base colour whatever the light.
  auto unlit = diffuseMaterial(0.3f, 0.6f, 0.9f);
  unlit->unlit = true;
  SceneSnapshot dark = quadUnderSky(unlit);
  dark.lights.clear();
  img = renderWith(plugin, dark, params, 8, 8, 4, {kAovColor}).image();
  EXPECT_NEAR(meanChannel(img, 2), 0.9f, 1e-4f);
  // Emission times strength, seen directly.
  auto glow = diffuseMaterial(0, 0, 0);
  glow->emissive[0] = 0.5f;
  glow->emissiveStrength = 6;
  SceneSnapshot lamp = quadUnderSky(glow);
  lamp.lights.clear();
  img = renderWith(plugin, lamp, params, 8, 8, 4, {kAovColor}).image();
  EXPECT_NEAR(meanChannel(img, 0), 3.0f, 1e-4f);
  EXPECT_EQ(meanChannel(img, 1), 0.0f);
}

TEST(Surface, NormalisedEmittersRadiateTheirValueOverTheirArea) {
  auto glow = diffuseMaterial(0, 0, 0);
  glow->emissive[0] = glow->emissive[1] = glow->emissive[2] = 2;
  SceneSnapshot scene = quadUnderSky(glow, makeQuad(1.5f));  // area 9
  scene.lights.clear();
  RenderParams params;
  params.imageFilterType = 0;
  velder::VelderPlugin plugin;
  EXPECT_NEAR(meanChannel(renderWith(plugin, scene, params, 4, 4, 2, {kAovColor}).image(), 0), 2.0f, 1e-5f);
  params.normalizeLightIntensity = 1;
  EXPECT_NEAR(meanChannel(renderWith(plugin, scene, params, 4, 4, 2, {kAovColor}).image(), 0), 2.0f / 9, 1e-5f);
}

TEST(Surface, NormalMapTiltsTheShadingNormal) {
  // A flat normal map texel pointing 45 degrees towards +x in tangent space.
  auto m = diffuseMaterial(0.5f, 0.5f, 0.5f);
  auto img = std::make_shared<ImageData>();
  img->id = 9;
  img->width = img->height = 1;
  img->channels = 3;
  float t = std::sqrt(0.5f);
  img->pixels = {0.5f + 0.5f * t, 0.5f, 0.5f + 0.5f * t};
  m->normalTexture.image = img;
  auto mesh = makeQuad(1);
  mesh->tangents = {1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1};
  RenderParams params;
  velder::VelderPlugin plugin;
  auto out = renderWith(plugin, quadUnderSky(m, mesh), params, 4, 4, 2, {kAovNormal, kernel::kAovNormalGeom});
  ASSERT_EQ(out.status, 0) << out.error;
  auto n = out.image(0), ng = out.image(1);
  EXPECT_NEAR(n[0], t, 1e-3f);
  EXPECT_NEAR(n[1], t, 1e-3f);
  EXPECT_NEAR(ng[1], 1, 1e-6f) << "the geometric normal stays";
}

// Turned upside down (facing -y) and lifted to height y.
Matrix4 facingDown(float y) {
  Matrix4 m;
  m.m[5] = m.m[10] = -1;
  m.m[13] = y;
  return m;
}

// The occlusion texture (0.25 here) darkens light that reached the floor from the ceiling, not
// the point light's own.
TEST(Surface, OcclusionDarkensIndirectLightOnly) {
  auto render = [](bool occluded) {
    auto floor = diffuseMaterial(1, 1, 1);
    if (occluded) {
      auto img = std::make_shared<ImageData>();
      img->id = 31;
      img->width = img->height = 1;
      img->channels = 1;
      img->pixels = {0.5f};
      floor->occlusionTexture.image = img;
      floor->occlusionStrength = 1.5f;  // 1 + 1.5 (0.5 - 1)
    }
    SceneSnapshot scene;
    scene.shapes.push_back(shape(1, makeQuad(3), floor));
    scene.shapes.push_back(shape(2, makeQuad(3), diffuseMaterial(1, 1, 1), facingDown(1.5f)));
    scene.lights.push_back(pointLight(0, 1, 0, 1));
    scene.hasCamera = true;
    scene.camera.type = 1;
    scene.camera.orthoHeight = 0.5f;
    scene.camera.transform = lookAt(0, 1.2f, 0, 0, 0, 0);
    RenderParams params;
    params.maxDepth = 2;
    velder::VelderPlugin plugin;
    return renderWith(plugin, scene, params, 8, 8, 512,
                      {kernel::kAovDirectIllumination, kernel::kAovIndirectIllumination});
  };
  RenderOutput plain = render(false), occluded = render(true);
  ASSERT_EQ(occluded.status, 0) << occluded.error;
  float direct = meanChannel(plain.image(0), 0), indirect = meanChannel(plain.image(1), 0);
  ASSERT_GT(indirect, 0.05f * direct) << "the ceiling must send light back";
  EXPECT_NEAR(meanChannel(occluded.image(0), 0), direct, 0.01f * direct);
  EXPECT_NEAR(meanChannel(occluded.image(1), 0), 0.25f * indirect, 0.05f * indirect);
}

// A single-sided emitter shines from its front only, seen or sampled; a double-sided one from both.
TEST(Surface, EmissionIsOneSidedUnlessDoubleSided) {
  for (bool doubleSided : {false, true}) {
    SCOPED_TRACE(doubleSided ? "double-sided" : "single-sided");
    auto glow = diffuseMaterial(0, 0, 0);
    glow->emissive[0] = glow->emissive[1] = glow->emissive[2] = 2;
    glow->doubleSided = doubleSided;
    RenderParams params;
    params.imageFilterType = 0;
    velder::VelderPlugin plugin;
    // Seen from behind.
    SceneSnapshot back = quadUnderSky(glow);
    back.lights.clear();
    back.shapes[0].transform = facingDown(0);
    EXPECT_NEAR(meanChannel(renderWith(plugin, back, params, 4, 4, 2, {kAovColor}).image(), 0), doubleSided ? 2.0f : 0.0f,
                1e-5f);
    // A panel facing up lights the floor below it only with its back.
    SceneSnapshot lit = quadUnderSky(diffuseMaterial(1, 1, 1), makeQuad(3));
    lit.lights.clear();
    lit.shapes.push_back(shape(2, makeQuad(0.5f), glow, translation(0, 1, 0)));
    lit.camera.transform = lookAt(0, 0.5f, 0, 0, 0, 0);
    lit.camera.orthoHeight = 0.2f;
    float floor = meanChannel(renderWith(plugin, lit, params, 4, 4, 64, {kAovColor}).image(), 0);
    if (doubleSided) EXPECT_GT(floor, 0.1f);
    else EXPECT_EQ(floor, 0.0f);
  }
}

TEST(Volume, BeerAbsorptionDarkensThickerGlass) {
  // A glass slab seen from above against a white sky: transmittance exp(-sigma * thickness).
  auto glass = std::make_shared<MaterialData>();
  glass->metallic = 0;
  glass->roughness = 0;
  glass->transmission = 1;
  glass->thickness = 1;
  glass->ior = 1.0001f;  // no refraction or reflection to speak of: only absorption remains
  glass->attenuationDistance = 1;
  glass->attenuationColor[0] = 0.5f;
  glass->attenuationColor[1] = glass->attenuationColor[2] = 1;
  SceneSnapshot scene;
  // Two quads, 0.5 apart, the lower one facing down: a closed slab seen through its top and bottom.
  Matrix4 flip;
  flip.m[5] = -1;
  flip.m[10] = -1;
  scene.shapes.push_back(shape(1, makeQuad(5, 0.5f), glass));
  scene.shapes.push_back(shape(2, makeQuad(5, 0.0f), glass, flip));
  scene.lights.push_back(environmentLight(1));
  scene.hasCamera = true;
  scene.camera.type = 1;
  scene.camera.transform = lookAt(0, 2, 0, 0, 0, 0);
  RenderParams params;
  params.imageFilterType = 0;
  velder::VelderPlugin plugin;
  auto img = renderWith(plugin, scene, params, 4, 4, 16, {kAovColor}).image();
  EXPECT_NEAR(meanChannel(img, 0), std::pow(0.5f, 0.5f), 0.01f);
  EXPECT_NEAR(meanChannel(img, 1), 1.0f, 0.01f);
}

struct DepthCase {
  const char* name;
  bool metal;
  uint32_t RenderParams::*limit;
  uint32_t value;
  bool expectIndirect;
};

class DepthLimitTest : public ::testing::TestWithParam<DepthCase> {};

// A floor and a sphere of one kind of material under a sky: every bounce of that kind is counted
// against its own limit and against the total, and light after a bounce is indirect.
TEST_P(DepthLimitTest, LimitsDecideWhetherIndirectLightExists) {
  const DepthCase& c = GetParam();
  auto material = diffuseMaterial(0.7f, 0.7f, 0.7f);
  if (c.metal) {
    material->metallic = 1;
    material->roughness = 0.3f;
  }
  SceneSnapshot scene;
  scene.shapes.push_back(shape(1, makeQuad(3), material));
  scene.shapes.push_back(shape(2, makeSphere(0.5f, 16, 8), material, translation(0, 0.5f, 0)));
  scene.lights.push_back(environmentLight(1));
  scene.lights.push_back(pointLight(0.5f, 2, 0.5f, 2));
  scene.hasCamera = true;
  scene.camera.transform = lookAt(0, 1.5f, 2.5f, 0, 0.3f, 0);
  RenderParams params;
  params.*(c.limit) = c.value;
  velder::VelderPlugin plugin;
  auto out = renderWith(plugin, scene, params, 16, 16, 16, {kernel::kAovDirectIllumination, kernel::kAovIndirectIllumination});
  ASSERT_EQ(out.status, 0) << out.error;
  EXPECT_GT(meanChannel(out.image(0), 0), 0.05f) << c.name << ": direct light never depends on bounce limits";
  float indirect = meanChannel(out.image(1), 0);
  if (c.expectIndirect) EXPECT_GT(indirect, 1e-3f) << c.name;
  else EXPECT_EQ(indirect, 0.0f) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    Limits, DepthLimitTest,
    ::testing::Values(DepthCase{"total_zero_diffuse", false, &RenderParams::maxDepth, 0, false},
                      DepthCase{"total_zero_metal", true, &RenderParams::maxDepth, 0, false},
                      DepthCase{"diffuse_zero_stops_diffuse", false, &RenderParams::maxDepthDiffuse, 0, false},
                      DepthCase{"diffuse_zero_keeps_glossy", true, &RenderParams::maxDepthDiffuse, 0, true},
                      DepthCase{"glossy_zero_stops_glossy", true, &RenderParams::maxDepthGlossy, 0, false},
                      DepthCase{"glossy_zero_keeps_diffuse", false, &RenderParams::maxDepthGlossy, 0, true},
                      DepthCase{"defaults", false, &RenderParams::maxDepth, 8, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RadianceClamp, NoPixelExceedsTheClamp) {
  auto lamp = diffuseMaterial(0, 0, 0);
  lamp->emissive[0] = lamp->emissive[1] = lamp->emissive[2] = 100;
  SceneSnapshot scene;
  scene.shapes.push_back(shape(1, makeQuad(3), diffuseMaterial(0.8f, 0.8f, 0.8f)));
  scene.shapes.push_back(shape(2, makeSphere(0.3f, 12, 6), lamp, translation(0, 1, 0)));
  scene.hasCamera = true;
  scene.camera.transform = lookAt(0, 2, 2, 0, 0.3f, 0);
  RenderParams params;
  velder::VelderPlugin plugin;
  auto bright = renderWith(plugin, scene, params, 16, 16, 16, {kAovColor}).image();
  params.radianceClamp = 1;
  auto clamped = renderWith(plugin, scene, params, 16, 16, 16, {kAovColor}).image();
  float brightest = 0;
  for (size_t i = 0; i < clamped.size(); i += 4) {
    ASSERT_LE(clamped[i], 1.0f + 1e-4f);
    brightest = std::max(brightest, bright[i]);
  }
  EXPECT_GT(brightest, 10.0f) << "without the clamp the lamp is far brighter";
}

TEST(QuillonCaustics, ReductionRoughensGlossyAfterDiffuse) {
  // A diffuse floor lit only through a mirror: the reflected light is a caustic.
  auto mirror = std::make_shared<MaterialData>();
  mirror->metallic = 1;
  mirror->roughness = 0.02f;
  auto lamp = diffuseMaterial(0, 0, 0);
  lamp->emissive[0] = lamp->emissive[1] = lamp->emissive[2] = 50;
  SceneSnapshot scene;
  scene.shapes.push_back(shape(1, makeQuad(3), diffuseMaterial(0.8f, 0.8f, 0.8f)));
  Matrix4 ceiling;
  ceiling.m[5] = -1;
  ceiling.m[10] = -1;
  ceiling.m[13] = 2;
  scene.shapes.push_back(shape(2, makeQuad(3), mirror, ceiling));
  scene.shapes.push_back(shape(3, makeSphere(0.1f, 12, 6), lamp, translation(0, 1.0f, 0)));
  scene.hasCamera = true;
  scene.camera.transform = lookAt(0, 1, 2.5f, 0, 0, 0);
  RenderParams params;
  params.causticsReduction = 1;
  quillon::QuillonPlugin plugin;
  auto sharp = renderWith(plugin, scene, params, 16, 16, 32, {kAovColor}).image();
  params.causticsReduction = 0.2f;
  auto soft = renderWith(plugin, scene, params, 16, 16, 32, {kAovColor}).image();
  EXPECT_NE(sharp, soft) << "caustics reduction must change the picture";
  // The lamp seen directly is untouched: compare a pixel on it.
  velder::VelderPlugin velder;
  auto reference = renderWith(velder, scene, RenderParams{}, 16, 16, 32, {kAovColor}).image();
  EXPECT_EQ(reference, sharp) << "1.0 means no reduction: the same transport as Velder";
}

}  // namespace
}  // namespace zvr::test
