// How the program reads its command line and configuration: the split of the arguments, the
// override merge, the edge cases of the settings and what the document asks of the context.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "Apps/ZvrsRender/command_line.h"
#include "Apps/ZvrsRender/plugin_context.h"
#include "Apps/ZvrsRender/run_helpers.h"
#include "Apps/ZvrsRender/settings_reader.h"
#include "program/config_json.h"

using namespace zvrs;

namespace {

constexpr int32_t kNone = ZVR_PLUGIN_FAMILY_NONE, kVelder = ZVR_PLUGIN_FAMILY_VELDER,
                  kQuillon = ZVR_PLUGIN_FAMILY_QUILLON, kDorrik = ZVR_PLUGIN_FAMILY_DORRIK;
const std::vector<int32_t> kVelderOnly = {kVelder}, kQuillonOnly = {kQuillon};
constexpr uint32_t kGpu0 = ZVR_CREATION_FLAGS_ENABLE_GPU0;

ConfigDocument parse(const std::string& text) { return parseJsonString(text.data(), text.size()); }

TEST(CommandLine, SplitsSceneConfigAndOverride) {
  struct Case {
    std::vector<const char*> arguments;  // after the program and the scene
    std::string configFile;
    std::string overrideJson;  // serialised override, "null" when none
  };
  const Case cases[] = {
      {{"cfg.json", "{\"iterations\":5}", "ignored"}, "cfg.json", "{\"iterations\":5}"},
      // Any four characters name a configuration file.
      {{"[10]"}, "[10]", "null"},
      {{".json"}, ".json", "null"},
      {{"dir/a.json.json", "3"}, "dir/a.json.json", "3"},
      // Shorter than four characters, or ".json" not at the end: parsed as the override.
      {{"123"}, "", "123"},
      {{"\"a.jsonx\""}, "", "\"a.jsonx\""},
      // Text behind the first value is not read.
      {{"{\"a\":1} garbage"}, "", "{\"a\":1}"},
  };
  for (const Case& c : cases) {
    std::vector<const char*> arguments = {"zvrsRender64", "scene.glb"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    SCOPED_TRACE(arguments.back());
    CommandLine commandLine;
    ASSERT_TRUE(parseCommandLine(static_cast<int>(arguments.size()), arguments.data(), commandLine));
    EXPECT_EQ(commandLine.sceneFile, "scene.glb");
    EXPECT_EQ(commandLine.configFile, c.configFile);
    EXPECT_EQ(commandLine.override.serialize(), c.overrideJson);
  }
}

TEST(MergeOverride, ChangesAndAddsKeysBlockByBlock) {
  struct Case {
    std::string target, override, merged, printed;
  };
  const Case cases[] = {
      {"{\"output\":\"a.png\"}", "{\"output\":[\"b.png\"]}", "{\"output\":[\"b.png\"]}",
       "Command Argument: override parameter 'output' from value 'a.png' to 'array'\n"},
      {"{\"a\":1}", "{}", "{\"a\":1}", ""},
      // A missing block with an empty override block does nothing.
      {"{\"a\":1}", "{\"layers\":{}}", "{\"a\":1}", ""},
      // Overrides that are not objects are dropped.
      {"{\"a\":1}", "5", "{\"a\":1}", ""},
      {"{\"a\":1}", "[{\"a\":2}]", "{\"a\":1}", ""},
      {"{\"a\":1}", "null", "{\"a\":1}", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.override);
    ConfigDocument target = parse(c.target);
    testing::internal::CaptureStdout();
    mergeOverride(parse(c.override), target);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed);
    EXPECT_EQ(target.serialize(), c.merged);
  }
  ConfigDocument value = parse("{\"context\":3}");
  EXPECT_THROW(mergeOverride(parse("{\"context\":{\"cpu\":1}}"), value), std::runtime_error) << "no merge into a value";
}

TEST(ReadOutputList, AcceptsStringsAndArraysOfStrings) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"{\"output\":\"a.png\"}", {"a.png"}},
      {"{\"output\":[\"a.png\",3,\"b.exr\",null,[\"c\"]]}", {"a.png", "b.exr"}},
      {"{\"output\":7}", {}},
      {"{\"output\":{\"a\":\"b\"}}", {}},
      {"{}", {}},
  };
  for (const auto& [document, names] : cases) EXPECT_EQ(readOutputList(parse(document), "output"), names) << document;
  EXPECT_THROW(readOutputList(parse("[\"a.png\"]"), "output"), std::runtime_error);
}

RenderSettings read(const std::string& json, const std::vector<int32_t>& kinds) {
  RenderSettings settings;
  readSettingsFromConfig(settings, parse(json), kinds);
  return settings;
}

TEST(SettingsReader, EdgeCasesOfTheKeys) {
  using Field = std::function<double(const RenderSettings&)>;
  const Field iterations = [](const RenderSettings& s) { return s.iterations; };
  const Field batchSize = [](const RenderSettings& s) { return s.batchSize; };
  const Field contour = [](const RenderSettings& s) { return s.contourEnable; };
  struct Case {
    const char* json;
    const std::vector<int32_t>& kinds;
    Field field;
    double expected;
  };
  const Case cases[] = {
      {"{\"iterations\":0}", kVelderOnly, iterations, 1},
      {"{\"iterations\":-1}", kVelderOnly, iterations, 0xFFFFFFFFu},
      {"{\"iterations\":\"2\"}", kVelderOnly, iterations, 64},
      {"{\"iterations\":10,\"batchsize\":100}", kVelderOnly, batchSize, 10},
      {"{\"iterations\":10,\"batchsize\":0}", kVelderOnly, batchSize, 1},
      {"{\"iterations\":10,\"batchsize\":\"4\"}", kVelderOnly, batchSize, 32},
      {"{\"width\":1280.7,\"height\":720}", kVelderOnly, [](const RenderSettings& s) { return s.framebufferDesc.width; }, 1280},
      {"{\"width\":\"2\"}", kVelderOnly, [](const RenderSettings& s) { return s.width; }, 1920},
      {"{\"width\":1e30}", kVelderOnly, [](const RenderSettings& s) { return s.width; }, 0},
      {"{\"print.progress\":false}", kVelderOnly, [](const RenderSettings& s) { return s.printProgress; }, 1},
      {"{\"gamma\":\"2.2\"}", kVelderOnly, [](const RenderSettings& s) { return s.gammaGiven; }, 0},
      {"{\"maxdepth\":3.9}", kVelderOnly, [](const RenderSettings& s) { return s.maxDepth; }, 3},
      {"{}", kVelderOnly, [](const RenderSettings& s) { return std::isnan(s.cameraTransform[0]); }, 1},
      {"{\"camera.transform\":[1,0,0,0,0,1,0,0,0,0,1,0,0,0,5,1,99]}", kVelderOnly,
       [](const RenderSettings& s) { return s.cameraTransform[14]; }, 5},
      // The contour block is read for the Quillon family only, and not even checked otherwise.
      {"{\"contour\":{\"linewidth\":2.0,\"linewidth.uv\":3.0},\"batchsize\":8}", kQuillonOnly, batchSize, 1},
      {"{\"contour\":{\"linewidth\":2.0,\"linewidth.uv\":3.0}}", kQuillonOnly,
       [](const RenderSettings& s) { return s.contourLineWidthUv; }, 3},
      {"{\"contour\":\"yes\",\"batchsize\":8,\"iterations\":20}", kVelderOnly, batchSize, 8},
      {"{\"contour\":null}", kQuillonOnly, contour, -1},
      {"{\"integratorgpu\":\"gpucontour\",\"batchsize\":8,\"iterations\":20}", kQuillonOnly, batchSize, 8},
      {"{\"integratorgpu\":\"gpucontour\"}", kQuillonOnly, contour, 1},
      {"{\"integratorgpu\":\"gpucontour\"}", kVelderOnly, contour, -1},
  };
  for (const Case& c : cases) EXPECT_EQ(c.field(read(c.json, c.kinds)), c.expected) << c.json;
  const std::pair<const char*, const char*> gammaCorrections[] = {{"0", ""}, {"\"0\"", "0"}, {"2.2", "2.200000"}};
  for (const auto& [value, text] : gammaCorrections)
    EXPECT_EQ(read(std::string("{\"postprocess.gammacorrection\":") + value + "}", kVelderOnly).postGammaCorrection, text) << value;
}

TEST(PluginKind, FromLowerCasedBaseName) {
  const std::pair<const char*, int32_t> kinds[] = {
      {"C:/x/quillon_dev.dll", kQuillon}, {"C:\\VELDER\\other.dll", kNone}, {"/opt/velder/libDorrik.so", kDorrik},
      {"QUILLONvelder.dll", kVelder},     {"", kNone},                       {"mine.dll", kNone},
  };
  for (const auto& [file, kind] : kinds) EXPECT_EQ(pluginKindOf(file), kind) << file;
}

TEST(ContextRequest, CreationFlagsAndPropertiesFromTheContextBlock) {
  const std::tuple<const char*, uint32_t, uint32_t> flags[] = {
      {"{\"context\":{\"gpu0\":0,\"gpu1\":0}}", kGpu0, 32},
      {"{\"context\":{\"gpu0\":1,\"gpu3\":2,\"gpu11\":-1,\"gpu12\":1}}",
       kGpu0 | ZVR_CREATION_FLAGS_ENABLE_GPU3 | ZVR_CREATION_FLAGS_ENABLE_GPU11, 32},
      {"{\"context\":{\"backend\":\"ocl\",\"gpu1\":1}}", ZVR_CREATION_FLAGS_ENABLE_GPU1, 32},
      {"{\"context\":{\"threads\":16.9,\"gpu0\":0.5,\"debug\":1}}", kGpu0 | ZVR_CREATION_FLAGS_ENABLE_DEBUG, 16},
  };
  for (const auto& [json, wantFlags, threads] : flags) {
    const ContextRequest request = readContextRequest(parse(json));
    EXPECT_EQ(request.flags, wantFlags) << json;
    EXPECT_EQ(request.threads, threads) << json;
  }
  // Only the Quillon family gets the precompiled path, and only a non-empty one.
  const std::tuple<const char*, int32_t, size_t> properties[] = {
      {"{\"context\":{},\"precompiled.binary\":\"\"}", kQuillon, 4},
      {"{\"context\":{},\"precompiled.binary\":5}", kQuillon, 6},
      {"{\"context\":{}}", kDorrik, 0},
      {"{\"context\":{}}", kNone, 0},
  };
  for (const auto& [json, kind, used] : properties) {
    const std::vector<ZvrContextProperties> slots =
        buildCreationProperties(readContextRequest(parse(json)), {kind});
    ASSERT_EQ(slots.size(), 16u);
    for (size_t slot = 0; slot < 16; ++slot) EXPECT_EQ(slots[slot] != 0, slot < used) << json << " slot " << slot;
  }
}

TEST(RunHelpers, TempOcioNameDropsTheLastExtension) {
  const std::pair<const char*, const char*> cases[] = {
      {"/data/v1.2/scene.xml", "/data/v1.2/scene_TEMP_ZVRS_OCIO"},
      {"/data/v1.2/scene", "/data/v1_TEMP_ZVRS_OCIO"},
      {"scene", "_TEMP_ZVRS_OCIO"},
      {"a.b.c", "a.b_TEMP_ZVRS_OCIO"},
  };
  for (const auto& [scene, name] : cases) EXPECT_EQ(makeTempOcioName(scene), name) << scene;
}

TEST(RunHelpers, TimeSummaryInMilliseconds) {
  TimingRecord timing;
  timing.frequency = 1000000000;
  timing.stamps[0] = 5000000000;
  timing.stamps[1] = 7500000000;  // 2.5 s later
  testing::internal::CaptureStdout();
  printTimeSummary(timing, 300.0f, 100.0f, 200.0f, true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Total Render Time = 2500.000 ms :\n"
            "  - 300.000 ms for first iteration (100.000 ms for update time ; 200.000 ms for rendering time)\n"
            "  - 2200.000 ms for other iterations\n");
}

}  // namespace
