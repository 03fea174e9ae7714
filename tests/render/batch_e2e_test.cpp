// The batch loop end to end through zvrsRender64: render calls in batches, the printed percentages,
// and the files of single and multilayer saving, read back with OpenImageIO.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <utility>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "tests/render/image_file.h"
#include "tests/support/program_run.h"

namespace {

const std::string kScene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";

std::string config(const std::string& folder, const std::string& extra) {
  const std::string path = folder + "/config.json";
  std::ofstream(path) << R"({"plugin":"Velder64.dll","gui":0,"width":32,"height":24,"print.result":0,)"
                      << R"("output.json":"stats.json","context":{"gpu0":0,"threads":16})" << extra << "}";
  return path;
}

// Iteration counts set just before each render call.
std::vector<std::string> batchSizes(const ProgramRun& run) {
  std::vector<std::string> sizes;
  std::string pending;
  for (const std::string& line : run.trace) {
    if (line.find("zvrContextSetParameterByKey1u(") == 0 && line.find("key=" + std::to_string(ZVR_CONTEXT_ITERATIONS) + ",") != std::string::npos) {
      pending = line.substr(line.find("value=") + 6);
      pending = pending.substr(0, pending.find(')'));
    } else if (line.find("zvrContextRender(") == 0) {
      sizes.push_back(pending);
    }
  }
  return sizes;
}

std::vector<std::string> percentLines(const std::string& out) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1) {
    const std::string line = out.substr(start, end - start);
    if (!line.empty() && line.back() == '%') lines.push_back(line);
  }
  return lines;
}

bool isSubsequence(const std::vector<std::string>& wanted, const std::vector<std::string>& lines) {
  size_t next = 0;
  for (const std::string& line : lines)
    if (next < wanted.size() && line == wanted[next]) ++next;
  return next == wanted.size();
}

// Render calls in batches with the percentages printed at each; which files each saving mode writes,
// in which format, and the calls that wrote them: data elements resolve first with dataOnly=1, the
// colour element last; one layered file in multilayer mode.
TEST(BatchLoop, RenderCallsInBatchesAndFilesOfEachSavingMode) {
  const struct {
    const char* label;
    const char* settings;
    std::vector<std::string> sizes;
    std::vector<std::string> percents;
    const char* outputs = R"({"output":"out.png"})";
    std::vector<std::pair<std::string, std::string>> files = {{"out.png", "png"}};  // name, format ("": no file)
    std::vector<std::string> channels = {};  // of the first file
    std::vector<std::string> saves = {"dataOnly=0"};  // needles of the resolve and layered save calls, in order
  } cases[] = {
      {"10 in fours", R"(,"iterations":10,"batchsize":4)", {"4", "4", "2"}, {"  0%", " 40%", " 80%", "100%"}},
      {"batch size 0 becomes one at a time", R"(,"iterations":3,"batchsize":0)", {"1", "1", "1"},
       {"  0%", " 33%", " 67%", "100%"}},
      {"batch above the count is one call", R"(,"iterations":3,"batchsize":50)", {"3"}, {"  0%", "100%"}},
      {"default batch size limited at the call", R"(,"iterations":5)", {"5"}, {"  0%", "100%"}},
      {"quiet without progress", R"(,"iterations":2,"print.progress":0)", {"2"}, {}},
      {"single mode writes every element and name", R"(,"iterations":2,"aovs":{"normal":"n.png","depth":"d.exr"})",
       {"2"}, {"  0%", "100%"}, R"({"output":["c.png","c2.exr"]})",
       {{"c.png", "png"}, {"c2.exr", "openexr"}, {"d.exr", "openexr"}, {"n.png", "png"}}, {},
       {"dataOnly=1", "dataOnly=1", "dataOnly=0"}},
      {"post-processed colour is a png whatever its name", R"(,"iterations":2,"aovs":{"normal":"n.jpg"})", {"2"},
       {"  0%", "100%"}, R"({"output":["p.jpg","p.exr"],"postprocess.exposure":2.0})",
       {{"p.jpg", "png"}, {"p.exr", "png"}, {"n.jpg", "jpeg"}}, {}, {"dataOnly=1", "dataOnly=0"}},
      {"multilayer mode: one exr with every layer, other values are layer names only",
       R"(,"iterations":2,"multilayerexr":1,"aovs":{"normal":"normallayer","depth":"depthlayer"})", {"2"},
       {"  0%", "100%"}, R"({"output":["m.EXR","m.PNG"]})",
       {{"m.EXR", "openexr"}, {"m.PNG", "png"}, {"normallayer", ""}, {"depthlayer", ""}},
       {"color.R", "color.A", "depthlayer.R", "normallayer.R", "normallayer.G"},
       {"dataOnly=1", "dataOnly=1", "dataOnly=0", "count=3"}},
  };
  for (const auto& c : cases) {
    const RunFolder folder("batches");
    const ProgramRun run = runProgram(folder, {kScene, config(folder, c.settings), c.outputs});
    ASSERT_EQ(run.exitCode, 0) << c.label << "\n" << run.err;
    EXPECT_EQ(run.err, "") << c.label << ": 16 threads, more than the machine may have, and the libraries stay silent";
    EXPECT_EQ(batchSizes(run), c.sizes) << c.label;
    const std::vector<std::string> percents = percentLines(run.out);
    EXPECT_TRUE(isSubsequence(c.percents, percents)) << c.label << "\n" << run.out;
    EXPECT_EQ(percents.empty() ? "" : percents.back(), c.percents.empty() ? "" : "100%") << c.label;
    for (const auto& [file, format] : c.files) {
      const ImageFile image = readImageFile(folder / file);
      EXPECT_EQ(image.format, format) << c.label << ": " << file;
      if (format.empty()) continue;
      EXPECT_EQ(image.width, 32) << c.label << ": " << file;
      EXPECT_EQ(image.height, 24) << c.label << ": " << file;
    }
    const std::vector<std::string> channels = readImageFile(folder / c.files[0].first).channels;
    for (const std::string& channel : c.channels)
      EXPECT_NE(std::find(channels.begin(), channels.end(), channel), channels.end()) << c.label << ": " << channel;
    std::vector<std::string> saves = run.calls("zvrContextResolveFrameBuffer");
    for (const std::string& line : run.calls("zvrFrameBufferSaveToFileEx")) saves.push_back(line);
    ASSERT_EQ(saves.size(), c.saves.size()) << c.label;
    for (size_t i = 0; i < saves.size(); ++i) EXPECT_NE(saves[i].find(c.saves[i]), std::string::npos) << saves[i];
  }
}

}  // namespace
