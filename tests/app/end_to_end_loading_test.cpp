// Which shared libraries a run loads: the image library and its dependencies only when a file
// format needs them, as seen by the dynamic loader itself (LD_DEBUG=files).
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/process_runner.h"
#include "tests/support/program_run.h"

namespace {

TEST(EndToEndLoading, TheImageLibraryLoadsOnlyForFormatsThatNeedIt) {
  const std::string scene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";
  RunFolder folder("loading");
  for (const auto& [output, imageLibrary] : {std::pair{"box.png", false}, {"box.exr", true}, {"box.jpg", true}}) {
    SCOPED_TRACE(output);
    const ProcessResult result = runProcess(
        renderProgramPath(),
        {scene, std::string(R"({"gui":0,"width":32,"height":32,"iterations":1,"plugin":"Velder64.dll",)"
                            R"("context":{"cpu":1,"threads":1},"output":")") + output + "\"}"},
        {folder, {{"LD_DEBUG", "files"}}});
    EXPECT_EQ(result.exitCode, 0) << result.err.substr(result.err.size() > 2000 ? result.err.size() - 2000 : 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / output));
    const auto loaded = [&](const std::string& library) {
      return result.err.find("calling init: ") != std::string::npos && result.err.find("/" + library) != std::string::npos;
    };
    // The loader's log names the velder plug-in either way: the log is read correctly.
    EXPECT_TRUE(loaded("libVelder64.so"));
    EXPECT_EQ(loaded("libZvrImageCodec64.so"), imageLibrary);
    EXPECT_EQ(loaded("libOpenImageIO.so"), imageLibrary);
  }
}

}  // namespace
