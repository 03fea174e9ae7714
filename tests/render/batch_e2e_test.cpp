// The batch loop end to end through zvrsRender64: render calls in batches, the printed percentages,
// and the files of single and multilayer saving, read back with OpenImageIO.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <string>
#include <vector>

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
    if (line.find("zvrContextSetParameterByKey1u(") == 0 && line.find("key=267,") != std::string::npos) {
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

struct ImageInfo {
  bool readable = false;
  int width = 0, height = 0;
  std::string format;
  std::vector<std::string> channels;
};

ImageInfo imageInfo(const std::string& path) {
  ImageInfo info;
  auto input = OIIO::ImageInput::open(path);
  if (!input) return info;
  const OIIO::ImageSpec& spec = input->spec();
  info.readable = true;
  info.width = spec.width;
  info.height = spec.height;
  info.format = input->format_name();
  info.channels = spec.channelnames;
  input->close();
  return info;
}

TEST(BatchLoop, RenderCallsInBatches) {
  const struct {
    const char* label;
    const char* settings;
    std::vector<std::string> sizes;
    std::vector<std::string> percents;
  } cases[] = {
      {"10 in fours", R"(,"iterations":10,"batchsize":4)", {"4", "4", "2"}, {"  0%", " 40%", " 80%", "100%"}},
      {"batch size 0 becomes one at a time", R"(,"iterations":3,"batchsize":0)", {"1", "1", "1"},
       {"  0%", " 33%", " 67%", "100%"}},
      {"batch above the count is one call", R"(,"iterations":3,"batchsize":50)", {"3"}, {"  0%", "100%"}},
      {"default batch size limited at the call", R"(,"iterations":5)", {"5"}, {"  0%", "100%"}},
  };
  for (const auto& c : cases) {
    const RunFolder folder("batches");
    const ProgramRun run = runProgram(folder, {kScene, config(folder, c.settings), R"({"output":"out.png"})"});
    ASSERT_EQ(run.exitCode, 0) << c.label << "\n" << run.err;
    EXPECT_EQ(run.err, "") << c.label << ": 16 threads, more than the machine may have, and the libraries stay silent";
    EXPECT_EQ(batchSizes(run), c.sizes) << c.label;
    const std::vector<std::string> percents = percentLines(run.out);
    EXPECT_TRUE(isSubsequence(c.percents, percents)) << c.label << "\n" << run.out;
    ASSERT_FALSE(percents.empty()) << c.label;
    EXPECT_EQ(percents.back(), "100%") << c.label;
    const ImageInfo image = imageInfo(folder / "out.png");
    EXPECT_TRUE(image.readable) << c.label;
    EXPECT_EQ(image.width, 32) << c.label;
  }
}

TEST(BatchLoop, QuietWithoutProgress) {
  const RunFolder folder("quiet");
  const ProgramRun run =
      runProgram(folder, {kScene, config(folder, R"(,"iterations":2,"print.progress":0)"), R"({"output":"q.png"})"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(percentLines(run.out).empty()) << run.out;
}

TEST(BatchLoop, PostProcessedColourIsAPngWhateverItsName) {
  const RunFolder folder("postprocess");
  const ProgramRun run = runProgram(
      folder, {kScene, config(folder, R"(,"iterations":1,"aovs":{"normal":"n.jpg"})"),
               R"({"output":["p.jpg","p.exr"],"postprocess.exposure":2.0})"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(imageInfo(folder / "p.jpg").format, "png");
  EXPECT_EQ(imageInfo(folder / "p.exr").format, "png");
  EXPECT_EQ(imageInfo(folder / "n.jpg").format, "jpeg");  // not the colour element: the library writes it
}

TEST(BatchLoop, SingleModeWritesEveryElementAndName) {
  const RunFolder folder("single");
  const ProgramRun run = runProgram(
      folder, {kScene, config(folder, R"(,"iterations":2,"aovs":{"normal":"n.png","depth":"d.exr"})"),
               R"({"output":["c.png","c2.exr"]})"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const struct {
    const char* file;
    const char* format;
  } files[] = {{"c.png", "png"}, {"c2.exr", "openexr"}, {"d.exr", "openexr"}, {"n.png", "png"}};
  for (const auto& f : files) {
    const ImageInfo image = imageInfo(folder / f.file);
    ASSERT_TRUE(image.readable) << f.file;
    EXPECT_EQ(image.format, f.format) << f.file;
    EXPECT_EQ(image.width, 32) << f.file;
    EXPECT_EQ(image.height, 24) << f.file;
  }
  // Sorted elements first, the colour element last; data elements resolve with flag 1.
  const std::vector<std::string> resolves = run.calls("zvrContextResolveFrameBuffer");
  ASSERT_EQ(resolves.size(), 3u);
  EXPECT_NE(resolves[0].find("dataOnly=1"), std::string::npos) << resolves[0];
  EXPECT_NE(resolves[1].find("dataOnly=1"), std::string::npos) << resolves[1];
  EXPECT_NE(resolves[2].find("dataOnly=0"), std::string::npos) << resolves[2];
  EXPECT_TRUE(run.calls("zvrFrameBufferSaveToFileEx").empty());
}

TEST(BatchLoop, MultilayerModeWritesOneExrWithEveryLayer) {
  const RunFolder folder("multilayer");
  const ProgramRun run = runProgram(
      folder,
      {kScene,
       config(folder, R"(,"iterations":2,"multilayerexr":1,"aovs":{"normal":"normallayer","depth":"depthlayer"})"),
       R"({"output":["m.EXR","m.PNG"]})"});
  ASSERT_EQ(run.exitCode, 0) << run.err;

  const ImageInfo layered = imageInfo(folder / "m.EXR");
  ASSERT_TRUE(layered.readable);
  EXPECT_EQ(layered.format, "openexr");
  const std::set<std::string> channels(layered.channels.begin(), layered.channels.end());
  for (const char* channel : {"depthlayer.R", "normallayer.R", "normallayer.G", "color.R", "color.A"}) {
    EXPECT_EQ(channels.count(channel), 1u) << channel;
  }
  const ImageInfo colourOnly = imageInfo(folder / "m.PNG");
  ASSERT_TRUE(colourOnly.readable);
  EXPECT_EQ(colourOnly.format, "png");
  EXPECT_EQ(colourOnly.width, 32);

  // The values of the other elements are layer names only, never files.
  EXPECT_FALSE(imageInfo(folder / "normallayer").readable);
  EXPECT_FALSE(imageInfo(folder / "depthlayer").readable);
  const std::vector<std::string> multi = run.calls("zvrFrameBufferSaveToFileEx");
  ASSERT_EQ(multi.size(), 1u);
  EXPECT_NE(multi[0].find("count=3"), std::string::npos) << multi[0];
}

}  // namespace
