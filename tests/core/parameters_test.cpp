// Context keys: defaults, round trips, type and size checks, ranges, read-only keys, texts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "tests/core/core_test_support.h"

using core_test::ScopedContext;

namespace {

struct UintKey {
  uint32_t key;
  uint32_t defaultValue;
  uint32_t newValue;
};

const UintKey kUintKeys[] = {
    {ZVR_CONTEXT_ITERATIONS, 1, 4},           {ZVR_CONTEXT_IMAGE_FILTER_TYPE, 3, 6},
    {ZVR_CONTEXT_MAX_DEPTH, 8, 5},            {ZVR_CONTEXT_KEY_287, 0, 1},
    {ZVR_CONTEXT_FRAMECOUNT, 0, 2},           {ZVR_CONTEXT_MAX_DEPTH_DIFFUSE, 8, 3},
    {ZVR_CONTEXT_MAX_DEPTH_GLOSSY, 8, 4},     {ZVR_CONTEXT_MAX_DEPTH_REFRACTION, 8, 2},
    {ZVR_CONTEXT_MAX_DEPTH_REFRACTION_GLOSSY, 8, 1}, {ZVR_CONTEXT_MAX_DEPTH_SHADOW, 8, 0},
    {ZVR_CONTEXT_CONTOUR_OBJECT_ID, 1, 0},    {ZVR_CONTEXT_CONTOUR_MATERIAL_ID, 1, 0},
    {ZVR_CONTEXT_CONTOUR_NORMAL, 1, 0},       {ZVR_CONTEXT_CONTOUR_DEBUG, 0, 1},
    {ZVR_CONTEXT_CONTOUR_UV, 1, 0},           {ZVR_CONTEXT_CONTOUR_UV_SECONDARY, 0, 1},
    {ZVR_CONTEXT_FRAMEBUFFER_SAVE_FLOAT32, 0, 1}, {ZVR_CONTEXT_NORMALIZE_LIGHT_INTENSITY_ENABLED, 0, 1},
    {ZVR_CONTEXT_RENDER_QUALITY, 3, 1},       {ZVR_CONTEXT_OOC_TEXTURE_CACHE, 0, 512},
};

struct FloatKey {
  uint32_t key;
  float defaultValue;
  float newValue;
};

const FloatKey kFloatKeys[] = {
    {ZVR_CONTEXT_RAY_CAST_EPSILON, 1e-4f, 1e-3f},         {ZVR_CONTEXT_RADIANCE_CLAMP, FLT_MAX, 10.0f},
    {ZVR_CONTEXT_TEXTURE_GAMMA, 1.0f, 2.2f},              {ZVR_CONTEXT_DISPLAY_GAMMA, 2.2f, 1.8f},
    {ZVR_CONTEXT_MIPMAP_LOD_OFFSET, 0.0f, -0.5f},         {ZVR_CONTEXT_CONTOUR_THRESHOLD_NORMAL, 45.0f, 30.0f},
    {ZVR_CONTEXT_CONTOUR_LINEWIDTH_OBJECT_ID, 1.0f, 2.0f}, {ZVR_CONTEXT_CONTOUR_LINEWIDTH_MATERIAL_ID, 1.0f, 3.0f},
    {ZVR_CONTEXT_CONTOUR_LINEWIDTH_NORMAL, 1.0f, 1.5f},   {ZVR_CONTEXT_CONTOUR_ANTIALIASING, 1.0f, -1.0f},
    {ZVR_CONTEXT_CAUSTICS_REDUCTION, 1.0f, 0.25f},        {ZVR_CONTEXT_GPU_MEMORY_LIMIT, 1.0f, 0.5f},
    {ZVR_CONTEXT_CONTOUR_THRESHOLD_UV, 1.0f, 0.2f},       {ZVR_CONTEXT_CONTOUR_LINEWIDTH_UV, 1.0f, 4.0f},
    {ZVR_CONTEXT_IMAGE_FILTER_RADIUS, 1.5f, 2.0f},
};

std::string keyText(uint32_t key) { return "key " + std::to_string(key); }

TEST(CoreParameters, UnsignedKeysHaveDefaultsRoundTripAndRefuseWrongTypesAndSizes) {
  ScopedContext context;
  ASSERT_EQ(context.status(), ZVR_SUCCESS);
  for (const UintKey& k : kUintKeys) {
    SCOPED_TRACE(keyText(k.key));
    size_t size = 0;
    ASSERT_EQ(zvrContextGetInfo(context, k.key, 0, nullptr, &size), ZVR_SUCCESS);
    EXPECT_EQ(size, 4u);
    uint32_t value = 12345;
    ASSERT_EQ(zvrContextGetInfo(context, k.key, 4, &value, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(value, k.defaultValue);
    ASSERT_EQ(zvrContextSetParameterByKey1u(context, k.key, k.newValue), ZVR_SUCCESS);
    ASSERT_EQ(zvrContextGetInfo(context, k.key, 4, &value, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(value, k.newValue);

    EXPECT_EQ(zvrContextSetParameterByKey1f(context, k.key, 1.0f), ZVR_ERROR_INVALID_ARGUMENT);
    EXPECT_NE(lastError(context).find(keyText(k.key)), std::string::npos) << lastError(context);
    EXPECT_NE(lastError(context).find("unsigned integer"), std::string::npos) << lastError(context);
    uint16_t small;
    EXPECT_EQ(zvrContextGetInfo(context, k.key, sizeof small, &small, nullptr), ZVR_ERROR_INVALID_SIZE);
    EXPECT_NE(lastError(context).find(keyText(k.key) + " ("), std::string::npos) << lastError(context);
    EXPECT_NE(lastError(context).find("needs 4 bytes"), std::string::npos) << lastError(context);
  }
}

TEST(CoreParameters, FloatKeysHaveDefaultsRoundTripAndRefuseWrongTypesAndSizes) {
  ScopedContext context;
  for (const FloatKey& k : kFloatKeys) {
    SCOPED_TRACE(keyText(k.key));
    float value = -7;
    ASSERT_EQ(zvrContextGetInfo(context, k.key, 4, &value, nullptr), ZVR_SUCCESS);
    EXPECT_FLOAT_EQ(value, k.defaultValue);
    ASSERT_EQ(zvrContextSetParameterByKey1f(context, k.key, k.newValue), ZVR_SUCCESS);
    ASSERT_EQ(zvrContextGetInfo(context, k.key, 4, &value, nullptr), ZVR_SUCCESS);
    EXPECT_FLOAT_EQ(value, k.newValue);
    EXPECT_EQ(zvrContextSetParameterByKey1u(context, k.key, 1), ZVR_ERROR_INVALID_ARGUMENT);
    EXPECT_NE(lastError(context).find("a float"), std::string::npos) << lastError(context);
    EXPECT_EQ(zvrContextGetInfo(context, k.key, 3, &value, nullptr), ZVR_ERROR_INVALID_SIZE);
    EXPECT_NE(lastError(context).find(keyText(k.key)), std::string::npos);
  }
}

TEST(CoreParameters, OutOfRangeValuesAreRefusedAndLeaveTheOldValue) {
  struct Case {
    uint32_t key;
    bool isFloat;
    float value;
  };
  const Case cases[] = {
      {ZVR_CONTEXT_ITERATIONS, false, 0},          {ZVR_CONTEXT_IMAGE_FILTER_TYPE, false, 7},
      {ZVR_CONTEXT_RENDER_QUALITY, false, 4},      {ZVR_CONTEXT_DISPLAY_GAMMA, true, 0},
      {ZVR_CONTEXT_TEXTURE_GAMMA, true, -1},       {ZVR_CONTEXT_RADIANCE_CLAMP, true, NAN},
      {ZVR_CONTEXT_CAUSTICS_REDUCTION, true, 1.5f}, {ZVR_CONTEXT_IMAGE_FILTER_RADIUS, true, 0},
      {ZVR_CONTEXT_RAY_CAST_EPSILON, true, -1e-3f},
  };
  ScopedContext context;
  for (const Case& c : cases) {
    SCOPED_TRACE(keyText(c.key));
    uint32_t before = 0, after = 0;
    ASSERT_EQ(zvrContextGetInfo(context, c.key, 4, &before, nullptr), ZVR_SUCCESS);
    ZvrStatus status = c.isFloat ? zvrContextSetParameterByKey1f(context, c.key, c.value)
                                 : zvrContextSetParameterByKey1u(context, c.key, uint32_t(c.value));
    EXPECT_EQ(status, ZVR_ERROR_INVALID_ARGUMENT);
    EXPECT_NE(lastError(context).find("out of range"), std::string::npos) << lastError(context);
    ASSERT_EQ(zvrContextGetInfo(context, c.key, 4, &after, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(before, after);
  }
}

TEST(CoreParameters, ContourKeysRefuseValuesOutsideTheirRangeAndNameIt) {
  struct Case {
    uint32_t key;
    bool isFloat;
    float value;
    const char* range;  // empty: accepted
  };
  const char* kSwitch = "must be 0 (off) or 1 (on)";
  const char* kWidth = "must be 0 to 64 pixels";
  const char* kAntialiasing = "must be 1 (antialiased), 0 to 1 (not antialiased, jitter radius 1) or -1";
  const Case cases[] = {
      {ZVR_CONTEXT_CONTOUR_OBJECT_ID, false, 2, kSwitch},       {ZVR_CONTEXT_CONTOUR_MATERIAL_ID, false, 5, kSwitch},
      {ZVR_CONTEXT_CONTOUR_NORMAL, false, 2, kSwitch},          {ZVR_CONTEXT_CONTOUR_UV, false, 3, kSwitch},
      {ZVR_CONTEXT_CONTOUR_UV_SECONDARY, false, 2, kSwitch},    {ZVR_CONTEXT_CONTOUR_DEBUG, false, 7, kSwitch},
      {ZVR_CONTEXT_CONTOUR_THRESHOLD_NORMAL, true, 181, "must be 0 to 180 degrees"},
      {ZVR_CONTEXT_CONTOUR_THRESHOLD_NORMAL, true, 180, ""},
      {ZVR_CONTEXT_CONTOUR_THRESHOLD_UV, true, -0.5f, "must be 0 or more"},
      {ZVR_CONTEXT_CONTOUR_LINEWIDTH_OBJECT_ID, true, 65, kWidth}, {ZVR_CONTEXT_CONTOUR_LINEWIDTH_MATERIAL_ID, true, -1, kWidth},
      {ZVR_CONTEXT_CONTOUR_LINEWIDTH_NORMAL, true, INFINITY, kWidth}, {ZVR_CONTEXT_CONTOUR_LINEWIDTH_UV, true, 64, ""},
      {ZVR_CONTEXT_CONTOUR_ANTIALIASING, true, -0.5f, kAntialiasing}, {ZVR_CONTEXT_CONTOUR_ANTIALIASING, true, 1.5f, kAntialiasing},
      {ZVR_CONTEXT_CONTOUR_ANTIALIASING, true, 0, ""},           {ZVR_CONTEXT_CONTOUR_ANTIALIASING, true, 0.5f, ""},
  };
  ScopedContext context;
  for (const Case& c : cases) {
    SCOPED_TRACE(keyText(c.key) + " = " + std::to_string(c.value));
    const ZvrStatus status = c.isFloat ? zvrContextSetParameterByKey1f(context, c.key, c.value)
                                       : zvrContextSetParameterByKey1u(context, c.key, uint32_t(c.value));
    float readFloat = 0;
    uint32_t readUint = 0;
    ASSERT_EQ(zvrContextGetInfo(context, c.key, 4, c.isFloat ? static_cast<void*>(&readFloat) : &readUint, nullptr),
              ZVR_SUCCESS);
    if (*c.range == 0) {
      EXPECT_EQ(status, ZVR_SUCCESS) << lastError(context);
      EXPECT_EQ(c.isFloat ? readFloat : float(readUint), c.value);
      continue;
    }
    EXPECT_EQ(status, ZVR_ERROR_INVALID_ARGUMENT);
    EXPECT_NE(lastError(context).find(c.range), std::string::npos) << lastError(context);
    EXPECT_NE(c.isFloat ? readFloat : float(readUint), c.value) << "a refused value is not stored";
  }
}

TEST(CoreParameters, UnknownKeysAndNullContextsFailWithTheirOwnStatus) {
  ScopedContext context;
  const uint32_t unknown = 999;
  struct Call {
    const char* name;
    ZvrStatus (*call)(ZvrContext, uint32_t);
  };
  const Call calls[] = {
      {"1u", [](ZvrContext c, uint32_t k) { return zvrContextSetParameterByKey1u(c, k, 1); }},
      {"1f", [](ZvrContext c, uint32_t k) { return zvrContextSetParameterByKey1f(c, k, 1); }},
      {"4f", [](ZvrContext c, uint32_t k) { return zvrContextSetParameterByKey4f(c, k, 1, 1, 0, 0); }},
      {"ptr", [](ZvrContext c, uint32_t k) { return zvrContextSetParameterByKeyPtr(c, k, nullptr); }},
      {"string", [](ZvrContext c, uint32_t k) { return zvrContextSetParameterByKeyString(c, k, "x"); }},
      {"get", [](ZvrContext c, uint32_t k) {
         uint32_t v;
         return zvrContextGetInfo(c, k, 4, &v, nullptr);
       }},
  };
  for (const Call& call : calls) {
    SCOPED_TRACE(call.name);
    EXPECT_EQ(call.call(context, unknown), ZVR_ERROR_UNKNOWN_KEY);
    EXPECT_NE(lastError(context).find("unknown context key 999"), std::string::npos) << lastError(context);
    EXPECT_EQ(call.call(nullptr, ZVR_CONTEXT_ITERATIONS), ZVR_ERROR_INVALID_OBJECT);
    EXPECT_NE(lastError(context).find("context is null"), std::string::npos) << lastError(context);
  }
}

TEST(CoreParameters, ReadOnlyKeysRefuseSetters) {
  ScopedContext context;
  for (uint32_t key : {ZVR_CONTEXT_API_VERSION, ZVR_CONTEXT_LAST_ERROR_MESSAGE, ZVR_CONTEXT_MEMORY_INFO,
                       ZVR_CONTEXT_PLUGIN_VERSION, ZVR_CONTEXT_LIST_CREATED_SHAPES}) {
    SCOPED_TRACE(keyText(key));
    ZvrStatus status = zvrContextSetParameterByKey1u(context, key, 1);
    EXPECT_TRUE(status == ZVR_ERROR_INVALID_ARGUMENT || status == ZVR_ERROR_UNKNOWN_KEY) << status;
    EXPECT_NE(lastError(context).find(std::to_string(key)), std::string::npos) << lastError(context);
  }
}

TEST(CoreParameters, TileSizeTakesFourFloats) {
  ScopedContext context;
  ASSERT_EQ(zvrContextSetParameterByKey4f(context, ZVR_CONTEXT_TILE_SIZE, 32, 16, 0, 0), ZVR_SUCCESS);
  float tile[4] = {};
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_TILE_SIZE, sizeof tile, tile, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(tile[0], 32);
  EXPECT_EQ(tile[1], 16);
  EXPECT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_TILE_SIZE, 8), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(lastError(context).find("four floats"), std::string::npos);
  EXPECT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_TILE_SIZE, 8, tile, nullptr), ZVR_ERROR_INVALID_SIZE);
}

// A configuration's -1 arrives as 4294967295: such a tile overflowed the plug-ins' block count.
TEST(CoreParameters, TileSizesBeyondAnyImageAreRefusedAndKeepTheOldSize) {
  const float refused[][2] = {{4294967295.0f, 32}, {32, 4294967295.0f}, {65537, 1}, {INFINITY, 8}, {-1, 8}, {NAN, 8}};
  ScopedContext context;
  ASSERT_EQ(zvrContextSetParameterByKey4f(context, ZVR_CONTEXT_TILE_SIZE, 65536, 0, 0, 0), ZVR_SUCCESS);
  for (const auto& size : refused) {
    SCOPED_TRACE(std::to_string(size[0]) + " x " + std::to_string(size[1]));
    EXPECT_EQ(zvrContextSetParameterByKey4f(context, ZVR_CONTEXT_TILE_SIZE, size[0], size[1], 0, 0),
              ZVR_ERROR_INVALID_ARGUMENT);
    EXPECT_NE(lastError(context).find("tile size"), std::string::npos) << lastError(context);
    float tile[4] = {};
    ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_TILE_SIZE, sizeof tile, tile, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(tile[0], 65536);
    EXPECT_EQ(tile[1], 0);
  }
}

TEST(CoreParameters, VersionsAndDevices) {
  ScopedContext context(ZVR_CREATION_FLAGS_ENABLE_GPU0 | ZVR_CREATION_FLAGS_ENABLE_CPU);
  ASSERT_EQ(context.status(), ZVR_SUCCESS) << "GPU flags are accepted and fall back to the CPU";
  uint32_t version = 0;
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_API_VERSION, 4, &version, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(version, uint32_t(ZVR_API_VERSION));
  uint64_t minor = 0;
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_API_VERSION_MINOR, 8, &minor, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(minor, ZVR_API_VERSION_MINOR);
  for (uint32_t key : {295u, 296u, 297u, 298u, 300u, 301u, 302u, 303u, 322u, 323u, 324u, 325u}) {
    char name[1024] = {};
    EXPECT_EQ(zvrContextGetInfo(context, key, sizeof name, name, nullptr), ZVR_ERROR_UNSUPPORTED) << key;
    EXPECT_NE(lastError(context).find("no GPU device"), std::string::npos);
  }
}

TEST(CoreParameters, MemoryInfoCountsFramebuffersAndTheProcess) {
  ScopedContext context;
  uint64_t before[4] = {}, after[4] = {};
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_MEMORY_INFO, sizeof before, before, nullptr), ZVR_SUCCESS);
  ZvrFrameBuffer fb;
  ZvrFramebufferDesc desc{64, 32};
  ASSERT_EQ(zvrContextCreateFrameBuffer(context, {4, ZVR_COMPONENT_TYPE_FLOAT32}, &desc, &fb), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_MEMORY_INFO, sizeof after, after, nullptr), ZVR_SUCCESS);
  // Four sums per pixel, kept in doubles.
  EXPECT_EQ(after[0] - before[0], 64u * 32u * 4u * sizeof(double));
  EXPECT_GE(after[2], 64u * 32u * 4u * sizeof(double));
  EXPECT_GT(after[1], after[3]);
  EXPECT_GT(after[3], 0u);
  EXPECT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_MEMORY_INFO, 16, after, nullptr), ZVR_ERROR_INVALID_SIZE);
}

TEST(CoreParameters, LastErrorIsKeptThroughSuccessesAndReadInTwoSteps) {
  ScopedContext context;
  EXPECT_EQ(lastError(context), "");
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, 4242, 1), ZVR_ERROR_UNKNOWN_KEY);
  const std::string text = lastError(context);
  EXPECT_EQ(text, "zvrContextSetParameterByKey1u: unknown context key 4242");
  ASSERT_EQ(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 2), ZVR_SUCCESS);
  EXPECT_EQ(lastError(context), text);
  size_t size = 0;
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, 0, nullptr, &size), ZVR_SUCCESS);
  EXPECT_EQ(size, text.size() + 1);
  char tooSmall[8];
  EXPECT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, sizeof tooSmall, tooSmall, nullptr),
            ZVR_ERROR_INVALID_SIZE);
  ASSERT_EQ(zvrContextSetLastError(context, "scene.glb: accessor 7 reads past the end"), ZVR_SUCCESS);
  EXPECT_EQ(lastError(context), "scene.glb: accessor 7 reads past the end");
}

TEST(CoreParameters, TextKeys) {
  const char* ocio = std::getenv("OCIO");
  ScopedContext context;
  char buffer[2048] = {};
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, sizeof buffer, buffer, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(std::string(buffer), ocio ? ocio : "");
  ASSERT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, "/x/config.ocio"), ZVR_SUCCESS);
  size_t size = 0;
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, 0, nullptr, &size), ZVR_SUCCESS);
  EXPECT_EQ(size, sizeof "/x/config.ocio");
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, sizeof buffer, buffer, nullptr), ZVR_SUCCESS);
  EXPECT_STREQ(buffer, "/x/config.ocio");
  EXPECT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_ITERATIONS, "4"), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_CPU_INTEGRATOR, "path"), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_CPU_INTEGRATOR, sizeof buffer, buffer, nullptr), ZVR_SUCCESS);
  EXPECT_STREQ(buffer, "path");
}

TEST(CoreParameters, CreationChecksVersionPluginsFlagsAndProperties) {
  ScopedContext witness;  // a failed creation's text is read through any live context
  ASSERT_EQ(witness.status(), ZVR_SUCCESS);
  const int32_t plugin = core_test::testPluginId();
  const int32_t notRegistered = 9999;
  const int32_t twice[] = {plugin, plugin};
  const ZvrContextProperties unknown[] = {777, 1, 0};
  struct Case {
    const char* name;
    uint32_t version;
    const int32_t* plugins;
    size_t pluginCount;
    uint32_t flags;
    const ZvrContextProperties* properties;
    ZvrStatus expected;
    const char* errorPart;
  };
  const Case cases[] = {
      {"old version", 0x300105, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, ZVR_ERROR_INVALID_API_VERSION,
       "is not this library's"},
      {"unknown flag", ZVR_API_VERSION, &plugin, 1, 0x20, nullptr, ZVR_ERROR_INVALID_ARGUMENT, "unknown creation flag"},
      {"no plug-in", ZVR_API_VERSION, nullptr, 0, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, ZVR_ERROR_INVALID_ARGUMENT,
       "pluginCount is 0"},
      {"count without ids", ZVR_API_VERSION, nullptr, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr,
       ZVR_ERROR_INVALID_ARGUMENT, "pluginIds is null"},
      {"plug-in twice", ZVR_API_VERSION, twice, 2, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, ZVR_ERROR_INVALID_ARGUMENT,
       "is listed twice"},
      {"unknown property", ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, unknown,
       ZVR_ERROR_INVALID_ARGUMENT, "unknown creation property 777"},
      {"unregistered plug-in", ZVR_API_VERSION, &notRegistered, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr,
       ZVR_ERROR_NO_PLUGIN, "9999"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ZvrContext context = nullptr;
    EXPECT_EQ(zvrCreateContext(c.version, c.plugins, c.pluginCount, c.flags, c.properties, nullptr, &context), c.expected);
    EXPECT_EQ(context, nullptr);
    const std::string text = lastError(witness);
    EXPECT_EQ(text.rfind("zvrCreateContext: ", 0), 0u) << text;
    EXPECT_NE(text.find(c.errorPart), std::string::npos) << text;
  }
  EXPECT_EQ(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, nullptr, nullptr),
            ZVR_ERROR_INVALID_ARGUMENT);
  const char* binaryPath = "/nowhere";
  ZvrContextProperties known[16] = {ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT, 3, ZVR_CONTEXT_CREATEPROP_KEY_338, 3,
                                    ZVR_CONTEXT_CREATEPROP_PRECOMPILED_BINARY_PATH, reinterpret_cast<intptr_t>(binaryPath)};
  ScopedContext withProperties(ZVR_CREATION_FLAGS_ENABLE_CPU, {plugin}, known);
  EXPECT_EQ(withProperties.status(), ZVR_SUCCESS);
}

TEST(CoreParameters, DebugFlagTracesToVelderLogInTheWorkingFolder) {
  if (std::getenv("ZVR_TRACE")) GTEST_SKIP() << "ZVR_TRACE overrides the debug trace file";
  const std::string folder = core_test::makeTempFolder();
  char previous[PATH_MAX];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(folder.c_str()), 0);
  {
    ScopedContext context(ZVR_CREATION_FLAGS_ENABLE_CPU | ZVR_CREATION_FLAGS_ENABLE_DEBUG);
    char path[PATH_MAX] = {};
    ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_API_TRACE_PATH, sizeof path, path, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(std::string(path), folder + "/velder.log");
    ScopedContext quiet;
    ASSERT_EQ(zvrContextGetInfo(quiet, ZVR_CONTEXT_API_TRACE_PATH, sizeof path, path, nullptr), ZVR_SUCCESS);
    EXPECT_STREQ(path, "");
  }
  ASSERT_EQ(chdir(previous), 0);
  FILE* log = std::fopen((folder + "/velder.log").c_str(), "r");
  ASSERT_NE(log, nullptr);
  char line[512] = {};
  ASSERT_NE(std::fgets(line, sizeof line, log), nullptr);
  std::fclose(log);
  EXPECT_EQ(std::string(line).rfind("zvrCreateContext(apiVersion=0x300106, ", 0), 0u) << line;
}

}  // namespace
