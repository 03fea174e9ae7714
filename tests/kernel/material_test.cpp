// Material features seen in renders: alpha modes, vertex colours, normal maps, unlit, emission
// strength, Beer absorption, depth limits, radiance clamp and caustics reduction.
#include <cmath>
#include <tuple>

#include "kernel/aov.h"
#include "plugins/quillon/quillon_plugin.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

// An orthographic camera straight down onto a quad under a uniform environment of one.
SceneSnapshot quadUnderSky(std::shared_ptr<MaterialData> material, std::shared_ptr<MeshData> mesh = makeQuad(1)) {
  return sceneOf({shape(1, mesh, material)}, {environmentLight(1)}, orthoDown(2, 1.5f));
}

// Red seen in a render of `scene` with the box filter, without the sky when `dark`.
float meanRed(SceneSnapshot scene, uint32_t size, uint32_t iterations, bool dark = false,
              RenderParams params = boxFilter()) {
  if (dark) scene.lights.clear();
  return meanChannel(render(scene, params, size, size, iterations, {kAovColor})[0], 0);
}

// A lone Lambert quad under a constant sky takes its sky sample by the same cosine density as its
// BSDF sample, so each carries half of albedo times sky whatever the direction: one sample per pixel
// is exact, seen from the front and from the back.
TEST(Sky, LambertQuadIsLitWithoutNoiseFromEitherSide) {
  for (bool back : {false, true}) {
    SCOPED_TRACE(back ? "back" : "front");
    SceneSnapshot scene = quadUnderSky(diffuseMaterial(0.5f, 0.5f, 0.5f));
    if (back) scene.shapes[0].transform = facingDown(0);
    const auto color = render(scene, boxFilter(), 8, 8, 1, {kAovColor})[0];
    for (size_t i = 0; i < color.size(); i += 4) ASSERT_NEAR(color[i], 0.5f, 1e-4f) << "pixel " << i / 4;
  }
}

TEST(Alpha, ModesMixSurfaceAndBackground) {
  // Half transparent: 0.3 * 0.5 (surface) + 0.7 * 1 (sky) = 0.85.
  // Label, alpha mode and alpha; the colour and coverage expected (the quad's albedo is 0.5, the sky behind is 1).
  const std::tuple<const char*, uint32_t, float, float, float> cases[] = {
      {"opaque ignores alpha", 0, 0.3f, 0.5f, 1}, {"mask below cutoff cuts", 1, 0.3f, 1.0f, 0},
      {"mask above cutoff keeps", 1, 0.7f, 0.5f, 1}, {"blend mixes", 2, 0.3f, 0.85f, 0.3f}};
  for (const auto& [name, mode, alpha, color, coverage] : cases) {
    auto m = diffuseMaterial(0.5f, 0.5f, 0.5f);
    m->alphaMode = mode;
    m->baseColor[3] = alpha;
    m->alphaCutoff = 0.5f;
    m->doubleSided = true;
    auto images = render(quadUnderSky(m), boxFilter(), 8, 8, 256, {kAovColor, kAovOpacity});
    EXPECT_NEAR(meanChannel(images[0], 0), color, 0.02f) << name;
    EXPECT_NEAR(meanChannel(images[1], 0), coverage, 0.03f) << name;
  }
}

// Shadow rays pass alpha-blended surfaces, each dimming the light by its transparency, up to the
// shadow depth limit; beyond it the light counts as blocked.
TEST(Alpha, BlendedLayersDimLightUpToTheShadowDepth) {
  auto veil = diffuseMaterial(0.5f, 0.5f, 0.5f);
  veil->alphaMode = 2;
  veil->baseColor[3] = 0.5f;
  veil->doubleSided = true;
  // Seen from low, under the veils, in a narrow view of the floor's centre.
  SceneSnapshot scene = sceneOf({shape(1, makeQuad(3), diffuseMaterial(1, 1, 1))}, {pointLight(0, 3, 0, 9)},
                                cameraAt(3, 0.4f, 0, 0, 0, 0, 0.05f));
  for (int i = 0; i < 3; ++i) scene.shapes.push_back(shape(2 + i, makeQuad(1.5f, 1.0f + 0.2f * i), veil));
  auto transmittance = [&](uint32_t shadowDepth) {
    RenderParams p = boxFilter();
    p.maxDepthShadow = shadowDepth;
    p.maxDepth = 0;  // direct light only: the floor sees the lamp through the veils
    auto images = render(scene, p, 4, 4, 8, {kAovColor, kAovWorldCoordinate});
    const auto &img = images[0], &pos = images[1];
    // Divide out the unshadowed radiance I cos / r^2 / pi.
    double sum = 0;
    for (size_t i = 0; i < img.size(); i += 4) {
      float r2 = pos[i] * pos[i] + pos[i + 2] * pos[i + 2] + 9;
      sum += img[i] / (9 * (3 / std::sqrt(r2)) / r2 / 3.14159265f);
    }
    return float(sum / (img.size() / 4));
  };
  EXPECT_NEAR(transmittance(8), 0.125f, 1e-3f);
  EXPECT_NEAR(transmittance(3), 0.125f, 1e-3f);
  EXPECT_EQ(transmittance(2), 0.0f) << "a fourth surface is more than the shadow ray may pass";
}

TEST(Surface, VertexColoursUnlitAndEmission) {
  // Vertex colours multiply the base colour.
  auto mesh = makeQuad(1);
  mesh->colors.assign(16, 1.0f);
  for (int v = 0; v < 4; ++v) mesh->colors[4 * v + 1] = 0.25f;
  auto img = render(quadUnderSky(diffuseMaterial(0.8f, 0.8f, 0.8f), mesh), boxFilter(), 8, 8, 64, {kAovColor})[0];
  EXPECT_NEAR(meanChannel(img, 0), 0.8f, 0.01f);
  EXPECT_NEAR(meanChannel(img, 1), 0.2f, 0.01f);
  // Unlit shows the base colour whatever the light.
  auto unlit = diffuseMaterial(0.9f, 0.6f, 0.3f);
  unlit->unlit = true;
  EXPECT_NEAR(meanRed(quadUnderSky(unlit), 8, 4, true), 0.9f, 1e-4f);
  // Emission times strength, seen directly.
  auto glow = diffuseMaterial(0, 0, 0);
  glow->emissive[0] = 0.5f;
  glow->emissiveStrength = 6;
  EXPECT_NEAR(meanRed(quadUnderSky(glow), 8, 4, true), 3.0f, 1e-4f);
  // Normalised emitters radiate their value over their area (9 here).
  RenderParams normalized = boxFilter();
  normalized.normalizeLightIntensity = 1;
  EXPECT_NEAR(meanRed(quadUnderSky(emitter(2), makeQuad(1.5f)), 4, 2, true), 2.0f, 1e-5f);
  EXPECT_NEAR(meanRed(quadUnderSky(emitter(2), makeQuad(1.5f)), 4, 2, true, normalized), 2.0f / 9, 1e-5f);
  // A single-sided emitter shines from its front only, seen or sampled; a double-sided one from both.
  for (bool doubleSided : {false, true}) {
    SCOPED_TRACE(doubleSided ? "double-sided" : "single-sided");
    auto panel = emitter(2);
    panel->doubleSided = doubleSided;
    SceneSnapshot back = quadUnderSky(panel);
    back.shapes[0].transform = facingDown(0);
    EXPECT_NEAR(meanRed(back, 4, 2, true), doubleSided ? 2.0f : 0.0f, 1e-5f);
    // A panel facing up lights the floor below it only with its back.
    SceneSnapshot lit = quadUnderSky(diffuseMaterial(1, 1, 1), makeQuad(3));
    lit.shapes.push_back(shape(2, makeQuad(0.5f), panel, translation(0, 1, 0)));
    lit.camera = orthoDown(0.5f, 0.2f);
    float floor = meanRed(lit, 4, 64, true);
    if (doubleSided) EXPECT_GT(floor, 0.1f);
    else EXPECT_EQ(floor, 0.0f);
  }
}

TEST(Surface, NormalMapTiltsTheShadingNormal) {
  // A flat normal map texel pointing 45 degrees towards +x in tangent space.
  auto m = diffuseMaterial(0.5f, 0.5f, 0.5f);
  const float t = std::sqrt(0.5f);
  m->normalTexture.image = image(1, 1, 3, {0.5f + 0.5f * t, 0.5f, 0.5f + 0.5f * t}, ColorSpace::Linear, 9);
  auto mesh = makeQuad(1);
  mesh->tangents = {1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1};
  auto images = render(quadUnderSky(m, mesh), RenderParams{}, 4, 4, 2, {kAovNormal, kAovNormalGeom});
  const auto &n = images[0], &ng = images[1];
  EXPECT_NEAR(n[0], t, 1e-3f);
  EXPECT_NEAR(n[1], t, 1e-3f);
  EXPECT_NEAR(ng[1], 1, 1e-6f) << "the geometric normal stays";
}

// The occlusion texture (0.25 here) darkens light that reached the floor from the ceiling, not
// the point light's own.
TEST(Surface, OcclusionDarkensIndirectLightOnly) {
  auto lightOnFloor = [](bool occluded) {
    auto floor = diffuseMaterial(1, 1, 1);
    if (occluded) {
      floor->occlusionTexture.image = image(1, 1, 1, {0.5f}, ColorSpace::Linear, 31);
      floor->occlusionStrength = 1.5f;  // 1 + 1.5 (0.5 - 1)
    }
    const SceneSnapshot scene =
        sceneOf({shape(1, makeQuad(3), floor), shape(2, makeQuad(3), diffuseMaterial(1, 1, 1), facingDown(1.5f))},
                {pointLight(0, 1, 0, 1)}, orthoDown(1.2f, 0.5f));
    RenderParams params;
    params.maxDepth = 2;
    return render(scene, params, 8, 8, 512, {kAovDirectIllumination, kAovIndirectIllumination});
  };
  auto plain = lightOnFloor(false), occluded = lightOnFloor(true);
  float direct = meanChannel(plain[0], 0), indirect = meanChannel(plain[1], 0);
  ASSERT_GT(indirect, 0.05f * direct) << "the ceiling must send light back";
  EXPECT_NEAR(meanChannel(occluded[0], 0), direct, 0.01f * direct);
  EXPECT_NEAR(meanChannel(occluded[1], 0), 0.25f * indirect, 0.05f * indirect);
}

TEST(Volume, BeerAbsorptionDarkensThickerGlass) {
  // A closed glass slab 0.5 thick seen from above against a white sky: transmittance
  // exp(-sigma * thickness), with no refraction or reflection to speak of at IOR 1.0001.
  auto glass = material(0, 0, 1);
  glass->thickness = 1;
  glass->ior = 1.0001f;
  glass->attenuationDistance = 1;
  glass->attenuationColor[0] = 0.5f;
  glass->attenuationColor[1] = glass->attenuationColor[2] = 1;
  const SceneSnapshot scene = sceneOf({shape(1, makeQuad(5, 0.5f), glass), shape(2, makeQuad(5), glass, facingDown(0))},
                                      {environmentLight(1)}, orthoDown(2, 2));
  auto img = render(scene, boxFilter(), 4, 4, 16, {kAovColor})[0];
  EXPECT_NEAR(meanChannel(img, 0), std::pow(0.5f, 0.5f), 0.01f);
  EXPECT_NEAR(meanChannel(img, 1), 1.0f, 0.01f);
}

// A floor and a sphere of one kind of material under a sky: every bounce of that kind is counted
// against its own limit and against the total, and light after a bounce is indirect.
TEST(DepthLimits, DecideWhetherIndirectLightExists) {
  // Label, metal or diffuse, the limit and its value; whether indirect light remains.
  const std::tuple<const char*, bool, uint32_t RenderParams::*, uint32_t, bool> cases[] = {
      {"total zero, diffuse", false, &RenderParams::maxDepth, 0, false},
      {"total zero, metal", true, &RenderParams::maxDepth, 0, false},
      {"diffuse zero stops diffuse", false, &RenderParams::maxDepthDiffuse, 0, false},
      {"diffuse zero keeps glossy", true, &RenderParams::maxDepthDiffuse, 0, true},
      {"glossy zero stops glossy", true, &RenderParams::maxDepthGlossy, 0, false},
      {"glossy zero keeps diffuse", false, &RenderParams::maxDepthGlossy, 0, true},
      {"defaults", false, &RenderParams::maxDepth, 8, true}};
  for (const auto& [name, metal, limit, value, hasIndirect] : cases) {
    auto m = diffuseMaterial(0.7f, 0.7f, 0.7f);
    if (metal) {
      m->metallic = 1;
      m->roughness = 0.3f;
    }
    const SceneSnapshot scene =
        sceneOf({shape(1, makeQuad(3), m), shape(2, makeSphere(0.5f, 16, 8), m, translation(0, 0.5f, 0))},
                {environmentLight(1), pointLight(0.5f, 2, 0.5f, 2)}, cameraAt(0, 1.5f, 2.5f, 0, 0.3f, 0));
    RenderParams params;
    params.*(limit) = value;
    auto images = render(scene, params, 16, 16, 16, {kAovDirectIllumination, kAovIndirectIllumination});
    EXPECT_GT(meanChannel(images[0], 0), 0.05f) << name << ": direct light never depends on bounce limits";
    float indirect = meanChannel(images[1], 0);
    if (hasIndirect) EXPECT_GT(indirect, 1e-3f) << name;
    else EXPECT_EQ(indirect, 0.0f) << name;
  }
}

TEST(RadianceClamp, NoPixelExceedsTheClamp) {
  const SceneSnapshot scene = sceneOf({shape(1, makeQuad(3), diffuseMaterial(0.8f, 0.8f, 0.8f)),
                                       shape(2, makeSphere(0.3f, 12, 6), emitter(100), translation(0, 1, 0))},
                                      {}, cameraAt(0, 2, 2, 0, 0.3f, 0));
  RenderParams params;
  auto bright = render(scene, params, 16, 16, 16, {kAovColor})[0];
  params.radianceClamp = 1;
  auto clamped = render(scene, params, 16, 16, 16, {kAovColor})[0];
  EXPECT_GT(*std::max_element(bright.begin(), bright.end()), 10.0f) << "without the clamp the lamp is far brighter";
  for (size_t i = 0; i < clamped.size(); i += 4) ASSERT_LE(clamped[i], 1.0f + 1e-4f);
}

TEST(QuillonCaustics, ReductionRoughensGlossyAfterDiffuse) {
  // A diffuse floor lit only through a mirror: the reflected light is a caustic.
  const SceneSnapshot scene = sceneOf({shape(1, makeQuad(3), diffuseMaterial(0.8f, 0.8f, 0.8f)),
                                       shape(2, makeQuad(3), material(1, 0.02f), facingDown(2)),
                                       shape(3, makeSphere(0.1f, 12, 6), emitter(50), translation(0, 1.0f, 0))},
                                      {}, cameraAt(0, 1, 2.5f, 0, 0, 0));
  RenderParams params;
  params.causticsReduction = 1;
  quillon::QuillonPlugin plugin;
  auto sharp = render(scene, params, 16, 16, 32, {kAovColor}, &plugin)[0];
  params.causticsReduction = 0.2f;
  EXPECT_NE(sharp, render(scene, params, 16, 16, 32, {kAovColor}, &plugin)[0]);
  EXPECT_EQ(render(scene, RenderParams{}, 16, 16, 32, {kAovColor})[0], sharp)
      << "1.0 means no reduction: the same transport as Velder";
}

}  // namespace
}  // namespace zvr::test
