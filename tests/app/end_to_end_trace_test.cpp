// Whole runs of the program on a real scene, checked through the libraries' API trace.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/process_runner.h"

namespace {

const std::string kScene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";

// One expected call: its operation and fragments its argument list must hold.
struct Call {
  std::string operation;
  std::vector<std::string> fragments;
};

bool matches(const std::string& line, const Call& call) {
  if (line.rfind(call.operation + "(", 0) != 0) return false;
  for (const std::string& fragment : call.fragments)
    if (line.find(fragment) == std::string::npos) return false;
  return true;
}

std::string key(int number) { return "key=" + std::to_string(number) + ","; }

class TracedRun : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::path(testing::TempDir()) /
              ("zvrs_trace_" + std::to_string(getpid()) + "_" +
               testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  ProcessResult run(const std::string& config) {
    const std::string configPath = (folder_ / "run.json").string();
    std::ofstream(configPath) << config;
    ProcessOptions options;
    options.workingDirectory = folder_.string();
    options.environment = {{"ZVR_TRACE", (folder_ / "trace.txt").string()}};
    return runProcess(renderProgramPath(), {kScene, configPath}, options);
  }

  std::vector<std::string> traceLines() const {
    std::ifstream file(folder_ / "trace.txt");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  // The expected calls must appear in this order; other calls may stand between them.
  void expectInOrder(const std::vector<std::string>& lines, const std::vector<Call>& calls) const {
    size_t position = 0;
    for (const Call& call : calls) {
      while (position < lines.size() && !matches(lines[position], call)) ++position;
      ASSERT_LT(position, lines.size()) << "missing or out of order: " << call.operation << " "
                                        << (call.fragments.empty() ? "" : call.fragments[0]);
      ++position;
    }
  }

  // The settings transfer as one block: every context read and write from the first read of the
  // display gamma to the tile size, without the last-error queries of a failure report.
  std::vector<std::string> settingsTransfer(const std::vector<std::string>& lines) const {
    std::vector<std::string> block;
    bool inside = false;
    for (const std::string& line : lines) {
      if (!inside && matches(line, {"zvrContextGetInfo", {key(292)}})) inside = true;
      if (!inside) continue;
      const bool transfer = line.rfind("zvrContextGetInfo(", 0) == 0 || line.rfind("zvrContextSetParameter", 0) == 0;
      if (transfer && line.find(key(311)) == std::string::npos) block.push_back(line);
      if (matches(line, {"zvrContextSetParameterByKey4f", {key(342)}})) break;
    }
    return block;
  }

  std::filesystem::path folder_;
};

void expectSequence(const std::vector<std::string>& block, const std::vector<Call>& calls) {
  ASSERT_EQ(block.size(), calls.size()) << [&] {
    std::ostringstream text;
    for (const std::string& line : block) text << line << "\n";
    return text.str();
  }();
  for (size_t index = 0; index < calls.size(); ++index)
    EXPECT_TRUE(matches(block[index], calls[index])) << "call " << index << ": " << block[index];
}

TEST_F(TracedRun, VelderRunCallsTheLibrariesInOrder) {
  const ProcessResult result =
      run("{\"plugin\":\"velder\",\"gui\":0,\"width\":32,\"height\":24,\"iterations\":2,\"batchsize\":2,"
          "\"radianceclamp\":5,\"maxdepth\":3,\"output\":\"box.png\",\"print.progress\":0,"
          "\"context\":{\"gpu4\":1,\"threads\":2},\"precompiled.binary\":\"kernels\"}");
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_GE(result.out.size(), std::string("End of program.\n").size());
  EXPECT_EQ(result.out.substr(result.out.size() - 16), "End of program.\n");
  EXPECT_TRUE(std::filesystem::exists(folder_ / "box.png"));
  // The summary comes before the teardown; the transfer's debug lines never reach the output.
  const size_t summary = result.out.find("Total Render Time = ");
  ASSERT_NE(summary, std::string::npos) << result.out;
  EXPECT_NE(result.out.find(" sec for other iterations\n", summary), std::string::npos) << result.out;
  EXPECT_EQ(result.out.find("maxdepth: "), std::string::npos) << result.out;
  EXPECT_EQ(result.out.find("radianceclamp: "), std::string::npos) << result.out;

  const std::vector<std::string> lines = traceLines();
  expectInOrder(lines, {
                           {"zvrRegisterPlugin", {"\"Velder64.dll\""}},
                           // "precompiled.binary" reaches the Quillon family only: no key 414 here.
                           {"zvrCreateContext", {"apiVersion=0x300106", "pluginCount=1", "creationFlags=0x40,",
                                                 "properties=[310=2 338=3],"}},
                           {"zvrContextSetActivePlugin", {}},
                           {"zvrContextSetParameterByKeyPtr", {key(366)}},
                           {"zvrContextSetParameterByKeyPtr", {key(367)}},
                           {"zvrContextSetParameterByKeyPtr", {key(407)}},
                           {"zvrContextSetParameterByKeyPtr", {key(408)}},
                           {"zvrContextSetParameterByKeyPtr", {key(409)}},
                           {"zvrContextSetParameterByKeyPtr", {key(410), "pointer=0x0"}},
                           {"zvrContextSetParameterByKeyPtr", {key(411)}},
                           {"zvrContextSetParameterByKeyPtr", {key(412)}},
                           {"zvrContextCreateMaterialSystem", {}},
                           {"zvrsBuildOCIOFiles", {"Box_TEMP_ZVRS_OCIO\""}},
                           {"zvrsImport", {"Box.glb\""}},
                           {"zvrsReleaseImportedData", {}},
                           {"zvrContextGetInfo", {key(292)}},
                           {"zvrContextSetParameterByKey4f", {key(342)}},
                           {"zvrsDeleteListImportedObjects", {}},
                       });
  // No integrator is chosen outside the Quillon family.
  for (const std::string& line : lines) EXPECT_EQ(line.rfind("zvrContextSetParameterByKeyString(", 0), std::string::npos) << line;

  expectSequence(settingsTransfer(lines),
                 {
                     {"zvrContextGetInfo", {key(292), "size=4,"}},
                     {"zvrContextGetInfo", {key(288)}},
                     {"zvrContextGetInfo", {key(285)}},
                     {"zvrContextGetInfo", {key(406)}},
                     {"zvrContextGetInfo", {key(283)}},
                     {"zvrContextGetInfo", {key(320)}},
                     {"zvrContextGetInfo", {key(312)}},
                     {"zvrContextGetInfo", {key(313)}},
                     {"zvrContextGetInfo", {key(315)}},
                     {"zvrContextGetInfo", {key(316)}},
                     {"zvrContextGetInfo", {key(336)}},
                     {"zvrContextGetInfo", {key(284)}},
                     {"zvrContextGetInfo", {key(268)}},
                     {"zvrContextGetInfo", {key(413)}},
                     {"zvrContextSetParameterByKey1u", {key(267), "value=2)"}},
                     {"zvrContextSetParameter1f", {"\"displaygamma\""}},
                     {"zvrContextSetParameter1f", {"\"texturegamma\""}},
                     {"zvrContextSetParameter1f", {"\"mipmaplodoffset\""}},
                     {"zvrContextSetParameterByKey1f", {key(284)}},
                     {"zvrContextSetParameterByKey1u", {key(268)}},
                     {"zvrContextSetParameterByKey1f", {key(413)}},
                     {"zvrContextSetParameterByKey1f", {key(285), "value=5)"}},
                     {"zvrContextSetParameterByKey1u", {key(283), "value=3)"}},
                     {"zvrContextSetParameterByKey1u", {key(406)}},
                     // The library reports its own depth limits, which go back by name.
                     {"zvrContextSetParameter1u", {"\"maxdepth.shadow\""}},
                     {"zvrContextSetParameter1u", {"\"maxdepth.diffuse\""}},
                     {"zvrContextSetParameter1u", {"\"maxdepth.glossy\""}},
                     {"zvrContextSetParameter1u", {"\"maxdepth.refraction\""}},
                     {"zvrContextSetParameter1u", {"\"maxdepth.refraction.glossy\""}},
                     {"zvrContextSetParameterByKey4f", {key(342), "x=0,", "y=0,"}},
                 });
}

TEST_F(TracedRun, QuillonRunReadsAndWritesItsFamilyKeys) {
  const ProcessResult result =
      run("{\"plugin\":\"Quillon64.dll\",\"gui\":0,\"width\":32,\"height\":24,\"iterations\":1,\"print.progress\":0,"
          "\"print.result\":0,\"causticsreduction\":0.5,\"maxdepth.diffuse\":2,\"integratorgpu\":\"gpu\",\"output\":\"q.png\","
          "\"context\":{\"cpu\":1,\"threads\":2,\"debug\":0}}");
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out.find("Total Render Time"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("End of program.\n"), std::string::npos) << result.out;
  const std::vector<std::string> lines = traceLines();
  expectInOrder(lines, {
                           {"zvrRegisterPlugin", {"\"Quillon64.dll\""}},
                           {"zvrCreateContext", {"creationFlags=0x10,", "properties=[310=2 338=3 414=\"kelbin\"],"}},
                           {"zvrsImport", {}},
                           {"zvrContextSetParameterByKeyString", {key(379), "\"gpu\""}},
                           {"zvrsReleaseImportedData", {}},
                           {"zvrContextGetInfo", {key(413)}},
                           {"zvrContextGetInfo", {key(382)}},
                           {"zvrContextGetInfo", {key(384)}},
                           // Without "batchsize" the default goes out unlimited by the iterations.
                           {"zvrContextSetParameterByKey1u", {key(267), "value=32)"}},
                           {"zvrContextSetParameter1u", {"\"maxdepth.diffuse\"", "2)"}},
                           {"zvrContextSetParameterByKey1f", {key(382), "value=0.5)"}},
                           {"zvrContextSetParameterByKey1f", {key(384)}},
                           {"zvrContextSetParameterByKey4f", {key(342)}},
                       });
}

TEST_F(TracedRun, XmlOutputExportsAndRendersNothing) {
  const ProcessResult result = run("{\"output\":\".xml\",\"plugin\":\"NoSuchPlugin\",\"context\":{}}");
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out.find("End of program."), std::string::npos);
  EXPECT_TRUE(std::filesystem::exists(folder_ / ".xml"));
  const std::vector<std::string> lines = traceLines();
  expectInOrder(lines, {{"zvrsExportToXML", {"Box.glb\"", "\".xml\""}}});
  for (const std::string& line : lines) EXPECT_EQ(line.rfind("zvrRegisterPlugin(", 0), std::string::npos) << line;
}

TEST_F(TracedRun, KelBackendIsAnnouncedAndGetsNoDefaultDevice) {
  const ProcessResult result =
      run("{\"plugin\":\"velder\",\"gui\":0,\"width\":8,\"height\":8,\"iterations\":1,\"print.progress\":0,"
          "\"context\":{\"backend\":\"kel\",\"debug\":1}}");
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out.rfind("Kel Backend enabled\n", 0), 0u) << result.out;
  expectInOrder(traceLines(), {{"zvrCreateContext", {"creationFlags=0x80080000,"}}});
}

// Without a display the viewer has set itself up, opens nothing, renders nothing and says why.
TEST_F(TracedRun, ViewerWithoutDisplayEndsWithMinusOneAndAdvice) {
  const std::string configPath = (folder_ / "run.json").string();
  std::ofstream(configPath) << "{\"plugin\":\"velder\",\"gui\":1,\"width\":16,\"height\":16,\"context\":{}}";
  ProcessOptions options;
  options.workingDirectory = folder_.string();
  options.environment = {{"ZVR_TRACE", (folder_ / "trace.txt").string()}, {"DISPLAY", ":4095"}};
  const ProcessResult result = runProcess(renderProgramPath(), {kScene, configPath}, options);
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.exitCode, 255);
  EXPECT_NE(result.out.find("shapes: 1\n"), std::string::npos) << result.out;
  EXPECT_NE(result.err.find("The viewer could not open a window ("), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("use \"gui\":0 to render to files.\n"), std::string::npos) << result.err;
  EXPECT_EQ(result.out.find("End of program."), std::string::npos);
  const std::vector<std::string> lines = traceLines();
  expectInOrder(lines, {{"zvrContextSetParameterByKey1u", {"key=287,", "value=0)"}},
                        {"zvrContextSetParameterByKeyPtr", {"key=366,"}},
                        {"zvrContextSetParameterByKeyPtr", {"key=367,"}},
                        {"zvrContextCreateFrameBuffer", {}}});
  for (const std::string& line : lines) EXPECT_EQ(line.find("zvrContextRender("), std::string::npos) << line;
}

}  // namespace
