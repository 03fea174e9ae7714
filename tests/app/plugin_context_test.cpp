// Plug-in names and families, creation flags and properties, and the driver's small helpers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "program/aov_names.h"
#include "program/config_json.h"
#include "Apps/ZvrsRender/plugin_context.h"
#include "Apps/ZvrsRender/run_helpers.h"

using namespace zvrs;

namespace {

ConfigDocument parse(const std::string& text) { return parseJsonString(text.data(), text.size()); }

constexpr int32_t kNone = ZVR_PLUGIN_FAMILY_NONE, kVelder = ZVR_PLUGIN_FAMILY_VELDER,
                  kQuillon = ZVR_PLUGIN_FAMILY_QUILLON, kDorrik = ZVR_PLUGIN_FAMILY_DORRIK;
constexpr uint32_t kGpu0 = ZVR_CREATION_FLAGS_ENABLE_GPU0, kDebug = ZVR_CREATION_FLAGS_ENABLE_DEBUG,
                   kKel = ZVR_CREATION_FLAGS_ENABLE_KEL;
constexpr intptr_t kThreads = ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT, k338 = ZVR_CONTEXT_CREATEPROP_KEY_338,
                   kPrecompiled = ZVR_CONTEXT_CREATEPROP_PRECOMPILED_BINARY_PATH;

TEST(PluginKind, FromLowerCasedBaseName) {
  const std::pair<const char*, int32_t> cases[] = {
      {"Velder64.dll", kVelder},          {"Quillon64.dll", kQuillon},      {"Dorrik.dll", kDorrik},
      {"C:/x/quillon_dev.dll", kQuillon}, {"C:\\VELDER\\other.dll", kNone}, {"/opt/velder/libDorrik.so", kDorrik},
      {"QUILLONvelder.dll", kVelder},     {"", kNone},                       {"mine.dll", kNone},
  };
  for (const auto& c : cases) EXPECT_EQ(pluginKindOf(c.first), c.second) << c.first;
}

TEST(PluginKind, ConfiguredNameToFile) {
  const std::pair<const char*, const char*> cases[] = {
      {"VELDER", "Velder64.dll"}, {"quillon", "Quillon64.dll"}, {"Dorrik", "Dorrik.dll"},
      {"", "Velder64.dll"},       {"velder64", "velder64"},     {"C:/x/quillon_dev.dll", "C:/x/quillon_dev.dll"},
  };
  for (const auto& c : cases) EXPECT_EQ(pluginFileFor(c.first), c.second) << c.first;
}

struct FlagsCase {
  const char* json;
  uint32_t flags;
  uint32_t threads;
  bool kel;
};

TEST(ContextRequest, CreationFlagsFromTheContextBlock) {
  const FlagsCase cases[] = {
      {"{\"context\":{}}", kGpu0, 32, false},
      {"{\"context\":{\"gpu0\":0,\"gpu1\":0}}", kGpu0, 32, false},
      {"{\"context\":{\"gpu4\":1}}", ZVR_CREATION_FLAGS_ENABLE_GPU4, 32, false},
      {"{\"context\":{\"cpu\":1}}", ZVR_CREATION_FLAGS_ENABLE_CPU, 32, false},
      {"{\"context\":{\"gpu0\":1,\"gpu3\":2,\"gpu7\":1,\"gpu8\":1,\"gpu11\":-1}}",
       kGpu0 | ZVR_CREATION_FLAGS_ENABLE_GPU3 | ZVR_CREATION_FLAGS_ENABLE_GPU7 | ZVR_CREATION_FLAGS_ENABLE_GPU8 |
           ZVR_CREATION_FLAGS_ENABLE_GPU11,
       32, false},
      {"{\"context\":{\"gpu12\":1}}", kGpu0, 32, false},
      {"{\"context\":{\"debug\":1,\"threads\":4}}", kDebug | kGpu0, 4, false},
      {"{\"context\":{\"backend\":\"kel\"}}", kKel, 32, true},
      {"{\"context\":{\"backend\":\"kel\",\"debug\":1}}", kDebug | kKel, 32, true},
      {"{\"context\":{\"backend\":\"ocl\",\"gpu1\":1}}", ZVR_CREATION_FLAGS_ENABLE_GPU1, 32, false},
      {"{\"context\":{\"threads\":16.9,\"gpu0\":0.5}}", kGpu0, 16, false},
  };
  for (const FlagsCase& c : cases) {
    const ContextRequest request = readContextRequest(parse(c.json));
    EXPECT_EQ(request.flags, c.flags) << c.json;
    EXPECT_EQ(request.threads, c.threads) << c.json;
    EXPECT_EQ(request.kelBackend, c.kel) << c.json;
  }
}

TEST(ContextRequest, ContextBlockShapeErrorsThrow) {
  const char* const cases[] = {"{}", "{\"context\":1}", "{\"context\":{\"backend\":1}}",
                               "{\"context\":{\"gpu2\":\"1\"}}", "{\"context\":{\"threads\":\"8\"}}"};
  for (const char* json : cases) EXPECT_THROW(readContextRequest(parse(json)), std::runtime_error) << json;
}

TEST(ContextRequest, PropertiesByFamily) {
  struct Case {
    const char* json;
    int32_t kind;
    std::vector<intptr_t> keysAndValues;  // path slot checked separately
    bool hasPath;
  };
  const Case cases[] = {
      {"{\"context\":{\"threads\":8}}", kVelder, {kThreads, 8, k338, 3}, false},
      {"{\"context\":{\"threads\":8},\"precompiled.binary\":\"bin\"}", kVelder, {kThreads, 8, k338, 3}, false},
      {"{\"context\":{\"threads\":-1}}", kQuillon, {kThreads, -1, k338, 3, kPrecompiled}, true},
      {"{\"context\":{},\"precompiled.binary\":\"\"}", kQuillon, {kThreads, 32, k338, 3}, false},
      {"{\"context\":{},\"precompiled.binary\":5}", kQuillon, {kThreads, 32, k338, 3, kPrecompiled}, true},
      {"{\"context\":{}}", kDorrik, {}, false},
      {"{\"context\":{}}", kNone, {}, false},
  };
  for (const Case& c : cases) {
    const ContextRequest request = readContextRequest(parse(c.json));
    const std::vector<ZvrContextProperties> properties = buildCreationProperties(request, {c.kind});
    ASSERT_EQ(properties.size(), 16u);
    size_t slot = 0;
    for (; slot < c.keysAndValues.size(); ++slot) EXPECT_EQ(properties[slot], c.keysAndValues[slot]) << c.json;
    if (c.hasPath) {
      const char* path = reinterpret_cast<const char*>(properties[slot++]);
      EXPECT_STREQ(path, request.precompiledPath.c_str()) << c.json;
    }
    for (; slot < 16; ++slot) EXPECT_EQ(properties[slot], 0) << c.json << " slot " << slot;
  }
}

TEST(RunHelpers, TempOcioNameDropsTheLastExtension) {
  const std::pair<const char*, const char*> cases[] = {
      {"scene.glb", "scene_TEMP_ZVRS_OCIO"},
      {"/data/v1.2/scene.xml", "/data/v1.2/scene_TEMP_ZVRS_OCIO"},
      {"/data/v1.2/scene", "/data/v1_TEMP_ZVRS_OCIO"},
      {"scene", "_TEMP_ZVRS_OCIO"},
      {"a.b.c", "a.b_TEMP_ZVRS_OCIO"},
  };
  for (const auto& c : cases) EXPECT_EQ(makeTempOcioName(c.first), c.second) << c.first;
}

TEST(RunHelpers, CameraModes) {
  const std::pair<const char*, int64_t> cases[] = {
      {"360", 3}, {"360vr", 4}, {"fisheye", 7}, {"fisyeye", -1}, {"persp", -1}, {"Fisheye", -1}, {"", -1}};
  for (const auto& c : cases) {
    uint32_t mode = 99;
    const bool known = cameraModeFor(c.first, &mode);
    EXPECT_EQ(known, c.second >= 0) << c.first;
    if (known) {
      EXPECT_EQ(mode, static_cast<uint32_t>(c.second)) << c.first;
    }
  }
}

TEST(RunHelpers, TimeSummaryInSecondsAndMilliseconds) {
  TimingRecord timing;
  timing.frequency = 1000000000;
  timing.stamps[0] = 5000000000;
  timing.stamps[1] = 7500000000;  // 2.5 s later
  testing::internal::CaptureStdout();
  printTimeSummary(timing, 300.0f, 100.0f, 200.0f, false);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Total Render Time = 2.500 sec :\n"
            "  - 0.300 sec for first iteration (0.100 sec for update time ; 0.200 sec for rendering time)\n"
            "  - 2.200 sec for other iterations\n");
  testing::internal::CaptureStdout();
  printTimeSummary(timing, 300.0f, 100.0f, 200.0f, true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Total Render Time = 2500.000 ms :\n"
            "  - 300.000 ms for first iteration (100.000 ms for update time ; 200.000 ms for rendering time)\n"
            "  - 2200.000 ms for other iterations\n");
}

// The ids are the engine's AOV keys: a wrong one binds another element, which no run notices.
TEST(AovNames, TablesHoldTheirEntries) {
  EXPECT_EQ(aovNameToId.size(), 65u);
  EXPECT_EQ(colorSet.size(), 36u);
  const std::pair<const char*, uint32_t> ids[] = {
      {"color", 0},         {"camera.normal", 41},   {"mesh.id", 96},          {"light.group3", 26},
      {"light.group4", 80}, {"light.group15", 91},   {"lpe5", 37},             {"cryptomatte.mat0", 48},
      {"cryptomatte.obj5", 61}, {"deep.color", 64},  {"reflection.catcher", 30}, {"sss", 43}};
  for (const auto& entry : ids) EXPECT_EQ(aovNameToId.at(entry.first), entry.second) << entry.first;
  for (const std::string& name : colorSet) EXPECT_EQ(aovNameToId.count(name), 1u) << name;
  for (const char* data : {"depth", "normal", "object.id", "variance", "opacity", "cryptomatte.obj0", "deep.color"})
    EXPECT_EQ(colorSet.count(data), 0u) << data;
}

}  // namespace
