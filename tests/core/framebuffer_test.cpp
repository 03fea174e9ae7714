// Framebuffers: creation, resolve through post effects against hand-computed values, and image
// files read back with OpenImageIO.
#include <OpenImageIO/deepdata.h>
#include <OpenImageIO/imageio.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>

#include "tests/core/core_test_support.h"

namespace {

using core_test::CoreTest;
using core_test::fails;
using core_test::info;

constexpr uint32_t kWidth = 4, kHeight = 3;
constexpr uint32_t kToneMap = ZVR_POST_EFFECT_TONE_MAP, kWhiteBalance = ZVR_POST_EFFECT_WHITE_BALANCE,
                   kSimpleToneMap = ZVR_POST_EFFECT_SIMPLE_TONEMAP, kNormalize = ZVR_POST_EFFECT_NORMALIZATION,
                   kGamma = ZVR_POST_EFFECT_GAMMA_CORRECTION, kBloom = ZVR_POST_EFFECT_BLOOM;

ZvrFrameBuffer makeFrameBuffer(ZvrContext context, uint32_t componentType = ZVR_COMPONENT_TYPE_FLOAT32) {
  return core_test::makeFrameBuffer(context, kWidth, kHeight, componentType);
}

// Three iterations of the test plug-in with two visible shapes and a field of view of 0.5 leave
// the sums (0+1+2, 3*2, 3*0.5, 3) = (3, 6, 1.5, 3) in every pixel.
ZvrFrameBuffer renderedFrameBuffer(ZvrContext context) {
  core_test::makeScene(context, 2, 0.5f);
  ZvrFrameBuffer fb = makeFrameBuffer(context);
  EXPECT_EQ(zvrContextSetAOV(context, 0, fb), ZVR_SUCCESS);
  EXPECT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 3), ZVR_SUCCESS);
  EXPECT_EQ(zvrContextRender(context), ZVR_SUCCESS) << lastError(context);
  return fb;
}

using Parameters = std::vector<std::pair<const char*, float>>;

ZvrPostEffect attach(ZvrContext context, uint32_t type, const Parameters& parameters = {}) {
  ZvrPostEffect effect = nullptr;
  EXPECT_EQ(zvrContextCreatePostEffect(context, type, &effect), ZVR_SUCCESS);
  for (const auto& [name, value] : parameters) EXPECT_EQ(zvrPostEffectSetParameter1f(effect, name, value), ZVR_SUCCESS) << name;
  EXPECT_EQ(zvrContextAttachPostEffect(context, effect), ZVR_SUCCESS);
  return effect;
}

float aces(float x) { return std::min(1.0f, (x * (2.51f * x + 0.03f)) / (x * (2.43f * x + 0.59f) + 0.14f)); }
float encode(float x) { return std::pow(x, 1.0f / 2.2f); }

// Sizes and the bytes read back are checked by every test that reads pixels.
TEST_F(CoreTest, FrameBufferCreationChecksTypeComponentsSizeAndLpe) {
  const std::tuple<ZvrFramebufferFormat, ZvrFramebufferDesc, ZvrStatus> cases[] = {
      {{4, 3}, {8, 8}, ZVR_SUCCESS}, {{4, 5}, {8, 8}, ZVR_SUCCESS}, {{4, 1}, {8, 8}, ZVR_ERROR_INVALID_ARGUMENT},
      {{4, 2}, {8, 8}, ZVR_ERROR_INVALID_ARGUMENT}, {{3, 3}, {8, 8}, ZVR_ERROR_INVALID_ARGUMENT},
      {{4, 3}, {0, 8}, ZVR_ERROR_INVALID_ARGUMENT}, {{4, 3}, {8, 100000}, ZVR_ERROR_INVALID_ARGUMENT},
  };
  for (const auto& [format, desc, status] : cases) {
    ZvrFrameBuffer fb = nullptr;
    EXPECT_EQ(zvrContextCreateFrameBuffer(context, format, &desc, &fb), status)
        << format.numComponents << " " << format.componentType << " " << desc.width << " x " << desc.height;
  }
  ZvrFrameBuffer fb = makeFrameBuffer(context);
  ASSERT_EQ(zvrFrameBufferSetLPE(fb, "C<RD>L"), ZVR_SUCCESS);
  // A malformed expression is refused where it enters and the framebuffer keeps the one it had.
  EXPECT_TRUE(fails(zvrFrameBufferSetLPE(fb, "C(D"), ZVR_ERROR_INVALID_ARGUMENT, context,
                    "zvrFrameBufferSetLPE: lpe: unexpected end at 4 in \"C(D\""));
  EXPECT_STREQ(info<core_test::Text>(zvrFrameBufferGetInfo, fb, ZVR_FRAMEBUFFER_LPE).data(), "C<RD>L");
  float small[4];
  EXPECT_EQ(zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_DATA, sizeof small, small, nullptr), ZVR_ERROR_INVALID_SIZE);
  EXPECT_EQ(zvrFrameBufferGetInfo(fb, 0x9999, 4, small, nullptr), ZVR_ERROR_UNKNOWN_KEY);
}

TEST_F(CoreTest, ResolveRunsAttachedEffectsInOrder) {
  struct Case {
    const char* name;
    std::vector<std::pair<uint32_t, Parameters>> effects;
    uint32_t dataOnly;
    float expected[4];
    uint32_t content;
  };
  const uint32_t linear = ZVR_FRAMEBUFFER_CONTENT_LINEAR, display = ZVR_FRAMEBUFFER_CONTENT_DISPLAY;
  const Case cases[] = {
      {"nothing attached copies", {}, 0, {3, 6, 1.5f, 3}, linear},
      {"normalization", {{kNormalize, {}}}, 0, {1, 2, 0.5f, 1}, linear},
      {"normalization then gamma", {{kNormalize, {}}, {kGamma, {}}}, 0, {1, encode(2), encode(0.5f), 1}, display},
      {"gamma then normalization", {{kGamma, {}}, {kNormalize, {}}}, 0, {encode(3) / 3, encode(6) / 3, encode(1.5f) / 3, 1}, display},
      {"data runs normalization only", {{kNormalize, {}}, {kGamma, {}}, {kToneMap, {}}}, 1, {1, 2, 0.5f, 1},
       ZVR_FRAMEBUFFER_CONTENT_DATA},
      {"filmic tone map", {{kNormalize, {}}, {kToneMap, {{"exposure", 1}}}}, 0, {aces(2), aces(4), aces(1), 1}, linear},
      {"simple tone map", {{kNormalize, {}}, {kSimpleToneMap, {{"exposure", 0}, {"contrast", 2}}}}, 0, {0.5f, 0.8f, 0.2f, 1}, linear},
      {"white balance at the reference white", {{kNormalize, {}}, {kWhiteBalance, {{"temperature", 6500}}}}, 0, {1, 2, 0.5f, 1}, linear},
      {"bloom of what exceeds the threshold", {{kNormalize, {}}, {kBloom, {{"threshold", 1.5f}, {"radius", 2}, {"weight", 0.5f}}}}, 0,
       {1, 2.25f, 0.5f, 1}, linear},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScopedContext local({core_test::testPluginId()});
    ZvrFrameBuffer source = renderedFrameBuffer(local), destination = makeFrameBuffer(local);
    for (const auto& [type, parameters] : c.effects) attach(local, type, parameters);
    ASSERT_EQ(zvrContextResolveFrameBuffer(local, source, destination, c.dataOnly), ZVR_SUCCESS) << lastError(local);
    const std::vector<float> pixels = core_test::readPixels(destination);
    for (size_t p = 0; p < pixels.size(); p += 4)
      for (int i = 0; i < 4; ++i) ASSERT_NEAR(pixels[p + i], c.expected[i], 1e-5f) << "pixel " << p / 4 << " channel " << i;
    EXPECT_EQ(info<uint32_t>(zvrFrameBufferGetInfo, destination, ZVR_FRAMEBUFFER_CONTENT), c.content);
    EXPECT_EQ(info<uint32_t>(zvrFrameBufferGetInfo, destination, ZVR_FRAMEBUFFER_ITERATIONS), 3u);
    EXPECT_EQ(core_test::readPixels(source)[0], 3) << "the source is left as it was";
  }
  ZvrFrameBuffer source = renderedFrameBuffer(context), destination = makeFrameBuffer(context);
  attach(context, kNormalize);
  attach(context, kWhiteBalance, {{"temperature", 3000}});
  ASSERT_EQ(zvrContextResolveFrameBuffer(context, source, destination, 0), ZVR_SUCCESS);
  const std::vector<float> warm = core_test::readPixels(destination);
  EXPECT_LT(warm[0], 1.0f) << "red of a 3000 K light is reduced";
  EXPECT_FLOAT_EQ(warm[1], 2.0f) << "green is the reference";
  EXPECT_GT(warm[2], 0.5f) << "blue is raised";
}

// The order of attached effects shows in the resolve's results above.
TEST_F(CoreTest, PostEffectsAttachOnceAndCheckParameterNames) {
  std::vector<ZvrPostEffect> effects(kBloom + 1);
  for (uint32_t type = kToneMap; type <= kBloom; ++type) effects[type] = attach(context, type);
  EXPECT_EQ(zvrContextCreatePostEffect(context, kBloom + 1, &effects[0]), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrContextAttachPostEffect(context, effects[kNormalize]), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrContextDetachPostEffect(context, effects[kToneMap]), ZVR_SUCCESS);
  EXPECT_EQ(zvrContextDetachPostEffect(context, effects[kToneMap]), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrObjectDelete(effects[kWhiteBalance]), ZVR_SUCCESS);
  uint32_t count = 0;
  ASSERT_EQ(zvrContextGetAttachedPostEffectCount(context, &count), ZVR_SUCCESS);
  EXPECT_EQ(count, 4u) << "a detached and a deleted effect are gone";
  ZvrPostEffect second = nullptr;
  ASSERT_EQ(zvrContextGetAttachedPostEffect(context, 1, &second), ZVR_SUCCESS);
  EXPECT_EQ(info<uint32_t>(zvrPostEffectGetInfo, second, ZVR_POST_EFFECT_TYPE), kNormalize);
  EXPECT_EQ(zvrContextGetAttachedPostEffect(context, 4, &second), ZVR_ERROR_INVALID_ARGUMENT);
  const std::tuple<uint32_t, const char*, ZvrStatus> parameters[] = {
      {kToneMap, "contrast", ZVR_ERROR_UNKNOWN_KEY}, {kSimpleToneMap, "contrast", ZVR_SUCCESS},
      {kNormalize, "exposure", ZVR_ERROR_UNKNOWN_KEY}, {kGamma, "gamma", ZVR_ERROR_UNKNOWN_KEY},
  };
  for (const auto& [type, name, status] : parameters)
    EXPECT_EQ(zvrPostEffectSetParameter1f(effects[type], name, 2000), status) << type << " " << name;
  EXPECT_EQ(lastError(context), "zvrPostEffectSetParameter1f: gammacorrection post effect has no parameter \"gamma\"");
  // A radius past 2^30 pixels overflowed the kernel width.
  for (float radius : {-1.0f, 4097.0f, 1e30f, INFINITY})
    EXPECT_TRUE(fails(zvrPostEffectSetParameter1f(effects[kBloom], "radius", radius), ZVR_ERROR_INVALID_ARGUMENT, context, "radius"))
        << radius;
}

// The stored type, the channel names and the first pixel of a file, as OpenImageIO reads it back.
std::tuple<OIIO::TypeDesc::BASETYPE, std::vector<std::string>, std::vector<float>> readBack(const std::string& path, bool bytes) {
  auto input = OIIO::ImageInput::open(path);
  if (!input) return {};
  const OIIO::ImageSpec& spec = input->spec();
  std::vector<float> pixels(size_t(spec.width) * spec.height * spec.nchannels);
  std::vector<unsigned char> raw(pixels.size());
  EXPECT_TRUE(bytes ? input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::UINT8, raw.data())
                    : input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, pixels.data()));
  if (bytes) std::copy(raw.begin(), raw.end(), pixels.begin());
  pixels.resize(spec.nchannels);
  return {OIIO::TypeDesc::BASETYPE(spec.format.basetype), spec.channelnames, pixels};
}

// 8-bit files encode by the content kind; float files keep the values, EXR in half unless the
// context asks for float32; a multilayer EXR names its layers after the framebuffers and doubles
// the first as the default layer. A failed save leaves no file behind.
TEST_F(CoreTest, SavedFilesHoldTheValuesInTheirFormat) {
  ZvrFrameBuffer source = renderedFrameBuffer(context);
  ZvrFrameBuffer linear = makeFrameBuffer(context), display = makeFrameBuffer(context), data = makeFrameBuffer(context);
  attach(context, kNormalize);
  ASSERT_EQ(zvrContextResolveFrameBuffer(context, source, linear, 0), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextResolveFrameBuffer(context, source, data, 1), ZVR_SUCCESS);
  attach(context, kGamma);
  ASSERT_EQ(zvrContextResolveFrameBuffer(context, source, display, 0), ZVR_SUCCESS);
  const float half = std::round(encode(0.5f) * 255);
  using OIIO::TypeDesc;
  const std::tuple<ZvrFrameBuffer, const char*, uint32_t, TypeDesc::BASETYPE, std::vector<float>> cases[] = {
      {linear, "linear.png", 0, TypeDesc::UINT8, {255, 255, half, 255}}, {display, "display.png", 0, TypeDesc::UINT8, {255, 255, half, 255}},
      {data, "data.png", 0, TypeDesc::UINT8, {255, 255, 128, 255}}, {data, "data.bmp", 0, TypeDesc::UINT8, {255, 255, 128}},
      {source, "half.exr", 0, TypeDesc::HALF, {3, 6, 1.5f, 3}}, {source, "float.exr", 1, TypeDesc::FLOAT, {3, 6, 1.5f, 3}},
      {source, "image.hdr", 0, TypeDesc::FLOAT, {3, 6, 1.5f}}, {source, "image.tif", 0, TypeDesc::FLOAT, {3, 6, 1.5f, 3}},
  };
  for (const auto& [fb, file, float32, stored, first] : cases) {
    ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_FRAMEBUFFER_SAVE_FLOAT32, float32), ZVR_SUCCESS);
    ASSERT_EQ(zvrFrameBufferSaveToFile(fb, (folder + "/" + file).c_str()), ZVR_SUCCESS) << lastError(context);
    const auto [type, names, pixel] = readBack(folder + "/" + file, stored == TypeDesc::UINT8);
    EXPECT_EQ(type, stored) << file;
    EXPECT_EQ(pixel, first) << file;
  }
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_FRAMEBUFFER_SAVE_FLOAT32, 0), ZVR_SUCCESS);
  ASSERT_EQ(zvrObjectSetName(source, "color"), ZVR_SUCCESS);
  ASSERT_EQ(zvrObjectSetName(data, "depth"), ZVR_SUCCESS);
  const ZvrFrameBuffer list[] = {source, data};
  ASSERT_EQ(zvrFrameBufferSaveToFileEx(list, 2, (folder + "/layers.exr").c_str(), nullptr), ZVR_SUCCESS) << lastError(context);
  const auto [type, names, pixel] = readBack(folder + "/layers.exr", false);
  EXPECT_EQ(type, TypeDesc::HALF);
  EXPECT_EQ(names, (std::vector<std::string>{"R", "G", "B", "A", "color.R", "color.G", "color.B", "color.A", "depth.R", "depth.G",
                                             "depth.B", "depth.A"}));
  EXPECT_EQ(pixel, (std::vector<float>{3, 6, 1.5f, 3, 3, 6, 1.5f, 3, 1, 2, 0.5f, 1}));
  ASSERT_EQ(zvrObjectSetName(data, "color"), ZVR_SUCCESS);
  EXPECT_EQ(zvrFrameBufferSaveToFileEx(list, 2, (folder + "/twice.exr").c_str(), nullptr), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrFrameBufferSaveToFileEx(list, 2, (folder + "/layers.png").c_str(), nullptr), ZVR_ERROR_IO);

  using Entries = std::set<std::filesystem::path>;
  const Entries written(std::filesystem::directory_iterator(folder), {});
  ASSERT_EQ(mkdir((folder + "/taken.png").c_str(), 0755), 0);
  // The last is written to a temporary name, then the rename fails.
  for (const std::string& path : {folder + "/image.xyz", folder + "/no/such/folder/image.png", folder + "/taken.png"}) {
    EXPECT_TRUE(fails(zvrFrameBufferSaveToFile(source, path.c_str()), ZVR_ERROR_IO, context, path));
    Entries now(std::filesystem::directory_iterator(folder), {});
    now.erase(folder + "/taken.png");
    EXPECT_EQ(now, written) << path;
  }
  EXPECT_EQ(zvrFrameBufferSaveToFile(source, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
}

TEST_F(CoreTest, DeepFramebuffersWriteDepthSortedSamples) {
  const std::string path = folder + "/deep.exr";
  core_test::makeScene(context, 1, 0.5f);
  ZvrFrameBuffer deep = makeFrameBuffer(context, ZVR_COMPONENT_TYPE_DEEP);
  EXPECT_TRUE(fails(zvrFrameBufferSaveToFile(deep, path.c_str()), ZVR_ERROR_UNSUPPORTED, context, "no depth samples"))
      << "a deep framebuffer that never received samples has nothing to write";
  ASSERT_EQ(zvrContextSetAOV(context, 0, makeFrameBuffer(context)), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetAOV(context, 64, deep), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 3), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextRender(context), ZVR_SUCCESS) << lastError(context);
  ASSERT_EQ(zvrFrameBufferSaveToFile(deep, path.c_str()), ZVR_SUCCESS) << lastError(context);

  auto input = OIIO::ImageInput::open(path);
  OIIO::DeepData samples;
  ASSERT_TRUE(input && input->read_native_deep_image(0, 0, samples));
  const OIIO::ImageSpec& spec = input->spec();
  const int r = spec.channelindex("R"), g = spec.channelindex("G"), a = spec.channelindex("A"), z = spec.channelindex("Z");
  EXPECT_EQ(samples.channeltype(r), OIIO::TypeDesc::HALF);
  EXPECT_EQ(samples.channeltype(z), OIIO::TypeDesc::FLOAT);
  // Three iterations at the same two depths fold into two samples a pixel.
  for (int64_t p = 0; p < int64_t(kWidth * kHeight); ++p) ASSERT_EQ(samples.samples(p), 2) << "pixel " << p;
  EXPECT_EQ(samples.deep_value(0, z, 0), 1.0f) << "nearest sample first";
  EXPECT_EQ(samples.deep_value(0, z, 1), 2.0f);
  EXPECT_FLOAT_EQ(samples.deep_value(0, r, 0), 0.5f) << "red sample: its share of the pixel's weight, premultiplied";
  // The far sample gets through only what the near one leaves, so it is divided by that half.
  EXPECT_FLOAT_EQ(samples.deep_value(0, g, 1), 1.0f);
  const float nearAlpha = samples.deep_value(0, a, 0);
  EXPECT_FLOAT_EQ(nearAlpha + (1 - nearAlpha) * samples.deep_value(0, a, 1), 1.0f) << "over gives full coverage";
  ASSERT_EQ(zvrFrameBufferClear(deep), ZVR_SUCCESS);
  EXPECT_EQ(zvrFrameBufferSaveToFile(deep, path.c_str()), ZVR_ERROR_UNSUPPORTED) << "clearing empties the lists";
}

}  // namespace
