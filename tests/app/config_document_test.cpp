// The command line, the configuration document and the override merge.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "Apps/ZvrsRender/command_line.h"
#include "program/config_json.h"

using namespace zvrs;

namespace {

ConfigDocument parse(const std::string& text) { return parseJsonString(text.data(), text.size()); }

struct CommandLineCase {
  std::vector<const char*> arguments;
  std::string sceneFile;
  std::string configFile;
  std::string overrideJson;  // serialised override, "null" when none
};

TEST(CommandLine, SplitsSceneConfigAndOverride) {
  const CommandLineCase cases[] = {
      {{"zvrsRender64", "scene.glb"}, "scene.glb", "", "null"},
      {{"zvrsRender64", "scene.glb", "cfg.json"}, "scene.glb", "cfg.json", "null"},
      {{"zvrsRender64", "scene.glb", "{\"iterations\":5}"}, "scene.glb", "", "{\"iterations\":5}"},
      {{"zvrsRender64", "scene.glb", "cfg.json", "{\"iterations\":5}", "ignored"}, "scene.glb", "cfg.json",
       "{\"iterations\":5}"},
      // Any four characters name a configuration file.
      {{"zvrsRender64", "scene.glb", "abcd"}, "scene.glb", "abcd", "null"},
      {{"zvrsRender64", "scene.glb", "[10]"}, "scene.glb", "[10]", "null"},
      {{"zvrsRender64", "scene.glb", ".json"}, "scene.glb", ".json", "null"},
      {{"zvrsRender64", "scene.glb", "dir/a.json.json", "3"}, "scene.glb", "dir/a.json.json", "3"},
      // Shorter than four characters, or ".json" not at the end: parsed as the override.
      {{"zvrsRender64", "scene.glb", "123"}, "scene.glb", "", "123"},
      {{"zvrsRender64", "scene.glb", "\"a.jsonx\""}, "scene.glb", "", "\"a.jsonx\""},
  };
  for (const CommandLineCase& c : cases) {
    CommandLine commandLine;
    ASSERT_TRUE(parseCommandLine(static_cast<int>(c.arguments.size()), c.arguments.data(), commandLine));
    EXPECT_EQ(commandLine.sceneFile, c.sceneFile) << c.arguments.back();
    EXPECT_EQ(commandLine.configFile, c.configFile) << c.arguments.back();
    EXPECT_EQ(commandLine.override.serialize(), c.overrideJson) << c.arguments.back();
  }
}

TEST(CommandLineDeathTest, FailuresStopWithTheirCode) {
  const char* noScene[] = {"zvrsRender64"};
  EXPECT_EXIT(
      {
        CommandLine commandLine;
        parseCommandLine(1, noScene, commandLine);
      },
      testing::ExitedWithCode(1), "^E010001: ZVR file isn't specified.\nfile=.*\\([0-9]+\\)\nCritical error : the program stops now.\n$");
  // Case matters: ".JSON" is no configuration file, so the text is parsed as JSON.
  const char* upperCase[] = {"zvrsRender64", "scene.glb", "cfg.JSON"};
  EXPECT_EXIT(
      {
        CommandLine commandLine;
        parseCommandLine(3, upperCase, commandLine);
      },
      testing::ExitedWithCode(1), "^E010005: syntax error at line 1 near: cfg.JSON\n");
}

struct SyntaxErrorCase {
  std::string text;
  std::string expectedMessage;
};

TEST(JsonTextDeathTest, SyntaxErrorsNameLineAndRestOfIt) {
  const SyntaxErrorCase cases[] = {
      {"{\"a\":1,\n\"b\":x2,\n\"c\":3}", "syntax error at line 2 near: x2,"},
      {"{\"a\":1,\n\t\"b\":\t[1,,2]}\n", "syntax error at line 2 near: ,2]}"},
      {"", "syntax error at line 1 near: "},
      {"{\"a\":", "syntax error at line 1 near: "},
      // Numbers beyond a double's range, also behind a string that looks like one.
      {"{\"s\":\"1e999\",\n\"width\":1e400}", "syntax error at line 2 near: 1e400}"},
      {"{\"s\":\"\\\"9e999\",\t\"w\":[1,\n2,\n-2e308]}", "syntax error at line 3 near: -2e308]}"},
  };
  for (const SyntaxErrorCase& c : cases) {
    EXPECT_EXIT(parse(c.text), testing::ExitedWithCode(1), "^E010005: " + c.expectedMessage + "\nfile=")
        << c.text;
  }
}

TEST(JsonText, TextBehindTheFirstValueIsNotRead) {
  const ConfigDocument document = parse("{\"a\":1} garbage");
  EXPECT_EQ(document.serialize(), "{\"a\":1}");
}

TEST(JsonText, DefaultConfigurationParses) {
  const ConfigDocument document = parse(defaultConfigText);
  ASSERT_TRUE(document.is<picojson::object>());
  EXPECT_EQ(document.get("plugin").get<std::string>(), "Quillon64.dll");
  EXPECT_EQ(document.get("gui").get<double>(), 1.0);
  EXPECT_EQ(document.get("output").get<std::string>(), "test.png");
  EXPECT_EQ(document.get("context").get("threads").get<double>(), 16.0);
  EXPECT_EQ(document.get("aovs").get("normal").get<std::string>(), "test_n.png");
  EXPECT_EQ(document.serialize(),
            "{\"animation.time\":0,\"aovs\":{\"normal\":\"test_n.png\"},\"context\":{\"debug\":0,\"gpu0\":1,\"gpu1\":0,"
            "\"threads\":16},\"gui\":1,\"height\":720,\"iterations\":10,\"output\":\"test.png\",\"output.json\":"
            "\"output.json\",\"plugin\":\"Quillon64.dll\",\"print.progress\":1,\"radianceclamp\":2,\"width\":1280}");
}

class ConfigFileTest : public testing::Test {
 protected:
  std::string writeFile(const std::string& name, const std::string& content) {
    const std::string path = testing::TempDir() + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
};

TEST_F(ConfigFileTest, LoadsFile) {
  const std::string path = writeFile("spine_config_ok.json", "{\"iterations\":7,\"output\":[\"a.png\",\"b.exr\"]}");
  const ConfigDocument document = loadConfigFile(path);
  EXPECT_EQ(document.get("iterations").get<double>(), 7.0);
}

TEST_F(ConfigFileTest, MissingEmptyAndBrokenFilesStop) {
  const std::string empty = writeFile("spine_config_empty.json", "");
  const std::string broken = writeFile("spine_config_broken.json", "{\n\"a\":1\n\"b\":2}");
  EXPECT_EXIT(loadConfigFile("/nonexistent/cfg.json"), testing::ExitedWithCode(1),
              "^E010004: Config file '/nonexistent/cfg.json' not found.\n");
  EXPECT_EXIT(loadConfigFile(empty), testing::ExitedWithCode(1), "^E010005: Config file '.*spine_config_empty.json' is empty.\n");
  EXPECT_EXIT(loadConfigFile(broken), testing::ExitedWithCode(1), "^E010005: syntax error at line 3 near: \"b\":2}\n");
  EXPECT_EXIT(loadConfigFile(testing::TempDir()), testing::ExitedWithCode(1), "^E010004: Config file '.*' not found.\n");
}

struct ValueTextCase {
  std::string json;
  std::string text;
};

TEST(ValueToText, PrintsLikePicojson) {
  const ValueTextCase cases[] = {
      {"null", "null"},         {"true", "true"},   {"false", "false"},        {"2.0", "2"},
      {"-40", "-40"},           {"0.5", "0.5"},     {"1e300", "1.0000000000000001e+300"},
      {"9007199254740992", "9007199254740992"},     {"\"text\"", "text"},      {"[1,2]", "array"},
      {"{\"a\":1}", "object"},  {"0.1", "0.10000000000000001"},
  };
  for (const ValueTextCase& c : cases) EXPECT_EQ(valueToText(parse(c.json)), c.text) << c.json;
}

struct MergeCase {
  std::string target;
  std::string override;
  std::string merged;
  std::string printed;
};

TEST(MergeOverride, ChangesAndAddsKeysInKeyOrder) {
  const MergeCase cases[] = {
      {"{\"iterations\":10}", "{\"iterations\":40}", "{\"iterations\":40}",
       "Command Argument: override parameter 'iterations' from value '10' to '40'\n"},
      {"{\"width\":1}", "{\"iterations\":40}", "{\"iterations\":40,\"width\":1}",
       "Command Argument: add parameter 'iterations' to value '40'\n"},
      // Printed in key order, not in the order typed.
      {"{\"b\":1}", "{\"c\":true,\"a\":2.0,\"b\":\"x\"}", "{\"a\":2,\"b\":\"x\",\"c\":true}",
       "Command Argument: add parameter 'a' to value '2'\n"
       "Command Argument: override parameter 'b' from value '1' to 'x'\n"
       "Command Argument: add parameter 'c' to value 'true'\n"},
      // Nested blocks merge key by key.
      {"{\"context\":{\"gpu0\":1,\"threads\":16}}", "{\"context\":{\"cpu\":1,\"gpu0\":0}}",
       "{\"context\":{\"cpu\":1,\"gpu0\":0,\"threads\":16}}",
       "Command Argument: add parameter 'cpu' to value '1'\n"
       "Command Argument: override parameter 'gpu0' from value '1' to '0'\n"},
      // Arrays replace whole; a new type is taken as it comes.
      {"{\"output\":\"a.png\"}", "{\"output\":[\"b.png\",\"c.exr\"]}", "{\"output\":[\"b.png\",\"c.exr\"]}",
       "Command Argument: override parameter 'output' from value 'a.png' to 'array'\n"},
      {"{\"a\":1}", "{}", "{\"a\":1}", ""},
      // A missing block with an empty override block does nothing.
      {"{\"a\":1}", "{\"layers\":{}}", "{\"a\":1}", ""},
      // Overrides that are not objects are dropped.
      {"{\"a\":1}", "5", "{\"a\":1}", ""},
      {"{\"a\":1}", "[{\"a\":2}]", "{\"a\":1}", ""},
      {"{\"a\":1}", "null", "{\"a\":1}", ""},
  };
  for (const MergeCase& c : cases) {
    ConfigDocument target = parse(c.target);
    testing::internal::CaptureStdout();
    mergeOverride(parse(c.override), target);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed) << c.override;
    EXPECT_EQ(target.serialize(), c.merged) << c.override;
  }
}

TEST(MergeOverride, BlocksCannotBeCreatedOrMergedIntoValues) {
  const char* const cases[][2] = {
      {"{\"a\":1}", "{\"context\":{\"cpu\":1}}"},
      {"{\"context\":3}", "{\"context\":{\"cpu\":1}}"},
      // The string "object" is taken for a block.
      {"{\"context\":{}}", "{\"plugin\":\"object\"}"},
      {"[1]", "{\"a\":1}"},
  };
  for (const auto& c : cases) {
    ConfigDocument target = parse(c[0]);
    EXPECT_THROW(mergeOverride(parse(c[1]), target), std::runtime_error) << c[1];
  }
}

struct OutputListCase {
  std::string document;
  std::vector<std::string> names;
};

TEST(ReadOutputList, AcceptsStringsAndArraysOfStrings) {
  const OutputListCase cases[] = {
      {"{\"output\":\"a.png\"}", {"a.png"}},
      {"{\"output\":[\"a.png\",3,\"b.exr\",null,[\"c\"]]}", {"a.png", "b.exr"}},
      {"{\"output\":7}", {}},
      {"{\"output\":{\"a\":\"b\"}}", {}},
      {"{}", {}},
  };
  for (const OutputListCase& c : cases) EXPECT_EQ(readOutputList(parse(c.document), "output"), c.names) << c.document;
  EXPECT_THROW(readOutputList(parse("[\"a.png\"]"), "output"), std::runtime_error);
}

}  // namespace
