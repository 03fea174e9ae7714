// Texture decoding, addressing and filtering, the memory limit, and a textured render.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/aov.h"
#include "tests/kernel/test_support.h"
#include "kernel/texture.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::kernel {
namespace {

std::shared_ptr<ImageData> image(uint32_t w, uint32_t h, uint32_t channels, std::vector<float> pixels,
                                 ColorSpace space = ColorSpace::Linear, uint64_t id = 1) {
  auto img = std::make_shared<ImageData>();
  img->id = id;
  img->width = w;
  img->height = h;
  img->channels = channels;
  img->colorSpace = space;
  img->pixels = std::move(pixels);
  return img;
}

// A 4x1 ramp: texel i holds i/4 in every channel.
std::shared_ptr<ImageData> ramp() { return image(4, 1, 1, {0.0f, 0.25f, 0.5f, 0.75f}); }

struct LookupCase {
  const char* name;
  uint32_t wrap;
  bool linear;
  float u;
  float expected;
};

class TextureLookupTest : public ::testing::TestWithParam<LookupCase> {};

TEST_P(TextureLookupTest, AddressingAndFiltering) {
  const LookupCase& c = GetParam();
  Texture tex(*ramp(), false, 1);
  Vec4 v = tex.sample(c.u, 0.5f, -10, c.wrap, c.wrap, c.linear, c.linear);
  EXPECT_NEAR(v.x, c.expected, 1e-5f) << c.name;
  EXPECT_NEAR(v.y, c.expected, 1e-5f) << "grey images fill RGB";
  EXPECT_EQ(v.w, 1.0f) << "one channel means opaque";
}

INSTANTIATE_TEST_SUITE_P(
    Modes, TextureLookupTest,
    ::testing::Values(LookupCase{"nearest_inside", 0, false, 0.3f, 0.25f},
                      LookupCase{"nearest_repeat", 0, false, 1.3f, 0.25f},
                      LookupCase{"nearest_clamp", 1, false, 1.3f, 0.75f},
                      LookupCase{"nearest_mirror", 2, false, 1.3f, 0.5f},
                      LookupCase{"nearest_negative_repeat", 0, false, -0.1f, 0.75f},
                      LookupCase{"bilinear_between_centres", 0, true, 0.25f, 0.125f},
                      LookupCase{"bilinear_at_centre", 1, true, 0.375f, 0.25f},
                      LookupCase{"bilinear_repeat_wraps_edge", 0, true, 0.0f, 0.375f},
                      LookupCase{"bilinear_clamp_holds_edge", 1, true, 0.0f, 0.0f}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TextureDecode, SrgbAndGammaApplyToColourTexturesOnly) {
  auto srgb = image(1, 1, 3, {0.5f, 0.5f, 0.5f}, ColorSpace::SRGB);
  EXPECT_NEAR(Texture(*srgb, true, 1).sample(0.5f, 0.5f, 0, 0, 0, true, true).x, 0.21404f, 1e-4f);
  EXPECT_NEAR(Texture(*srgb, false, 1).sample(0.5f, 0.5f, 0, 0, 0, true, true).x, 0.5f, 1e-6f) << "data stays as stored";
  auto linear = image(1, 1, 3, {0.5f, 0.5f, 0.5f});
  EXPECT_NEAR(Texture(*linear, true, 2.2f).sample(0.5f, 0.5f, 0, 0, 0, true, true).x, std::pow(0.5f, 2.2f), 1e-5f);
  EXPECT_NEAR(Texture(*linear, true, 1.0f).sample(0.5f, 0.5f, 0, 0, 0, true, true).x, 0.5f, 1e-6f);
  // Malformed images (no channels, too few pixels) read as black instead of past their data.
  for (auto bad : {image(2, 2, 0, {}), image(4, 4, 3, {1, 1, 1})}) {
    Vec4 v = Texture(*bad, true, 1).sample(0.5f, 0.5f, 0, 0, 0, true, true);
    EXPECT_EQ(v.x, 0.0f);
  }
  auto greyAlpha = image(1, 1, 2, {0.3f, 0.6f});
  Vec4 ga = Texture(*greyAlpha, false, 1).sample(0.5f, 0.5f, 0, 0, 0, true, true);
  EXPECT_NEAR(ga.z, 0.3f, 1e-6f);
  EXPECT_NEAR(ga.w, 0.6f, 1e-6f);
}

TEST(TextureMips, CoarseLevelsAverageAndTheLimitDropsFineLevels) {
  // 8x8 checkerboard of 0 and 1.
  std::vector<float> px(64);
  for (int i = 0; i < 64; ++i) px[i] = float(((i % 8) + (i / 8)) % 2);
  auto img = image(8, 8, 1, px, ColorSpace::Linear, 42);
  Texture tex(*img, false, 1);
  EXPECT_NEAR(tex.sample(0.3f, 0.3f, 3, 0, 0, true, true).x, 0.5f, 1e-5f);
  EXPECT_NEAR(tex.sample(0.3f, 0.3f, 1.5f, 0, 0, true, true).x, 0.5f, 1e-5f) << "trilinear between averaged levels";
  float fine = tex.sample(1.0f / 16, 1.0f / 16, -2, 0, 0, false, false).x;
  EXPECT_EQ(fine, 0.0f);

  TextureCache cache;
  const Texture* cached = cache.get(img, false, 1);
  EXPECT_EQ(cache.get(img, false, 1), cached) << "one texture per image and use";
  EXPECT_NE(cache.get(img, true, 1), cached) << "colour and data uses decode differently";
  size_t before = cache.bytes();
  cache.enforceLimit(before / 2);
  EXPECT_LE(cache.bytes(), before / 2);
  // What remains still answers coarse lookups the same way.
  EXPECT_NEAR(cached->sample(0.3f, 0.3f, 3, 0, 0, true, true).x, 0.5f, 1e-5f);
  EXPECT_LT(cached->width(), 8u);
}

TEST(TextureTransform, OffsetScaleAndRotationApplyInOrder) {
  TextureBinding b;
  b.offset[0] = 0.5f;
  b.scale[0] = 2;
  b.scale[1] = 3;
  float u = 0.25f, v = 0.1f;
  transformTexcoord(b, u, v);
  EXPECT_NEAR(u, 1.0f, 1e-6f);
  EXPECT_NEAR(v, 0.3f, 1e-6f);
  b = TextureBinding{};
  b.rotation = 3.14159265f / 2;
  u = 1, v = 0;
  transformTexcoord(b, u, v);
  EXPECT_NEAR(u, 0, 1e-6f);
  EXPECT_NEAR(v, -1, 1e-6f);
}

// A quad alone under a uniform environment of one reflects exactly its albedo; a 2x2 colour
// texture with nearest filtering therefore shows its four decoded colours in the four quadrants.
TEST(TexturedRender, BaseColourTextureReachesThePixels) {
  using namespace test;
  auto material = diffuseMaterial(1, 1, 1);
  material->baseColorTexture.image =
      image(2, 2, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1}, ColorSpace::SRGB, 77);  // rows top to bottom
  material->baseColorTexture.magFilter = material->baseColorTexture.minFilter = 1;
  SceneSnapshot scene;
  scene.shapes.push_back(shape(1, makeQuad(1), material));
  scene.lights.push_back(environmentLight(1));
  scene.hasCamera = true;
  scene.camera.type = 1;  // orthographic, straight down onto the quad
  scene.camera.orthoHeight = 2;
  scene.camera.transform = lookAt(0, 2, 0, 0, 0, 0);
  RenderParams params;
  params.imageFilterType = 0;
  velder::VelderPlugin plugin;
  auto out = renderWith(plugin, scene, params, 8, 8, 64, {kAovColor});
  ASSERT_EQ(out.status, 0) << out.error;
  auto img = out.image();
  // The camera's up is -z, so image top is -z where the quad's v is 0 (texture top row).
  auto pixel = [&](int x, int y) { return Vec3(img[(y * 8 + x) * 4], img[(y * 8 + x) * 4 + 1], img[(y * 8 + x) * 4 + 2]); };
  Vec3 expected[4] = {Vec3(1, 0, 0), Vec3(0, 1, 0), Vec3(0, 0, 1), Vec3(1, 1, 1)};
  Vec3 got[4] = {pixel(1, 1), pixel(6, 1), pixel(1, 6), pixel(6, 6)};
  for (int q = 0; q < 4; ++q)
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(got[q][k], expected[q][k], 0.02f) << "quadrant " << q << " channel " << k;
}

}  // namespace
}  // namespace zvr::kernel
