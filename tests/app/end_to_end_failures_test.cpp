// The program's help and its failures before rendering, run as a user runs it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/app/expected_help.h"
#include "tests/support/program_run.h"

namespace {

const std::string kScene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";
const std::string kCritical = ")\nCritical error : the program stops now.\n";

TEST(EndToEnd, HelpForNoArgumentAndHelpFlagsOnly) {
  RunFolder folder("help");
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{}, {"-h"}, {"--help"}, {"-h", kScene}}) {
    const ProgramRun run = runProgram(folder, arguments);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, std::string(kExpectedHelp));
    EXPECT_EQ(run.err, "");
  }
  // In a later place "-h" is no help request but an override to parse.
  const ProgramRun run = runProgram(folder, {kScene, "-h"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.rfind("E010005: syntax error at line 1 near: h\n", 0), 0u) << run.err;
}

struct FailureCase {
  const char* name;
  std::vector<std::string> arguments;  // "$CFG" stands for the written configuration file
  std::string configContent;            // written when not empty
  std::string expectedErrorLine;        // first line of standard error; "$CFG" as above
  std::string expectedOut;              // standard output, exactly
};

TEST(EndToEnd, FailuresBeforeRenderingReportAndStop) {
  const FailureCase cases[] = {
      {"missing scene", {"/nonexistent/scene.glb"}, "", "E010002: File '/nonexistent/scene.glb' open failed.", ""},
      {"missing config", {kScene, "missing.json"}, "", "E010004: Config file 'missing.json' not found.", ""},
      {"four letters are a config path", {kScene, "abcd"}, "", "E010004: Config file 'abcd' not found.", ""},
      {"a folder is no config file", {kScene, "/tmp"}, "", "E010004: Config file '/tmp' not found.", ""},
      {"empty config", {kScene, "$CFG"}, "", "E010005: Config file '$CFG' is empty.", ""},
      {"syntax error in file", {kScene, "$CFG"}, "{\"width\":64,\n\"height\":48\n\"gui\":0}",
       "E010005: syntax error at line 3 near: \"gui\":0}", ""},
      {"syntax error after a tab", {kScene, "$CFG"}, "{\"a\":1,\n\t\"b\":\t[1,,2]}\n", "E010005: syntax error at line 2 near: ,2]}", ""},
      {"number beyond a double behind a string like one", {kScene, "{\"s\":\"\\\"9e999\",\t\"w\":[1,\n2,\n-2e308]}"}, "",
       "E010005: syntax error at line 3 near: -2e308]}", ""},
      {"syntax error in override", {kScene, "{\"iterations\":}"}, "", "E010005: syntax error at line 1 near: }", ""},
      {"upper-case extension is parsed as JSON", {kScene, "cfg.JSON"}, "", "E010005: syntax error at line 1 near: cfg.JSON", ""},
      {"setting made by name carries the library's reason", {kScene, "{\"gui\":0,\"gamma\":-1}"}, "",
       "E000002: ZVR context setting \"displaygamma\" failed. zvrContextSetParameterByKey1f: key 292 (display gamma): "
       "value -1.000000 is out of range, must be greater than 0",
       "Command Argument: add parameter 'gamma' to value '-1'\n"
       "Command Argument: override parameter 'gui' from value '1' to '0'\n"},
      {"missing sky image stops an export", {kScene, "$CFG"},
       R"({"gui":0,"plugin":"velder","output":".xml","environment":"no/such/sky.hdr"})",
       "E000018: Setting environment failed. no/such/sky.hdr cannot be opened for reading.", ""},
      {"missing sky image stops a run", {kScene, "$CFG"},
       R"({"gui":0,"plugin":"velder","context":{"cpu":1},"output":"out.exr","environment":"no/such/sky.hdr"})",
       "E000018: Setting environment failed. zvrLightSetImagePath: no/such/sky.hdr: cannot be read as an image: "
       "Could not open file \"no/such/sky.hdr\"", ""},
      {"missing scene is found before a bad config", {"/nonexistent.glb", "missing.json"}, "",
       "E010002: File '/nonexistent.glb' open failed.", ""},
      {"wrong plug-in, after the override lines in key order, values printed as text",
       {kScene, "$CFG", "{\"plugin\":\"NoSuchPlugin64.dll\",\"gui\":0,\"context\":{\"cpu\":1},\"x\":0.1,\"y\":[1],\"z\":true}"},
       "{\"gui\":1,\"context\":{\"gpu0\":1}}", "E010000: ZVR plugin 'NoSuchPlugin64.dll' not found.",
       "Command Argument: add parameter 'cpu' to value '1'\n"
       "Command Argument: override parameter 'gui' from value '1' to '0'\n"
       "Command Argument: add parameter 'plugin' to value 'NoSuchPlugin64.dll'\n"
       "Command Argument: add parameter 'x' to value '0.10000000000000001'\n"
       "Command Argument: add parameter 'y' to value 'array'\n"
       "Command Argument: add parameter 'z' to value 'true'\n"},
  };
  RunFolder folder("failures");
  const std::string config = folder / "cfg.json";
  for (const FailureCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::ofstream(config, std::ios::trunc) << c.configContent;
    std::vector<std::string> arguments = c.arguments;
    for (std::string& argument : arguments)
      if (argument == "$CFG") argument = config;
    std::string expectedErrorLine = c.expectedErrorLine;
    if (const size_t slot = expectedErrorLine.find("$CFG"); slot != std::string::npos) expectedErrorLine.replace(slot, 4, config);
    const ProgramRun run = runProgram(folder, arguments);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, c.expectedOut);
    // The report line, the source position of the failing statement, then the critical line.
    const size_t fileLine = run.err.find("\nfile=");
    ASSERT_NE(fileLine, std::string::npos) << run.err;
    EXPECT_EQ(run.err.substr(0, fileLine), expectedErrorLine);
    const size_t position = run.err.find(".cpp (", fileLine);
    const size_t criticalLine = run.err.find(kCritical, fileLine);
    ASSERT_NE(position, std::string::npos) << run.err;
    ASSERT_NE(criticalLine, std::string::npos) << run.err;
    EXPECT_GT(std::stoi(run.err.substr(position + 6, criticalLine - position - 6)), 0) << run.err;
    EXPECT_EQ(run.err.size(), criticalLine + kCritical.size());
    for (const auto& entry : std::filesystem::directory_iterator(std::string(folder)))
      EXPECT_TRUE(entry.path().filename() == "cfg.json" || entry.path().filename() == "api.trace")
          << entry.path() << ": a run that fails before rendering writes nothing";
  }
}

// A document of the wrong shape ends through the unhandled-exception path, naming the failed check.
TEST(EndToEnd, ShapeErrorsEndThroughTheUnhandledExceptionPath) {
  RunFolder folder("shapes");
  std::ofstream(folder / "list.json") << "[1]";
  std::ofstream(folder / "contour.json") << R"({"plugin":"quillon","gui":0,"context":{"cpu":1},"contour":{"uv":"1"}})";
  const std::pair<std::string, const char*> cases[] = {
      // A block can be merged into but not created by the override; "object" is taken for a block.
      {"{\"layers\":{\"render.layer1\":1}}", "is<object>()"},
      {"{\"plugin\":\"object\"}", "is<object>()"},
      {folder / "list.json", "is<object>()"},
      {"{\"gui\":0,\"context\":{\"threads\":\"8\"}}", "is<double>()"},
      {"{\"gui\":0,\"plugin\":\"velder\",\"camera.transform\":\"identity\"}", "is<array>()"},
      {folder / "contour.json", "is<double>()"},
  };
  for (const auto& [argument, check] : cases) {
    SCOPED_TRACE(argument);
    const ProgramRun run = runProgram(folder, {kScene, argument});
    EXPECT_NE(run.exitCode, 0);
    EXPECT_EQ(run.err.find("E0"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find(check), std::string::npos) << run.err;
  }
}

}  // namespace
