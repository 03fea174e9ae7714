// The statistics document, line by line, against the real core; only the memory figures, which
// belong to the machine, are masked.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/render/engine_fixture.h"
#include "render/statistics.h"

using namespace zvrs;

namespace {

using Statistics = EngineTest;

bool startsWith(const std::string& line, const std::string& prefix) { return line.compare(0, prefix.size(), prefix) == 0; }

// Memory figures become "#"; device name lines are dropped, since they answer only where devices exist.
std::string masked(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  for (std::string line; std::getline(file, line);) {
    if (startsWith(line, "\"gpu") && line.size() > 5 && std::isdigit(static_cast<unsigned char>(line[4]))) continue;
    if ((startsWith(line, "\"gpumem.") || startsWith(line, "\"sysmem.")) && line.find(": ") != std::string::npos) {
      const std::string number = line.substr(line.find(": ") + 2, line.size() - line.find(": ") - 3);
      EXPECT_NE(number.find('.'), std::string::npos) << line;
      EXPECT_EQ(number.size() - number.find('.'), 3u) << "two decimals: " << line;
      line = line.substr(0, line.find(": ") + 2) + "#,";
    }
    text << line << "\n";
  }
  return text.str();
}

OutputElement element(const char* name, std::vector<std::string> files) { return {name, std::move(files), nullptr, ""}; }

TEST_F(Statistics, DocumentLineByLine) {
  uint32_t pluginVersion = 0;
  ASSERT_EQ(zvrContextGetInfo(context_, ZVR_CONTEXT_PLUGIN_VERSION, 4, &pluginVersion, nullptr), 0);
  char versionLine[64];
  std::snprintf(versionLine, sizeof(versionLine), "\"plugin.version\": \"0x%x\"\n", pluginVersion);

  ZvrPostEffect normalization = nullptr, gamma = nullptr;
  ASSERT_EQ(zvrContextCreatePostEffect(context_, ZVR_POST_EFFECT_NORMALIZATION, &normalization), 0);
  ASSERT_EQ(zvrContextCreatePostEffect(context_, ZVR_POST_EFFECT_GAMMA_CORRECTION, &gamma), 0);

  const std::string head =
      "{\n\"input\": \"C:/scenes/box.glb\",\n\"output\": [\"a.png\", \"b.exr\"],\n\"gpumem.total.mb\": #,\n"
      "\"gpumem.max.alloc.mb\": #,\n\"gpumem.usage.mb\": #,\n\"sysmem.usage.mb\": #,\n"
      "\"render.time.ms\": 2500.00,\n\"render.time.first_iteration.ms\": 12.50,\n\"iteration\": 5,\n"
      "\"width\": 8,\n\"height\": 4,\n";
  const std::string tail = "\"version\": \"0x300106\",\n\"version.minor\": \"0x1f29f423\",\n" +
                           std::string(versionLine) + "}\n";
  const std::string tiles = "\"tilesize.width\": 8,\n\"tilesize.height\": 2,\n";
  const struct {
    const char* label;
    std::vector<OutputElement> elements;
    std::vector<PostEffectEntry> effects;
    uint32_t tileHeight;
    std::string body;
    bool named = true;  // "output.json" a string; otherwise not, and the file is out.json
  } cases[] = {
      {"one element, one tile, no effects", {element("color", {"a.png", "b.exr"})}, {}, 4, ""},
      {"two elements: the last is left out", {element("color", {"a.png", "b.exr"}), element("depth", {"d.exr"})},
       {}, 4, "\"aovs\": {\n  \"color\": [\"a.png\", \"b.exr\"]\n},\n"},
      {"three elements, tiles",
       {element("color", {"a.png"}), element("depth", {"d.exr"}), element("normal", {"n.png"})}, {},
       2, tiles + "\"aovs\": {\n  \"color\": [\"a.png\"],\n  \"depth\": [\"d.exr\"]\n},\n"},
      {"post effects close their bracket on the last line", {element("color", {"a.png"})},
       {{normalization, true}, {gamma, false}}, 4, "\"posteffects\": [\n  \"normalization\",\n  \"gammacorrection\"],\n"},
      {"a file name not a string", {element("color", {"a.png", "b.exr"})}, {}, 4, "", false},
  };
  const std::filesystem::path previous = std::filesystem::current_path();
  std::filesystem::current_path(tempFile(""));  // where the file named by default goes
  for (const auto& c : cases) {
    picojson::object root;
    root["output.json"] = c.named ? picojson::value("stats.json") : picojson::value(3.0);
    RenderSettings settings;
    settings.iterations = 5;
    settings.width = settings.tileWidth = 8;
    settings.height = 4;
    settings.tileHeight = c.tileHeight;
    const TimingRecord timing{2, 1000, {2000, 4500}};
    writeStatistics("C:\\scenes\\box.glb", picojson::value(root), context_, settings, {"a.png", "b.exr"}, c.elements,
                    c.effects, timing, 12.5f);
    EXPECT_EQ(masked(tempFile(c.named ? "stats.json" : "out.json")), head + c.body + tail) << c.label;
  }
  std::filesystem::current_path(previous);
  zvrObjectDelete(normalization);
  zvrObjectDelete(gamma);
}

}  // namespace
