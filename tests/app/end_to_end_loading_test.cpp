// Which shared libraries a run loads: the image library and its dependencies only when a file
// format needs them, as seen by the dynamic loader itself (LD_DEBUG=files).
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/process_runner.h"

namespace {

const std::string kScene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";

bool loaded(const std::string& loaderLog, const std::string& library) {
  return loaderLog.find("calling init: ") != std::string::npos &&
         loaderLog.find("/" + library) != std::string::npos;
}

TEST(EndToEndLoading, TheImageLibraryLoadsOnlyForFormatsThatNeedIt) {
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / ("zvrs_loading_" + std::to_string(getpid()));
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  struct Case {
    std::string output;
    bool imageLibrary;
  };
  const std::vector<Case> cases = {{"box.png", false}, {"box.exr", true}, {"box.jpg", true}};
  for (const Case& c : cases) {
    ProcessOptions options;
    options.workingDirectory = folder.string();
    options.environment = {{"LD_DEBUG", "files"}};
    const ProcessResult result = runProcess(
        renderProgramPath(),
        {kScene, R"({"gui":0,"width":32,"height":32,"iterations":1,"plugin":"Velder64.dll","context":{"cpu":1,"threads":1},"output":")" +
                     c.output + R"("})"},
        options);
    EXPECT_EQ(result.exitCode, 0) << c.output << ": " << result.err.substr(result.err.size() > 2000 ? result.err.size() - 2000 : 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / c.output)) << c.output;
    // The loader's log names the velder plug-in either way: the log is read correctly.
    EXPECT_TRUE(loaded(result.err, "libVelder64.so")) << c.output;
    EXPECT_EQ(loaded(result.err, "libZvrImageCodec64.so"), c.imageLibrary) << c.output;
    EXPECT_EQ(loaded(result.err, "libOpenImageIO.so"), c.imageLibrary) << c.output;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
