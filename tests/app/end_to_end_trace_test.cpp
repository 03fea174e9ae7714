// Whole runs of the program on a real scene, checked through the libraries' API trace.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/process_runner.h"
#include "tests/support/program_run.h"

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
Call get(int number) { return {"zvrContextGetInfo", {key(number)}}; }
Call set(const char* operation, int number, std::string value = "") {
  return {std::string("zvrContextSetParameterByKey") + operation, {key(number), value}};
}
Call byName(const char* operation, const char* name) { return {operation, {'"' + std::string(name) + '"'}}; }

// The expected calls must appear in this order; other calls may stand between them.
void expectInOrder(const std::vector<std::string>& lines, const std::vector<Call>& calls) {
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
void expectTransfer(const std::vector<std::string>& lines, const std::vector<Call>& calls) {
  std::vector<std::string> block;
  for (const std::string& line : lines) {
    if (block.empty() && !matches(line, get(292))) continue;
    const bool transfer = line.rfind("zvrContextGetInfo(", 0) == 0 || line.rfind("zvrContextSetParameter", 0) == 0;
    if (transfer && line.find(key(311)) == std::string::npos) block.push_back(line);
    if (matches(line, set("4f", 342))) break;
  }
  std::ostringstream text;
  for (const std::string& line : block) text << line << "\n";
  ASSERT_EQ(block.size(), calls.size()) << text.str();
  for (size_t index = 0; index < calls.size(); ++index)
    EXPECT_TRUE(matches(block[index], calls[index])) << "call " << index << ": " << block[index];
}

// A run with `config` as its whole configuration file, in place of the built-in one.
ProgramRun runWithConfig(const RunFolder& folder, const std::string& config) {
  std::ofstream(folder / "run.json", std::ios::trunc) << config;
  return runProgram(folder, {kScene, folder / "run.json"});
}

TEST(TracedRun, VelderRunCallsTheLibrariesInOrder) {
  RunFolder folder("trace_velder");
  const ProgramRun run = runWithConfig(
      folder, "{\"plugin\":\"velder\",\"gui\":0,\"width\":32,\"height\":24,\"iterations\":2,\"batchsize\":2,"
                       "\"radianceclamp\":5,\"maxdepth\":3,\"output\":\"box.png\",\"print.progress\":0,"
                       "\"context\":{\"gpu4\":1,\"threads\":2},\"precompiled.binary\":\"kernels\"}");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  ASSERT_GE(run.out.size(), 16u);
  EXPECT_EQ(run.out.substr(run.out.size() - 16), "End of program.\n");
  EXPECT_TRUE(std::filesystem::exists(folder / "box.png"));
  // The summary comes before the teardown; the transfer's debug lines never reach the output.
  const size_t summary = run.out.find("Total Render Time = ");
  ASSERT_NE(summary, std::string::npos) << run.out;
  EXPECT_NE(run.out.find(" sec for other iterations\n", summary), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("maxdepth: "), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("radianceclamp: "), std::string::npos) << run.out;

  expectInOrder(run.trace, {
                               {"zvrRegisterPlugin", {"\"Velder64.dll\""}},
                               // "precompiled.binary" reaches the Quillon family only: no key 414 here.
                               {"zvrCreateContext", {"apiVersion=0x300106", "pluginCount=1", "creationFlags=0x40,",
                                                     "properties=[310=2 338=3],"}},
                               {"zvrContextSetActivePlugin", {}},
                               set("Ptr", 366), set("Ptr", 367), set("Ptr", 407), set("Ptr", 408), set("Ptr", 409),
                               set("Ptr", 410, "pointer=0x0"), set("Ptr", 411), set("Ptr", 412),
                               {"zvrContextCreateMaterialSystem", {}},
                               {"zvrsBuildOCIOFiles", {"Box_TEMP_ZVRS_OCIO\""}},
                               {"zvrsImport", {"Box.glb\""}},
                               {"zvrsReleaseImportedData", {}},
                               get(292),
                               set("4f", 342),
                               {"zvrsDeleteListImportedObjects", {}},
                           });
  // No integrator is chosen outside the Quillon family.
  EXPECT_TRUE(run.calls("zvrContextSetParameterByKeyString").empty());

  expectTransfer(run.trace, {
                                {"zvrContextGetInfo", {key(292), "size=4,"}}, get(288), get(285), get(406), get(283), get(320),
                                get(312), get(313), get(315), get(316), get(336), get(284), get(268), get(413),
                                set("1u", 267, "value=2)"), byName("zvrContextSetParameter1f", "displaygamma"),
                                byName("zvrContextSetParameter1f", "texturegamma"),
                                byName("zvrContextSetParameter1f", "mipmaplodoffset"), set("1f", 284), set("1u", 268),
                                set("1f", 413), set("1f", 285, "value=5)"), set("1u", 283, "value=3)"), set("1u", 406),
                                // The library reports its own depth limits, which go back by name.
                                byName("zvrContextSetParameter1u", "maxdepth.shadow"),
                                byName("zvrContextSetParameter1u", "maxdepth.diffuse"),
                                byName("zvrContextSetParameter1u", "maxdepth.glossy"),
                                byName("zvrContextSetParameter1u", "maxdepth.refraction"),
                                byName("zvrContextSetParameter1u", "maxdepth.refraction.glossy"),
                                {"zvrContextSetParameterByKey4f", {key(342), "x=0,", "y=0,"}},
                            });
}

TEST(TracedRun, QuillonRunReadsAndWritesItsFamilyKeys) {
  RunFolder folder("trace_quillon");
  const ProgramRun run = runWithConfig(
      folder, "{\"plugin\":\"Quillon64.dll\",\"gui\":0,\"width\":32,\"height\":24,\"iterations\":1,"
                       "\"print.progress\":0,\"print.result\":0,\"causticsreduction\":0.5,\"maxdepth.diffuse\":2,"
                       "\"integratorgpu\":\"gpu\",\"output\":\"q.png\",\"context\":{\"cpu\":1,\"threads\":2,\"debug\":0}}");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out.find("Total Render Time"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("End of program.\n"), std::string::npos) << run.out;
  expectInOrder(run.trace, {
                               {"zvrRegisterPlugin", {"\"Quillon64.dll\""}},
                               {"zvrCreateContext", {"creationFlags=0x10,", "properties=[310=2 338=3 414=\"kelbin\"],"}},
                               {"zvrsImport", {}},
                               set("String", 379, "\"gpu\""),
                               {"zvrsReleaseImportedData", {}},
                               get(413), get(382), get(384),
                               // Without "batchsize" the default goes out unlimited by the iterations.
                               set("1u", 267, "value=32)"),
                               {"zvrContextSetParameter1u", {"\"maxdepth.diffuse\"", "2)"}},
                               set("1f", 382, "value=0.5)"), set("1f", 384), set("4f", 342),
                           });
}

TEST(TracedRun, XmlOutputExportsAndKelBackendIsAnnounced) {
  RunFolder folder("trace_small");
  ProgramRun run = runWithConfig(folder, "{\"output\":\".xml\",\"plugin\":\"NoSuchPlugin\",\"context\":{}}");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out.find("End of program."), std::string::npos);
  EXPECT_TRUE(std::filesystem::exists(folder / ".xml"));
  expectInOrder(run.trace, {{"zvrsExportToXML", {"Box.glb\"", "\".xml\""}}});
  EXPECT_TRUE(run.calls("zvrRegisterPlugin").empty());

  run = runWithConfig(folder, "{\"plugin\":\"velder\",\"gui\":0,\"width\":8,\"height\":8,\"iterations\":1,"
                                    "\"print.progress\":0,\"context\":{\"backend\":\"kel\",\"debug\":1}}");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out.rfind("Kel Backend enabled\n", 0), 0u) << run.out;
  expectInOrder(run.trace, {{"zvrCreateContext", {"creationFlags=0x80080000,"}}});
}

// Without a display the viewer has set itself up, opens nothing, renders nothing and says why.
TEST(TracedRun, ViewerWithoutDisplayEndsWithMinusOneAndAdvice) {
  RunFolder folder("trace_viewer");
  const ProcessResult result =
      runProcess(renderProgramPath(), {kScene, "{\"plugin\":\"velder\",\"gui\":1,\"width\":16,\"height\":16,\"context\":{}}"},
                 {folder, {{"ZVR_TRACE", folder / "trace.txt"}, {"DISPLAY", ":4095"}}});
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.exitCode, 255);
  EXPECT_NE(result.out.find("shapes: 1\n"), std::string::npos) << result.out;
  EXPECT_NE(result.err.find("The viewer could not open a window ("), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("use \"gui\":0 to render to files.\n"), std::string::npos) << result.err;
  EXPECT_EQ(result.out.find("End of program."), std::string::npos);
  std::vector<std::string> lines;
  std::istringstream trace(readWholeFile(folder / "trace.txt"));
  for (std::string line; std::getline(trace, line);) lines.push_back(line);
  expectInOrder(lines, {set("1u", 287, "value=0)"), set("Ptr", 366), set("Ptr", 367), {"zvrContextCreateFrameBuffer", {}}});
  for (const std::string& line : lines) EXPECT_EQ(line.find("zvrContextRender("), std::string::npos) << line;
}

}  // namespace
