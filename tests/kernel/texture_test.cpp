// Texture decoding, addressing and filtering, the memory limit, and a textured render.
#include <cmath>
#include <tuple>

#include "kernel/aov.h"
#include "kernel/texel_bytes.h"
#include "kernel/texture.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

float red(const Texture& t, float u = 0.5f, float v = 0.5f, float level = 0) {
  return t.sample(u, v, level, 0, 0, true, true).x;
}

TEST(Texture, AddressingAndFiltering) {
  // Label, wrap mode, bilinear or nearest, u; the value expected.
  const std::tuple<const char*, uint32_t, bool, float, float> cases[] = {
      {"nearest inside", 0, false, 0.3f, 0.25f},        {"nearest repeat", 0, false, 1.3f, 0.25f},
      {"nearest clamp", 1, false, 1.3f, 0.75f},         {"nearest mirror", 2, false, 1.3f, 0.5f},
      {"nearest negative repeat", 0, false, -0.1f, 0.75f}, {"bilinear between centres", 0, true, 0.25f, 0.125f},
      {"bilinear at centre", 1, true, 0.375f, 0.25f},   {"bilinear repeat wraps edge", 0, true, 0.0f, 0.375f},
      {"bilinear clamp holds edge", 1, true, 0.0f, 0.0f},
  };
  Texture ramp(*image(4, 1, 1, {0.0f, 0.25f, 0.5f, 0.75f}), false, 1);
  for (const auto& [name, wrap, linear, u, expected] : cases) {
    Vec4 v = ramp.sample(u, 0.5f, -10, wrap, wrap, linear, linear);
    EXPECT_NEAR(v.x, expected, 1e-5f) << name;
    EXPECT_NEAR(v.y, expected, 1e-5f) << name << ": grey images fill RGB";
    EXPECT_EQ(v.w, 1.0f) << name << ": one channel means opaque";
  }
}

TEST(Texture, SrgbAndGammaApplyToColourTexturesOnly) {
  auto srgb = image(1, 1, 3, {0.5f, 0.5f, 0.5f}, ColorSpace::SRGB);
  EXPECT_NEAR(red(Texture(*srgb, true, 1)), 0.21404f, 1e-4f);
  EXPECT_NEAR(red(Texture(*srgb, false, 1)), 0.5f, 1e-6f) << "data stays as stored";
  auto linear = image(1, 1, 3, {0.5f, 0.5f, 0.5f});
  EXPECT_NEAR(red(Texture(*linear, true, 2.2f)), std::pow(0.5f, 2.2f), 1e-5f);
  EXPECT_NEAR(red(Texture(*linear, true, 1.0f)), 0.5f, 1e-6f);
  // Malformed images (no channels, too few pixels) read as black instead of past their data.
  for (auto bad : {image(2, 2, 0, {}), image(4, 4, 3, {1, 1, 1})}) EXPECT_EQ(red(Texture(*bad, true, 1)), 0.0f);
  Vec4 ga = Texture(*image(1, 1, 2, {0.3f, 0.6f}), false, 1).sample(0.5f, 0.5f, 0, 0, 0, true, true);
  EXPECT_NEAR(ga.z, 0.3f, 1e-6f);
  EXPECT_NEAR(ga.w, 0.6f, 1e-6f);
  // Offset and scale, then rotation.
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

// An 8-bit image keeps its finest level as bytes, and must sample exactly as the same image held
// as floats (forced by one value off the byte grid, in the last texel, which no lookup below reads).
TEST(Texture, EightBitImagesSampleExactlyAsFloatImages) {
  const uint32_t w = 8, h = 8;
  for (ByteForm form : {ByteForm::Divided, ByteForm::Multiplied})
    for (uint32_t channels : {2u, 4u})
      for (auto [colour, space, gamma] : {std::tuple{true, ColorSpace::SRGB, 1.0f}, {true, ColorSpace::Linear, 2.2f},
                                          {false, ColorSpace::SRGB, 1.0f}}) {
        SCOPED_TRACE(testing::Message() << "form " << int(form) << ", " << channels << " channels, colour " << colour
                                        << ", gamma " << gamma);
        std::vector<float> values(w * h * channels);
        for (size_t i = 0; i < values.size(); ++i) values[i] = byteValue(form, uint32_t(i * 37 % 256));
        Texture bytes(*image(w, h, channels, values, space), colour, gamma);
        values.back() = 0.5001f;
        Texture floats(*image(w, h, channels, values, space), colour, gamma);
        EXPECT_LT(bytes.bytes(), floats.bytes() * 2 / 3) << "the finest level is a quarter of the floats";
        for (uint32_t i = 0; i + 1 < w * h; ++i) {
          const float u = (i % w + 0.5f) / w, v = (i / w + 0.5f) / h;
          Vec4 a = bytes.sample(u, v, -1, 0, 0, false, false), b = floats.sample(u, v, -1, 0, 0, false, false);
          ASSERT_TRUE(a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w) << "texel " << i;
        }
        // Coarser levels hold the byte nearest the same average: within half the widest step of
        // a decoded byte (sRGB's, 0.0089 at white).
        Vec4 a = bytes.sample(0.1f, 0.1f, 1, 0, 0, false, false), b = floats.sample(0.1f, 0.1f, 1, 0, 0, false, false);
        EXPECT_NEAR(a.x, b.x, 0.0045f);
        EXPECT_NEAR(a.w, b.w, 0.002f);
        // An average that is a byte's own value keeps exactly that byte.
        for (uint32_t k = 0; k < 256; ++k) {
          const float value = byteValue(form, k);
          Texture flat(*image(2, 2, channels, std::vector<float>(4 * channels, value), space), colour, gamma);
          ASSERT_EQ(flat.sample(0.5f, 0.5f, 1, 0, 0, false, false).x, flat.sample(0.5f, 0.5f, -1, 0, 0, false, false).x)
              << "byte " << k;
        }
      }
}

TEST(Texture, CoarseLevelsAverageAndTheLimitDropsFineLevels) {
  std::vector<float> checker(64);
  for (int i = 0; i < 64; ++i) checker[i] = float(((i % 8) + (i / 8)) % 2);
  auto img = image(8, 8, 1, checker, ColorSpace::Linear, 42);
  Texture tex(*img, false, 1);
  // Coarser levels of an 8-bit image are bytes too: 0.5 lies half a byte from either neighbour.
  const float halfByte = 0.5f / 255 + 1e-6f;
  EXPECT_NEAR(red(tex, 0.3f, 0.3f, 3), 0.5f, halfByte);
  EXPECT_NEAR(red(tex, 0.3f, 0.3f, 1.5f), 0.5f, halfByte) << "trilinear between averaged levels";
  EXPECT_EQ(tex.sample(1.0f / 16, 1.0f / 16, -2, 0, 0, false, false).x, 0.0f);
  TextureCache cache;
  const Texture* cached = cache.get(img, false, 1);
  EXPECT_EQ(cache.get(img, false, 1), cached) << "one texture per image and use";
  EXPECT_NE(cache.get(img, true, 1), cached) << "colour and data uses decode differently";
  size_t before = cache.bytes();
  cache.enforceLimit(before / 2);
  EXPECT_LE(cache.bytes(), before / 2);
  EXPECT_NEAR(red(*cached, 0.3f, 0.3f, 3), 0.5f, halfByte) << "what remains answers coarse lookups the same way";
  EXPECT_LT(cached->width(), 8u);
}

// A quad alone under a uniform environment of one reflects exactly its albedo; a 2x2 colour
// texture with nearest filtering therefore shows its four decoded colours in the four quadrants.
TEST(Texture, BaseColourTextureReachesThePixels) {
  auto material = diffuseMaterial(1, 1, 1);
  material->baseColorTexture.image = image(2, 2, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1}, ColorSpace::SRGB, 77);
  material->baseColorTexture.magFilter = material->baseColorTexture.minFilter = 1;
  const SceneSnapshot scene = sceneOf({shape(1, makeQuad(1), material)}, {environmentLight(1)}, orthoDown(2, 2));
  auto img = render(scene, boxFilter(), 8, 8, 64, {kAovColor})[0];
  // The camera's up is -z, so image top is -z where the quad's v is 0 (texture top row).
  const int corners[4][2] = {{1, 1}, {6, 1}, {1, 6}, {6, 6}};
  const float expected[4][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}};
  for (int q = 0; q < 4; ++q)
    for (int k = 0; k < 3; ++k)
      EXPECT_NEAR(img[(corners[q][1] * 8 + corners[q][0]) * 4 + k], expected[q][k], 0.02f) << "quadrant " << q;
}

}  // namespace
}  // namespace zvr::test
