// Context keys: types, sizes, ranges and texts; context creation and the debug trace file.
#include <unistd.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <tuple>

#include "tests/core/core_test_support.h"

namespace {

using core_test::CoreTest;
using core_test::fails;
using core_test::info;

float getKey(ZvrContext context, uint32_t key, bool isFloat) {
  return isFloat ? info<float>(zvrContextGetInfo, context, key) : float(info<uint32_t>(zvrContextGetInfo, context, key));
}

TEST_F(CoreTest, WrongTypesSizesUnknownAndReadOnlyKeysAreRefusedWithTheKeyNamed) {
  uint16_t small = 0;
  float four[4] = {};
  const ZvrContext c = context;
  const std::tuple<std::function<ZvrStatus()>, ZvrStatus, const char*> cases[] = {
      {[&] { return zvrContextSetParameterByKey1f(c, ZVR_CONTEXT_ITERATIONS, 1); }, ZVR_ERROR_INVALID_ARGUMENT,
       "key 267 (iterations) takes an unsigned integer (1u), not a float (1f)"},
      {[&] { return zvrContextSetParameterByKey1u(c, ZVR_CONTEXT_DISPLAY_GAMMA, 1); }, ZVR_ERROR_INVALID_ARGUMENT, "takes a float"},
      {[&] { return zvrContextSetParameterByKeyString(c, ZVR_CONTEXT_ITERATIONS, "4"); }, ZVR_ERROR_INVALID_ARGUMENT, "not a text"},
      {[&] { return zvrContextSetParameterByKey1u(c, ZVR_CONTEXT_TILE_SIZE, 8); }, ZVR_ERROR_INVALID_ARGUMENT, "four floats"},
      {[&] { return zvrContextGetInfo(c, ZVR_CONTEXT_MAX_DEPTH, sizeof small, &small, nullptr); }, ZVR_ERROR_INVALID_SIZE,
       "(max depth) needs 4 bytes, the buffer has 2"},
      {[&] { return zvrContextGetInfo(c, ZVR_CONTEXT_TILE_SIZE, 8, four, nullptr); }, ZVR_ERROR_INVALID_SIZE, "tile size"},
      {[&] { return zvrContextSetParameterByKey1u(c, ZVR_CONTEXT_API_VERSION, 1); }, ZVR_ERROR_INVALID_ARGUMENT,
       "(api version) cannot be set"},
      {[&] { return zvrContextSetParameterByKeyString(c, ZVR_CONTEXT_OCIO_CONFIG_PATH, nullptr); }, ZVR_ERROR_INVALID_ARGUMENT, ""},
      {[&] { return zvrContextSetParameterByKey1u(c, 999, 1); }, ZVR_ERROR_UNKNOWN_KEY, "1u: unknown context key 999"},
      {[&] { return zvrContextSetParameterByKeyPtr(c, 999, nullptr); }, ZVR_ERROR_UNKNOWN_KEY, "Ptr: unknown context key 999"},
      {[&] { return zvrContextGetInfo(c, 999, 4, four, nullptr); }, ZVR_ERROR_UNKNOWN_KEY, "GetInfo: unknown context key 999"},
      {[&] { return zvrContextSetParameterByKey1u(nullptr, ZVR_CONTEXT_ITERATIONS, 1); }, ZVR_ERROR_INVALID_OBJECT, "context is null"},
      {[&] { return zvrContextGetInfo(nullptr, ZVR_CONTEXT_ITERATIONS, 4, four, nullptr); }, ZVR_ERROR_INVALID_OBJECT, "context is null"},
  };
  for (const auto& [call, status, words] : cases) EXPECT_TRUE(fails(call(), status, c, words));
}

// A refused value names the range it must be in and leaves the old value in place.
TEST_F(CoreTest, ValuesOutsideTheirRangeAreRefusedAndKeepTheOldValue) {
  const char* kWidth = "must be 0 to 64 pixels";
  const char* kAntialiasing = "must be 1 (antialiased), 0 to 1 (not antialiased, jitter radius 1) or -1";
  const struct {
    uint32_t key;
    bool isFloat;
    float value;
    const char* range;  // empty: accepted
  } cases[] = {
      {ZVR_CONTEXT_ITERATIONS, false, 0, "1 or more"}, {ZVR_CONTEXT_IMAGE_FILTER_TYPE, false, 7, "0 (none) to 6"},
      {ZVR_CONTEXT_RENDER_QUALITY, false, 4, "0 to 3"}, {ZVR_CONTEXT_DISPLAY_GAMMA, true, 0, "greater than 0"},
      {ZVR_CONTEXT_RADIANCE_CLAMP, true, NAN, "out of range"}, {ZVR_CONTEXT_CAUSTICS_REDUCTION, true, 1.5f, "between 0 and 1"},
      {ZVR_CONTEXT_RAY_CAST_EPSILON, true, -1e-3f, "0 or more"},
      {ZVR_CONTEXT_KEY_287, false, ZVR_PREVIEW_BLOCK_MAX + 1, "0 (chosen by the library) to 16"},
      {ZVR_CONTEXT_KEY_287, false, ZVR_PREVIEW_BLOCK_MAX, ""}, {ZVR_CONTEXT_FRAMECOUNT, false, 1, "0 (accumulate) or 2"},
      {ZVR_CONTEXT_CONTOUR_MATERIAL_ID, false, 5, "must be 0 (off) or 1 (on)"},
      {ZVR_CONTEXT_CONTOUR_THRESHOLD_NORMAL, true, 181, "must be 0 to 180 degrees"},
      {ZVR_CONTEXT_CONTOUR_THRESHOLD_NORMAL, true, 180, ""}, {ZVR_CONTEXT_CONTOUR_THRESHOLD_UV, true, -0.5f, "must be 0 or more"},
      {ZVR_CONTEXT_CONTOUR_LINEWIDTH_OBJECT_ID, true, 65, kWidth}, {ZVR_CONTEXT_CONTOUR_LINEWIDTH_NORMAL, true, INFINITY, kWidth},
      {ZVR_CONTEXT_CONTOUR_LINEWIDTH_UV, true, 64, ""}, {ZVR_CONTEXT_CONTOUR_ANTIALIASING, true, -0.5f, kAntialiasing},
      {ZVR_CONTEXT_CONTOUR_ANTIALIASING, true, 1.5f, kAntialiasing}, {ZVR_CONTEXT_CONTOUR_ANTIALIASING, true, 0.5f, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("key " + std::to_string(c.key) + " = " + std::to_string(c.value));
    const float before = getKey(context, c.key, c.isFloat);
    const ZvrStatus status = c.isFloat ? zvrContextSetParameterByKey1f(context, c.key, c.value)
                                       : zvrContextSetParameterByKey1u(context, c.key, uint32_t(c.value));
    if (*c.range == 0) {
      EXPECT_EQ(status, ZVR_SUCCESS) << lastError(context);
      EXPECT_EQ(getKey(context, c.key, c.isFloat), c.value);
      continue;
    }
    EXPECT_TRUE(fails(status, ZVR_ERROR_INVALID_ARGUMENT, context, c.range));
    EXPECT_FLOAT_EQ(getKey(context, c.key, c.isFloat), before);
  }
}

// A configuration's -1 arrives as 4294967295: such a tile overflowed the plug-ins' block count.
TEST_F(CoreTest, TileSizeTakesFourFloatsUpTo65536) {
  ASSERT_EQ(zvrContextSetParameterByKey4f(context, ZVR_CONTEXT_TILE_SIZE, 65536, 16, 0, 0), ZVR_SUCCESS);
  const float refused[][2] = {{4294967295.0f, 32}, {32, 4294967295.0f}, {65537, 1}, {INFINITY, 8}, {-1, 8}, {NAN, 8}};
  for (const auto& size : refused) {
    EXPECT_TRUE(fails(zvrContextSetParameterByKey4f(context, ZVR_CONTEXT_TILE_SIZE, size[0], size[1], 0, 0),
                      ZVR_ERROR_INVALID_ARGUMENT, context, "tile size")) << size[0] << " x " << size[1];
    EXPECT_EQ((info<std::array<float, 4>>(zvrContextGetInfo, context, ZVR_CONTEXT_TILE_SIZE)), (std::array<float, 4>{65536, 16, 0, 0}));
  }
}

TEST_F(CoreTest, NoGpuDeviceAndMemoryCountsFramebuffersAndTheProcess) {
  ScopedContext gpu({core_test::testPluginId()}, ZVR_CREATION_FLAGS_ENABLE_GPU0 | ZVR_CREATION_FLAGS_ENABLE_CPU);
  ASSERT_EQ(gpu.status(), ZVR_SUCCESS) << "GPU flags are accepted and fall back to the CPU";
  EXPECT_TRUE(fails(zvrContextGetInfo(gpu, ZVR_CONTEXT_GPU0_NAME, sizeof(core_test::Text), core_test::Text().data(), nullptr),
                    ZVR_ERROR_UNSUPPORTED, gpu, "no GPU device"));
  using Memory = std::array<uint64_t, 4>;
  const Memory before = info<Memory>(zvrContextGetInfo, context, ZVR_CONTEXT_MEMORY_INFO);
  core_test::makeFrameBuffer(context, 64, 32);
  const Memory after = info<Memory>(zvrContextGetInfo, context, ZVR_CONTEXT_MEMORY_INFO);
  // Four sums per pixel, kept in doubles.
  EXPECT_EQ(after[0] - before[0], 64u * 32u * 4u * sizeof(double));
  EXPECT_GE(after[2], 64u * 32u * 4u * sizeof(double));
  EXPECT_GT(after[1], after[3]);
  EXPECT_GT(after[3], 0u);
}

TEST_F(CoreTest, TextsAreReadInTwoStepsAndTheLastErrorOutlivesSuccesses) {
  const char* ocio = std::getenv("OCIO");
  EXPECT_STREQ(info<core_test::Text>(zvrContextGetInfo, context, ZVR_CONTEXT_OCIO_CONFIG_PATH).data(), ocio ? ocio : "");
  ASSERT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, "/x/config.ocio"), ZVR_SUCCESS);
  size_t size = 0;
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, 0, nullptr, &size), ZVR_SUCCESS);
  EXPECT_EQ(size, sizeof "/x/config.ocio");
  EXPECT_STREQ(info<core_test::Text>(zvrContextGetInfo, context, ZVR_CONTEXT_OCIO_CONFIG_PATH).data(), "/x/config.ocio");
  EXPECT_EQ(lastError(context), "");
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, 4242, 1), ZVR_ERROR_UNKNOWN_KEY);
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 2), ZVR_SUCCESS);
  EXPECT_EQ(lastError(context), "zvrContextSetParameterByKey1u: unknown context key 4242");
  char tooSmall[8];
  EXPECT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, sizeof tooSmall, tooSmall, nullptr), ZVR_ERROR_INVALID_SIZE);
  ASSERT_EQ(zvrContextSetLastError(context, "scene.glb: accessor 7 reads past the end"), ZVR_SUCCESS);
  EXPECT_EQ(lastError(context), "scene.glb: accessor 7 reads past the end");
}

TEST_F(CoreTest, CreationChecksVersionPluginsFlagsAndProperties) {
  const int32_t plugin = core_test::testPluginId(), notRegistered = 9999, twice[] = {plugin, plugin};
  const ZvrContextProperties unknown[] = {777, 1, 0};
  const uint32_t cpu = ZVR_CREATION_FLAGS_ENABLE_CPU;
  // Version, plug-ins and their count, flags, properties; the status and words of the refusal.
  const std::tuple<uint32_t, const int32_t*, size_t, uint32_t, const ZvrContextProperties*, ZvrStatus, const char*> cases[] = {
      {0x300105, &plugin, 1, cpu, nullptr, ZVR_ERROR_INVALID_API_VERSION, "is not this library's"},
      {ZVR_API_VERSION, &plugin, 1, 0x20, nullptr, ZVR_ERROR_INVALID_ARGUMENT, "unknown creation flag"},
      {ZVR_API_VERSION, nullptr, 0, cpu, nullptr, ZVR_ERROR_INVALID_ARGUMENT, "pluginCount is 0"},
      {ZVR_API_VERSION, nullptr, 1, cpu, nullptr, ZVR_ERROR_INVALID_ARGUMENT, "pluginIds is null"},
      {ZVR_API_VERSION, twice, 2, cpu, nullptr, ZVR_ERROR_INVALID_ARGUMENT, "is listed twice"},
      {ZVR_API_VERSION, &plugin, 1, cpu, unknown, ZVR_ERROR_INVALID_ARGUMENT, "unknown creation property 777"},
      {ZVR_API_VERSION, &notRegistered, 1, cpu, nullptr, ZVR_ERROR_NO_PLUGIN, "9999"},
  };
  for (const auto& [version, plugins, count, flags, properties, status, words] : cases) {
    ZvrContext created = nullptr;
    // A failed creation's text is read through any live context.
    EXPECT_TRUE(fails(zvrCreateContext(version, plugins, count, flags, properties, nullptr, &created), status, context, words));
    EXPECT_EQ(lastError(context).rfind("zvrCreateContext: ", 0), 0u) << lastError(context);
    EXPECT_EQ(created, nullptr);
  }
  EXPECT_EQ(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, cpu, nullptr, nullptr, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
  const char* binaryPath = "/nowhere";
  ZvrContextProperties known[16] = {ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT, 3, ZVR_CONTEXT_CREATEPROP_KEY_338, 3,
                                    ZVR_CONTEXT_CREATEPROP_PRECOMPILED_BINARY_PATH, reinterpret_cast<intptr_t>(binaryPath)};
  EXPECT_EQ(ScopedContext({plugin}, cpu, known).status(), ZVR_SUCCESS);
}

TEST_F(CoreTest, DebugFlagTracesToVelderLogInTheWorkingFolder) {
  if (std::getenv("ZVR_TRACE")) GTEST_SKIP() << "ZVR_TRACE overrides the debug trace file";
  char previous[PATH_MAX];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(folder.c_str()), 0);
  {
    ScopedContext debug({core_test::testPluginId()}, ZVR_CREATION_FLAGS_ENABLE_CPU | ZVR_CREATION_FLAGS_ENABLE_DEBUG);
    EXPECT_EQ(info<core_test::Text>(zvrContextGetInfo, debug, ZVR_CONTEXT_API_TRACE_PATH).data(), folder + "/velder.log");
    EXPECT_STREQ(info<core_test::Text>(zvrContextGetInfo, context, ZVR_CONTEXT_API_TRACE_PATH).data(), "") << "no flag, no trace";
  }
  ASSERT_EQ(chdir(previous), 0);
  std::ifstream log(folder + "/velder.log");
  std::string line;
  ASSERT_TRUE(std::getline(log, line));
  EXPECT_EQ(line.rfind("zvrCreateContext(apiVersion=0x300106, ", 0), 0u) << line;
}

}  // namespace
