#include "viewer/upscaler_constants.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "viewer/upscaler.h"

using namespace zvrs;

namespace {

uint32_t bitsOf(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// Sizes whose every constant is a power of two or an exact ratio, so the expected words are exact.
TEST(UpscalerConstants, TovuBlockWordByWord) {
  struct Case {
    int w, h, ow, oh;
    float expected[14];
  };
  const Case cases[] = {
      {1024,
       512,
       2048,
       1024,
       {0.5f, 0.5f, -0.25f, -0.25f, 0x1p-10f, 0x1p-9f, 0x1p-10f, -0x1p-9f, -0x1p-10f, 0x1p-8f, 0x1p-10f, 0x1p-8f, 0.0f,
        0x1p-7f}},
      {640,
       512,
       640,
       512,  // no scaling: f is the output pixel itself
       {1.0f, 1.0f, 0.0f, 0.0f, 1.0f / 640, 0x1p-9f, 1.0f / 640, -0x1p-9f, -1.0f / 640, 0x1p-8f, 1.0f / 640, 0x1p-8f,
        0.0f, 0x1p-7f}},
      {256,
       128,
       1024,
       128,
       {0.25f, 1.0f, -0.375f, 0.0f, 0x1p-8f, 0x1p-7f, 0x1p-8f, -0x1p-7f, -0x1p-8f, 0x1p-6f, 0x1p-8f, 0x1p-6f, 0.0f,
        0x1p-5f}},
  };
  for (const Case& c : cases) {
    const UpscalerConstantBlock block = tovuConstantBlock(c.w, c.h, c.ow, c.oh);
    for (int word = 0; word < 14; ++word)
      EXPECT_EQ(block[word], bitsOf(c.expected[word])) << c.w << "x" << c.h << " word " << word;
    EXPECT_EQ(block[14], 0u);
    EXPECT_EQ(block[15], 0u);
  }

  // A ratio that is not exact lands within one rounding of it.
  const UpscalerConstantBlock third = tovuConstantBlock(1280, 720, 1920, 1080);
  float scale;
  std::memcpy(&scale, &third[0], sizeof scale);
  EXPECT_NEAR(scale, 2.0f / 3.0f, std::numeric_limits<float>::epsilon());
}

TEST(UpscalerConstants, NaltBlockAndSharpness) {
  struct Case {
    float attenuation, sharpness;
    uint32_t packedHalves;
  };
  const Case cases[] = {{0.0f, 1.0f, 0x3C003C00u}, {1.0f, 0.5f, 0x38003800u}, {2.0f, 0.25f, 0x34003400u}};
  for (const Case& c : cases) {
    const float sharpness = naltSharpness(c.attenuation);
    EXPECT_EQ(sharpness, c.sharpness) << c.attenuation;
    const UpscalerConstantBlock block = naltConstantBlock(sharpness);
    EXPECT_EQ(block[0], bitsOf(c.sharpness));
    EXPECT_EQ(block[1], c.packedHalves);
    for (int word = 2; word < 16; ++word) EXPECT_EQ(block[word], 0u) << word;
  }
}

TEST(UpscalerConstants, HalfConversionTruncates) {
  struct Case {
    float value;
    uint16_t half;
  };
  const float inf = std::numeric_limits<float>::infinity();
  const Case cases[] = {
      {1.0f, 0x3C00},        {-2.0f, 0xC000},    {65504.0f, 0x7BFF},
      {1.0f / 3.0f, 0x3555},  // truncated
      {0x1p-14f, 0x0400},    {0x1p-15f, 0x0200}, {0x1p-24f, 0x0001},
      {0x1.8p-20f, 0x0018},  // subnormal
      {0x1p-25f, 0x0000},    {0.0f, 0x0000},     {-0.0f, 0x8000},
      {65536.0f, 0x7C00},  // overflow
      {inf, 0x7C00},         {-inf, 0xFC00},     {std::numeric_limits<float>::quiet_NaN(), 0x7E00},
  };
  for (const Case& c : cases) EXPECT_EQ(floatToHalfTruncating(c.value), c.half) << c.value;
}

TEST(UpscalerConstants, GroupsCoverTheOutput) {
  const int sides[][2] = {{1000, 63}, {500, 32}, {1, 1}, {16, 1}, {17, 2}, {2560, 160}};
  for (const auto& side : sides) EXPECT_EQ(upscalerGroupCount(side[0]), side[1]) << side[0];
}

// Needs no context: nothing was created, so nothing is deleted.
TEST(UpscalerState, ConstructedRecordReleasesSafely) {
  UpscalerState state{1, 2, 3, 4, 5, 6, 7, 8, 1, 9.0f};
  upscalerConstruct(state);
  EXPECT_EQ(state.naltAttenuation, 0.25f);
  EXPECT_EQ(state.naltEnable, 0);
  upscalerRelease(state);
  const GLuint names[] = {state.tovuProgram,  state.naltProgram,     state.upscaledTexture, state.sharpenedTexture,
                          state.inputTexture, state.readFramebuffer, state.tovuConstants,   state.naltConstants};
  for (GLuint name : names) EXPECT_EQ(name, 0u);
}

}  // namespace
