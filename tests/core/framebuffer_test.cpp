// Framebuffers: creation, resolve through post effects against hand-computed values, and image
// files read back with OpenImageIO and OpenEXR.
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfDeepFrameBuffer.h>
#include <OpenEXR/ImfDeepScanLineInputFile.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "tests/core/core_test_support.h"

using core_test::ScopedContext;

namespace {

constexpr uint32_t kWidth = 4, kHeight = 3;

ZvrFrameBuffer makeFrameBuffer(ZvrContext context, uint32_t componentType = ZVR_COMPONENT_TYPE_FLOAT32) {
  ZvrFramebufferDesc desc{kWidth, kHeight};
  ZvrFrameBuffer fb = nullptr;
  EXPECT_EQ(zvrContextCreateFrameBuffer(context, {4, componentType}, &desc, &fb), ZVR_SUCCESS);
  return fb;
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

ZvrPostEffect attach(ZvrContext context, uint32_t type, std::vector<std::pair<const char*, float>> parameters = {}) {
  ZvrPostEffect effect = nullptr;
  EXPECT_EQ(zvrContextCreatePostEffect(context, type, &effect), ZVR_SUCCESS);
  for (const auto& [name, value] : parameters) EXPECT_EQ(zvrPostEffectSetParameter1f(effect, name, value), ZVR_SUCCESS) << name;
  EXPECT_EQ(zvrContextAttachPostEffect(context, effect), ZVR_SUCCESS);
  return effect;
}

float aces(float x) { return std::min(1.0f, (x * (2.51f * x + 0.03f)) / (x * (2.43f * x + 0.59f) + 0.14f)); }
float encode(float x, float gamma) { return std::pow(x, 1.0f / gamma); }

class CoreFrameBuffer : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_GE(core_test::testPluginId(), 0); }
  ScopedContext context{ZVR_CREATION_FLAGS_ENABLE_CPU, {core_test::testPluginId()}};
  const std::string folder = core_test::makeTempFolder();
};

TEST_F(CoreFrameBuffer, CreationChecksTypeComponentsAndSize) {
  struct Case {
    ZvrFramebufferFormat format;
    ZvrFramebufferDesc desc;
    ZvrStatus status;
  };
  const Case cases[] = {
      {{4, 3}, {8, 8}, ZVR_SUCCESS},  {{4, 5}, {8, 8}, ZVR_SUCCESS},
      {{4, 1}, {8, 8}, ZVR_ERROR_INVALID_ARGUMENT}, {{4, 2}, {8, 8}, ZVR_ERROR_INVALID_ARGUMENT},
      {{3, 3}, {8, 8}, ZVR_ERROR_INVALID_ARGUMENT}, {{4, 3}, {0, 8}, ZVR_ERROR_INVALID_ARGUMENT},
      {{4, 3}, {8, 100000}, ZVR_ERROR_INVALID_ARGUMENT},
  };
  for (const Case& c : cases) {
    ZvrFrameBuffer fb = nullptr;
    EXPECT_EQ(zvrContextCreateFrameBuffer(context, c.format, &c.desc, &fb), c.status)
        << c.format.numComponents << " " << c.format.componentType << " " << c.desc.width << "x" << c.desc.height;
    if (c.status != ZVR_SUCCESS) continue;
    ZvrFramebufferDesc desc{};
    ZvrFramebufferFormat format{};
    ASSERT_EQ(zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_DESC, sizeof desc, &desc, nullptr), ZVR_SUCCESS);
    ASSERT_EQ(zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_FORMAT, sizeof format, &format, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(desc.width, c.desc.width);
    EXPECT_EQ(format.componentType, c.format.componentType);
    size_t size = 0;
    ASSERT_EQ(zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_DATA, 0, nullptr, &size), ZVR_SUCCESS);
    EXPECT_EQ(size, c.desc.width * c.desc.height * 16u);
  }
  ZvrFrameBuffer fb = makeFrameBuffer(context);
  ASSERT_EQ(zvrFrameBufferSetLPE(fb, "C<RD>L"), ZVR_SUCCESS);
  char lpe[32] = {};
  ASSERT_EQ(zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_LPE, sizeof lpe, lpe, nullptr), ZVR_SUCCESS);
  EXPECT_STREQ(lpe, "C<RD>L");
  // A malformed expression is refused where it enters and the framebuffer keeps the one it had.
  EXPECT_EQ(zvrFrameBufferSetLPE(fb, "C(D"), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(lastError(context), "zvrFrameBufferSetLPE: lpe: unexpected end at 4 in \"C(D\"");
  ASSERT_EQ(zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_LPE, sizeof lpe, lpe, nullptr), ZVR_SUCCESS);
  EXPECT_STREQ(lpe, "C<RD>L");
  std::vector<float> small(4);
  EXPECT_EQ(zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_DATA, 16, small.data(), nullptr), ZVR_ERROR_INVALID_SIZE);
  EXPECT_EQ(zvrFrameBufferGetInfo(fb, 0x9999, 4, small.data(), nullptr), ZVR_ERROR_UNKNOWN_KEY);
}

TEST_F(CoreFrameBuffer, ResolveRunsAttachedEffectsInOrder) {
  const float g = 2.2f;
  struct Case {
    const char* name;
    std::vector<std::pair<uint32_t, std::vector<std::pair<const char*, float>>>> effects;
    uint32_t dataOnly;
    float expected[4];
    uint32_t content;
  };
  const Case cases[] = {
      {"nothing attached copies", {}, 0, {3, 6, 1.5f, 3}, ZVR_FRAMEBUFFER_CONTENT_LINEAR},
      {"normalization", {{3, {}}}, 0, {1, 2, 0.5f, 1}, ZVR_FRAMEBUFFER_CONTENT_LINEAR},
      {"normalization then gamma", {{3, {}}, {4, {}}}, 0, {1, encode(2, g), encode(0.5f, g), 1}, ZVR_FRAMEBUFFER_CONTENT_DISPLAY},
      {"gamma then normalization", {{4, {}}, {3, {}}}, 0,
       {encode(3, g) / 3, encode(6, g) / 3, encode(1.5f, g) / 3, 1}, ZVR_FRAMEBUFFER_CONTENT_DISPLAY},
      {"data runs normalization only", {{3, {}}, {4, {}}, {0, {}}}, 1, {1, 2, 0.5f, 1}, ZVR_FRAMEBUFFER_CONTENT_DATA},
      {"filmic tone map", {{3, {}}, {0, {{"exposure", 1}}}}, 0, {aces(2), aces(4), aces(1), 1}, ZVR_FRAMEBUFFER_CONTENT_LINEAR},
      {"simple tone map", {{3, {}}, {2, {{"exposure", 0}, {"contrast", 2}}}}, 0, {0.5f, 0.8f, 0.2f, 1},
       ZVR_FRAMEBUFFER_CONTENT_LINEAR},
      {"white balance at the reference white", {{3, {}}, {1, {{"temperature", 6500}}}}, 0, {1, 2, 0.5f, 1},
       ZVR_FRAMEBUFFER_CONTENT_LINEAR},
      {"bloom of what exceeds the threshold", {{3, {}}, {5, {{"threshold", 1.5f}, {"radius", 2}, {"weight", 0.5f}}}}, 0,
       {1, 2.25f, 0.5f, 1}, ZVR_FRAMEBUFFER_CONTENT_LINEAR},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScopedContext local(ZVR_CREATION_FLAGS_ENABLE_CPU, {core_test::testPluginId()});
    ZvrFrameBuffer source = renderedFrameBuffer(local);
    ZvrFrameBuffer destination = makeFrameBuffer(local);
    for (const auto& [type, parameters] : c.effects) attach(local, type, parameters);
    ASSERT_EQ(zvrContextResolveFrameBuffer(local, source, destination, c.dataOnly), ZVR_SUCCESS) << lastError(local);
    const std::vector<float> pixels = core_test::readPixels(destination);
    for (size_t p = 0; p < pixels.size(); p += 4)
      for (int i = 0; i < 4; ++i) ASSERT_NEAR(pixels[p + i], c.expected[i], 1e-5f) << "pixel " << p / 4 << " channel " << i;
    uint32_t content = 99, iterations = 0;
    ASSERT_EQ(zvrFrameBufferGetInfo(destination, ZVR_FRAMEBUFFER_CONTENT, 4, &content, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(content, c.content);
    ASSERT_EQ(zvrFrameBufferGetInfo(destination, ZVR_FRAMEBUFFER_ITERATIONS, 4, &iterations, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(iterations, 3u);
    EXPECT_EQ(core_test::readPixels(source)[0], 3) << "the source is left as it was";
  }
}

TEST_F(CoreFrameBuffer, WhiteBalanceCoolsWarmLight) {
  ZvrFrameBuffer source = renderedFrameBuffer(context), destination = makeFrameBuffer(context);
  attach(context, 3);
  attach(context, 1, {{"temperature", 3000}});
  ASSERT_EQ(zvrContextResolveFrameBuffer(context, source, destination, 0), ZVR_SUCCESS);
  const std::vector<float> pixels = core_test::readPixels(destination);
  EXPECT_LT(pixels[0], 1.0f) << "red of a 3000 K light is reduced";
  EXPECT_FLOAT_EQ(pixels[1], 2.0f) << "green is the reference";
  EXPECT_GT(pixels[2], 0.5f) << "blue is raised";
}

TEST_F(CoreFrameBuffer, PostEffectsAttachInOrderAndCheckParameterNames) {
  std::vector<ZvrPostEffect> effects;
  for (uint32_t type = 0; type <= 5; ++type) {
    ZvrPostEffect effect = nullptr;
    ASSERT_EQ(zvrContextCreatePostEffect(context, type, &effect), ZVR_SUCCESS);
    effects.push_back(effect);
  }
  ZvrPostEffect invalid = nullptr;
  EXPECT_EQ(zvrContextCreatePostEffect(context, 6, &invalid), ZVR_ERROR_INVALID_ARGUMENT);
  for (int i : {3, 0, 4}) ASSERT_EQ(zvrContextAttachPostEffect(context, effects[i]), ZVR_SUCCESS);
  EXPECT_EQ(zvrContextAttachPostEffect(context, effects[3]), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrContextDetachPostEffect(context, effects[0]), ZVR_SUCCESS);
  EXPECT_EQ(zvrContextDetachPostEffect(context, effects[0]), ZVR_ERROR_INVALID_ARGUMENT);
  uint32_t count = 0;
  ASSERT_EQ(zvrContextGetAttachedPostEffectCount(context, &count), ZVR_SUCCESS);
  ASSERT_EQ(count, 2u);
  std::vector<uint32_t> types;
  for (uint32_t i = 0; i < count; ++i) {
    ZvrPostEffect effect = nullptr;
    ASSERT_EQ(zvrContextGetAttachedPostEffect(context, i, &effect), ZVR_SUCCESS);
    size_t size = 0;
    ASSERT_EQ(zvrPostEffectGetInfo(effect, ZVR_POST_EFFECT_TYPE, 0, nullptr, &size), ZVR_SUCCESS);
    ASSERT_EQ(size, 4u);
    uint32_t type = 0;
    ASSERT_EQ(zvrPostEffectGetInfo(effect, ZVR_POST_EFFECT_TYPE, size, &type, nullptr), ZVR_SUCCESS);
    types.push_back(type);
  }
  EXPECT_EQ(types, (std::vector<uint32_t>{3, 4}));
  ZvrPostEffect effect = nullptr;
  EXPECT_EQ(zvrContextGetAttachedPostEffect(context, 2, &effect), ZVR_ERROR_INVALID_ARGUMENT);

  struct Parameter {
    uint32_t type;
    const char* name;
    ZvrStatus status;
  };
  const Parameter parameters[] = {
      {0, "exposure", ZVR_SUCCESS},    {0, "contrast", ZVR_ERROR_UNKNOWN_KEY}, {2, "exposure", ZVR_SUCCESS},
      {2, "contrast", ZVR_SUCCESS},    {1, "temperature", ZVR_SUCCESS},       {1, "exposure", ZVR_ERROR_UNKNOWN_KEY},
      {5, "threshold", ZVR_SUCCESS},   {5, "radius", ZVR_SUCCESS},            {5, "weight", ZVR_SUCCESS},
      {3, "exposure", ZVR_ERROR_UNKNOWN_KEY}, {4, "gamma", ZVR_ERROR_UNKNOWN_KEY},
  };
  for (const Parameter& p : parameters)
    EXPECT_EQ(zvrPostEffectSetParameter1f(effects[p.type], p.name, 2000), p.status) << p.type << " " << p.name;
  EXPECT_EQ(lastError(context), "zvrPostEffectSetParameter1f: gammacorrection post effect has no parameter \"gamma\"");
  EXPECT_EQ(zvrPostEffectSetParameter1f(effects[1], "temperature", 500), ZVR_ERROR_INVALID_ARGUMENT);
  // A radius past 2^30 pixels overflowed the kernel width.
  for (float refusedRadius : {-1.0f, 4097.0f, 1e30f, INFINITY})
    EXPECT_EQ(zvrPostEffectSetParameter1f(effects[5], "radius", refusedRadius), ZVR_ERROR_INVALID_ARGUMENT) << refusedRadius;
  EXPECT_NE(lastError(context).find("radius"), std::string::npos) << lastError(context);
  ASSERT_EQ(zvrObjectDelete(effects[3]), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextGetAttachedPostEffectCount(context, &count), ZVR_SUCCESS);
  EXPECT_EQ(count, 1u) << "a deleted effect is detached";
}

std::vector<unsigned char> readBytes(const std::string& path, int* channels) {
  auto input = OIIO::ImageInput::open(path);
  EXPECT_TRUE(input) << path;
  if (!input) return {};
  *channels = input->spec().nchannels;
  std::vector<unsigned char> bytes(size_t(input->spec().width) * input->spec().height * *channels);
  EXPECT_TRUE(input->read_image(0, 0, 0, *channels, OIIO::TypeDesc::UINT8, bytes.data()));
  return bytes;
}

TEST_F(CoreFrameBuffer, EightBitFilesEncodeByContentKind) {
  ZvrFrameBuffer source = renderedFrameBuffer(context);
  ZvrFrameBuffer linear = makeFrameBuffer(context), display = makeFrameBuffer(context), data = makeFrameBuffer(context);
  attach(context, 3);
  ASSERT_EQ(zvrContextResolveFrameBuffer(context, source, linear, 0), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextResolveFrameBuffer(context, source, data, 1), ZVR_SUCCESS);
  attach(context, 4);
  ASSERT_EQ(zvrContextResolveFrameBuffer(context, source, display, 0), ZVR_SUCCESS);
  const unsigned char half = (unsigned char)std::lround(std::pow(0.5f, 1 / 2.2f) * 255);
  struct Case {
    ZvrFrameBuffer fb;
    const char* file;
    std::vector<unsigned char> expected;
  };
  const Case cases[] = {
      {linear, "linear.png", {255, 255, half, 255}},
      {display, "display.png", {255, 255, half, 255}},
      {data, "data.png", {255, 255, 128, 255}},
      {linear, "linear.tga", {255, 255, half, 255}},
      {data, "data.bmp", {255, 255, 128}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string path = folder + "/" + c.file;
    ASSERT_EQ(zvrFrameBufferSaveToFile(c.fb, path.c_str()), ZVR_SUCCESS) << lastError(context);
    int channels = 0;
    const std::vector<unsigned char> bytes = readBytes(path, &channels);
    ASSERT_EQ(size_t(channels), c.expected.size());
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + channels), c.expected);
  }
}

TEST_F(CoreFrameBuffer, FloatFilesKeepValuesAndExrPrecisionFollowsKey406) {
  ZvrFrameBuffer source = renderedFrameBuffer(context);
  struct Case {
    const char* file;
    uint32_t float32;
    OIIO::TypeDesc::BASETYPE stored;
    int channels;
  };
  const Case cases[] = {{"half.exr", 0, OIIO::TypeDesc::HALF, 4}, {"float.exr", 1, OIIO::TypeDesc::FLOAT, 4},
                        {"image.hdr", 0, OIIO::TypeDesc::FLOAT, 3}, {"image.tif", 0, OIIO::TypeDesc::FLOAT, 4},
                        {"image.jpg", 0, OIIO::TypeDesc::UINT8, 3}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_FRAMEBUFFER_SAVE_FLOAT32, c.float32), ZVR_SUCCESS);
    const std::string path = folder + "/" + c.file;
    ASSERT_EQ(zvrFrameBufferSaveToFile(source, path.c_str()), ZVR_SUCCESS) << lastError(context);
    auto input = OIIO::ImageInput::open(path);
    ASSERT_TRUE(input);
    EXPECT_EQ(input->spec().format.basetype, c.stored);
    EXPECT_EQ(input->spec().nchannels, c.channels);
    EXPECT_EQ(input->spec().width, int(kWidth));
    if (c.stored == OIIO::TypeDesc::UINT8) continue;
    std::vector<float> pixels(kWidth * kHeight * c.channels);
    ASSERT_TRUE(input->read_image(0, 0, 0, c.channels, OIIO::TypeDesc::FLOAT, pixels.data()));
    EXPECT_NEAR(pixels[1], 6.0f, 0.05f) << "float files hold the values unencoded";
  }
}

TEST_F(CoreFrameBuffer, MultilayerExrNamesLayersAndDoublesColourAsDefault) {
  ZvrFrameBuffer color = renderedFrameBuffer(context);
  ZvrFrameBuffer depth = makeFrameBuffer(context);
  ASSERT_EQ(zvrObjectSetName(color, "color"), ZVR_SUCCESS);
  ASSERT_EQ(zvrObjectSetName(depth, "depth"), ZVR_SUCCESS);
  const std::string path = folder + "/layers.exr";
  const ZvrFrameBuffer list[] = {color, depth};
  ASSERT_EQ(zvrFrameBufferSaveToFileEx(list, 2, path.c_str(), nullptr), ZVR_SUCCESS) << lastError(context);
  Imf::InputFile file(path.c_str());
  std::set<std::string> channels;
  for (auto it = file.header().channels().begin(); it != file.header().channels().end(); ++it) {
    channels.insert(it.name());
    EXPECT_EQ(it.channel().type, Imf::HALF);
  }
  EXPECT_EQ(channels, (std::set<std::string>{"A", "B", "G", "R", "color.A", "color.B", "color.G", "color.R", "depth.A",
                                              "depth.B", "depth.G", "depth.R"}));
  auto input = OIIO::ImageInput::open(path);
  ASSERT_TRUE(input);
  std::vector<float> pixels(size_t(kWidth) * kHeight * input->spec().nchannels);
  ASSERT_TRUE(input->read_image(0, 0, 0, input->spec().nchannels, OIIO::TypeDesc::FLOAT, pixels.data()));
  const auto& names = input->spec().channelnames;
  const size_t g = std::find(names.begin(), names.end(), "G") - names.begin();
  const size_t colorG = std::find(names.begin(), names.end(), "color.G") - names.begin();
  ASSERT_LT(g, names.size());
  EXPECT_EQ(pixels[g], 6.0f);
  EXPECT_EQ(pixels[colorG], 6.0f);

  ASSERT_EQ(zvrObjectSetName(depth, "color"), ZVR_SUCCESS);
  EXPECT_EQ(zvrFrameBufferSaveToFileEx(list, 2, (folder + "/twice.exr").c_str(), nullptr), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrFrameBufferSaveToFileEx(list, 2, (folder + "/layers.png").c_str(), nullptr), ZVR_ERROR_IO);
}

TEST_F(CoreFrameBuffer, DeepFramebuffersWriteDepthSortedSamples) {
  core_test::makeScene(context, 1, 0.5f);
  ZvrFrameBuffer color = makeFrameBuffer(context), deep = makeFrameBuffer(context, ZVR_COMPONENT_TYPE_DEEP);
  ASSERT_EQ(zvrContextSetAOV(context, 0, color), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetAOV(context, 64, deep), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 3), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextRender(context), ZVR_SUCCESS) << lastError(context);
  const std::string path = folder + "/deep.exr";
  ASSERT_EQ(zvrFrameBufferSaveToFile(deep, path.c_str()), ZVR_SUCCESS) << lastError(context);

  Imf::DeepScanLineInputFile file(path.c_str());
  EXPECT_EQ(file.header().channels().findChannel("R")->type, Imf::HALF);
  EXPECT_EQ(file.header().channels().findChannel("Z")->type, Imf::FLOAT);
  std::vector<unsigned int> counts(kWidth * kHeight);
  Imf::DeepFrameBuffer slices;
  slices.insertSampleCountSlice(Imf::Slice(Imf::UINT, reinterpret_cast<char*>(counts.data()), sizeof(unsigned int),
                                           sizeof(unsigned int) * kWidth));
  const char* names[] = {"R", "G", "A", "Z"};
  std::vector<float> storage[4];
  std::vector<float*> pointers[4];
  for (int c = 0; c < 4; ++c) {
    storage[c].resize(kWidth * kHeight * 2);
    for (size_t p = 0; p < kWidth * kHeight; ++p) pointers[c].push_back(storage[c].data() + p * 2);
    slices.insert(names[c], Imf::DeepSlice(Imf::FLOAT, reinterpret_cast<char*>(pointers[c].data()), sizeof(float*),
                                           sizeof(float*) * kWidth, sizeof(float)));
  }
  file.setFrameBuffer(slices);
  file.readPixelSampleCounts(0, kHeight - 1);
  // Three iterations at the same two depths fold into two samples a pixel.
  ASSERT_EQ(counts, std::vector<unsigned int>(kWidth * kHeight, 2));
  file.readPixels(0, kHeight - 1);
  EXPECT_EQ(storage[3][0], 1.0f) << "nearest sample first";
  EXPECT_EQ(storage[3][1], 2.0f);
  EXPECT_FLOAT_EQ(storage[0][0], 0.5f) << "red sample: its share of the pixel's weight, premultiplied";
  // The far sample gets through only what the near one leaves, so it is divided by that half.
  EXPECT_FLOAT_EQ(storage[1][1], 1.0f);
  EXPECT_FLOAT_EQ(storage[2][0], 0.5f);
  EXPECT_FLOAT_EQ(storage[2][0] + (1 - storage[2][0]) * storage[2][1], 1.0f) << "over gives full coverage";
  ASSERT_EQ(zvrFrameBufferClear(deep), ZVR_SUCCESS);
  EXPECT_EQ(zvrFrameBufferSaveToFile(deep, path.c_str()), ZVR_ERROR_UNSUPPORTED) << "clearing empties the lists";
}

TEST_F(CoreFrameBuffer, FailedSavesLeaveNoFileBehind) {
  ZvrFrameBuffer fb = renderedFrameBuffer(context);
  struct Case {
    std::string path;
    ZvrStatus status;
  };
  const std::string directory = folder + "/taken.png";
  ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
  const Case cases[] = {
      {folder + "/image.xyz", ZVR_ERROR_IO},
      {folder + "/no/such/folder/image.png", ZVR_ERROR_IO},
      {directory, ZVR_ERROR_IO},  // written to a temporary name, then the rename fails
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(zvrFrameBufferSaveToFile(fb, c.path.c_str()), c.status);
    EXPECT_NE(lastError(context).find(c.path), std::string::npos) << lastError(context);
    EXPECT_EQ(core_test::folderEntries(folder), std::vector<std::string>{"taken.png"});
  }
  ZvrFrameBuffer deep = makeFrameBuffer(context, ZVR_COMPONENT_TYPE_DEEP);
  EXPECT_EQ(zvrFrameBufferSaveToFile(deep, (folder + "/deep.exr").c_str()), ZVR_ERROR_UNSUPPORTED)
      << "a deep framebuffer that never received samples has nothing to write";
  EXPECT_NE(lastError(context).find("no depth samples"), std::string::npos) << lastError(context);
  EXPECT_EQ(zvrFrameBufferSaveToFile(fb, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
}

}  // namespace
