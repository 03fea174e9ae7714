// The program's help and its failures before rendering, run as a user runs it.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/app/expected_help.h"
#include "tests/support/process_runner.h"

namespace {

const std::string kScene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";

class EndToEnd : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::path(testing::TempDir()) /
              ("zvrs_e2e_" + std::to_string(getpid()) + "_" +
               testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string writeFile(const std::string& name, const std::string& content) {
    const std::filesystem::path path = folder_ / name;
    std::ofstream(path, std::ios::binary) << content;
    return path.string();
  }
  ProcessResult run(const std::vector<std::string>& arguments) {
    ProcessOptions options;
    options.workingDirectory = folder_.string();
    return runProcess(renderProgramPath(), arguments, options);
  }

  std::filesystem::path folder_;
};

TEST_F(EndToEnd, HelpForNoArgumentAndHelpFlags) {
  const std::vector<std::vector<std::string>> requests = {{}, {"-h"}, {"--help"}, {"-h", kScene}};
  for (const auto& arguments : requests) {
    const ProcessResult result = run(arguments);
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, std::string(kExpectedHelp));
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(EndToEnd, HelpFlagInALaterPlaceIsNoHelpRequest) {
  const ProcessResult result = run({kScene, "-h"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out.find("[ZVR command line renderer]"), std::string::npos);
  EXPECT_EQ(result.err.rfind("E010005: syntax error at line 1 near: ", 0), 0u) << result.err;
}

struct FailureCase {
  const char* name;
  std::vector<std::string> arguments;  // "$CFG" stands for the written configuration file
  std::string configContent;            // written when not empty
  std::string expectedErrorLine;        // first line of standard error; "$CFG" as above
  std::string expectedOut;              // standard output, exactly
};

TEST_F(EndToEnd, FailuresBeforeRenderingReportAndStop) {
  const FailureCase cases[] = {
      {"missing scene", {"/nonexistent/scene.glb"}, "", "E010002: File '/nonexistent/scene.glb' open failed.", ""},
      {"missing config", {kScene, "missing.json"}, "", "E010004: Config file 'missing.json' not found.", ""},
      {"four letters are a config path", {kScene, "abcd"}, "", "E010004: Config file 'abcd' not found.", ""},
      {"empty config", {kScene, "$CFG"}, "", "E010005: Config file '$CFG' is empty.", ""},
      {"syntax error in file", {kScene, "$CFG"}, "{\"width\":64,\n\"height\":48\n\"gui\":0}",
       "E010005: syntax error at line 3 near: \"gui\":0}", ""},
      {"syntax error in override", {kScene, "{\"iterations\":}"}, "",
       "E010005: syntax error at line 1 near: }", ""},
      {"upper-case extension is parsed as JSON", {kScene, "cfg.JSON"}, "",
       "E010005: syntax error at line 1 near: cfg.JSON", ""},
      {"setting made by name carries the library's reason", {kScene, "{\"gui\":0,\"gamma\":-1}"}, "",
       "E000002: ZVR context setting \"displaygamma\" failed. zvrContextSetParameterByKey1f: key 292 (display gamma): "
       "value -1.000000 is out of range, must be greater than 0",
       "Command Argument: add parameter 'gamma' to value '-1'\n"
       "Command Argument: override parameter 'gui' from value '1' to '0'\n"},
      {"missing scene is found before a bad config", {"/nonexistent.glb", "missing.json"}, "",
       "E010002: File '/nonexistent.glb' open failed.", ""},
      {"wrong plug-in, after the override lines in key order",
       {kScene, "$CFG", "{\"plugin\":\"NoSuchPlugin64.dll\",\"gui\":0,\"context\":{\"cpu\":1}}"},
       "{\"gui\":1,\"context\":{\"gpu0\":1}}", "E010000: ZVR plugin 'NoSuchPlugin64.dll' not found.",
       "Command Argument: add parameter 'cpu' to value '1'\n"
       "Command Argument: override parameter 'gui' from value '1' to '0'\n"
       "Command Argument: add parameter 'plugin' to value 'NoSuchPlugin64.dll'\n"},
  };
  for (const FailureCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> arguments = c.arguments;
    std::string expectedErrorLine = c.expectedErrorLine;
    const std::string path = writeFile("cfg.json", c.configContent);
    for (std::string& argument : arguments)
      if (argument == "$CFG") argument = path;
    if (const size_t slot = expectedErrorLine.find("$CFG"); slot != std::string::npos)
      expectedErrorLine.replace(slot, 4, path);
    const ProcessResult result = run(arguments);
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, c.expectedOut);
    // The report line, the source position of the failing statement, then the critical line.
    const size_t fileLine = result.err.find("\nfile=");
    ASSERT_NE(fileLine, std::string::npos) << result.err;
    EXPECT_EQ(result.err.substr(0, fileLine), expectedErrorLine);
    const size_t position = result.err.find(".cpp (", fileLine);
    const size_t criticalLine = result.err.find(")\nCritical error : the program stops now.\n", fileLine);
    EXPECT_NE(position, std::string::npos) << result.err;
    ASSERT_NE(criticalLine, std::string::npos) << result.err;
    EXPECT_GT(std::stoi(result.err.substr(position + 6, criticalLine - position - 6)), 0) << result.err;
    EXPECT_EQ(result.err.size(), criticalLine + std::string(")\nCritical error : the program stops now.\n").size());
  }
}

TEST_F(EndToEnd, ShapeErrorsEndThroughTheUnhandledExceptionPath) {
  const std::vector<std::vector<std::string>> cases = {
      // A block can be merged into but not created by the override.
      {kScene, "{\"layers\":{\"render.layer1\":1}}"},
      {kScene, "{\"plugin\":\"object\"}"},
      // A root that is not an object.
      {kScene, writeFile("list.json", "[1]")},
  };
  for (const auto& arguments : cases) {
    const ProcessResult result = run(arguments);
    SCOPED_TRACE(arguments.back());
    EXPECT_FALSE(result.exited && result.exitCode == 0);
    EXPECT_EQ(result.err.find("E0"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("is<object>()"), std::string::npos) << result.err;
  }
}

}  // namespace
