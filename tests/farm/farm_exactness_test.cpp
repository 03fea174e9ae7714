// zvrsFarm end to end on this machine (--local): shards merged equal one long zvrsRender64 run file
// for file; an incomplete job is refused with what is missing; wrong submissions are refused.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/farm/farm_run.h"

namespace {

const std::string kBox = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";

TEST(FarmExactness, FourShardsOfSixteenEqualOneRunOfSixtyFour) {
  const struct {
    const char* label;
    const char* settings;
    std::vector<std::string> files;
  } cases[] = {
      {"colour in PNG and EXR, a data AOV and a light AOV",
       R"("output":["out.png","out.exr"],"aovs":{"normal":"normal.exr","depth":"depth.png","direct.illumination":"direct.exr"})",
       {"out.png", "out.exr", "normal.exr", "depth.png", "direct.exr", "stats.json"}},
      {"multilayer EXR with the colour also as PNG", R"("multilayerexr":1,"output":["layers.exr","color.png"],"aovs":{"normal":"n","albedo.diffuse":"a"})",
       {"layers.exr", "color.png", "stats.json"}},
      {"post-processed colour", R"("output":"post.png","postprocess.exposure":1.5,"postprocess.gammacorrection":"LinearTosRGB")",
       {"post.png", "stats.json"}},
  };
  for (const auto& c : cases) {
    const RunFolder folder("exact");
    const std::string config = writeConfig(folder, c.settings);
    const std::string longRun = folder / "long";
    std::filesystem::create_directory(longRun);
    const ProcessResult single = runIn(longRun, renderProgramPath(), {kBox, config});
    ASSERT_EQ(single.exitCode, 0) << c.label << "\n" << single.err;

    const ProcessResult farm = runIn(folder, farmProgram(), {"submit", kBox, config, "--shards", "4", "--local", "--job", "job"});
    ASSERT_EQ(farm.exitCode, 0) << c.label << "\n" << farm.out << farm.err;
    expectSameFiles(c.label, longRun, folder / "job/output", c.files);

    // A second merge writes the same files again.
    const ProcessResult again = runIn(folder, farmProgram(), {"merge", "--job", "job"});
    ASSERT_EQ(again.exitCode, 0) << c.label << "\n" << again.err;
    expectSameFiles(c.label + std::string(", merged twice"), longRun, folder / "job/output", c.files);
  }
}

TEST(FarmFaults, MergeNamesMissingShardsAndFrames) {
  const RunFolder folder("missing");
  const std::string config = writeConfig(folder, R"("output":"out.png","iterations":8)");
  const std::string animated = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/BoxAnimated/BoxAnimated.glb";
  const ProcessResult farm = runIn(folder, farmProgram(),
                                {"submit", animated, config, "--shards", "3", "--frames", "4:6:2", "--fps", "24",
                                 "--local", "--job", "job"});
  ASSERT_EQ(farm.exitCode, 0) << farm.out << farm.err;
  ASSERT_TRUE(fileExists(folder / "job/output/frame_0004/out.png"));
  ASSERT_TRUE(fileExists(folder / "job/output/frame_0006/out.png"));
  // Tasks are numbered frame by frame: 2 is frame 4 shard 2, 3 and 5 are frame 6 shards 0 and 2.
  for (const char* task : {"2", "3", "5"}) std::remove((folder / ("job/shards/" + std::string(task) + "/done.json")).c_str());
  std::remove((folder / "job/output/frame_0004/out.png").c_str());
  const ProcessResult merge = runIn(folder, farmProgram(), {"merge", "--job", "job"});
  EXPECT_EQ(merge.exitCode, 1);
  EXPECT_NE(merge.err.find("incomplete; nothing was written. Missing:\n  frame 4: shards 2\n  frame 6: shards 0, 2\n"),
            std::string::npos)
      << merge.err;
  EXPECT_FALSE(fileExists(folder / "job/output/frame_0004/out.png")) << "a refused merge writes nothing";
  const ProcessResult status = runIn(folder, farmProgram(), {"status", "--job", "job"});
  EXPECT_NE(status.out.find("pending 3, running 0, done 3, failed 0"), std::string::npos) << status.out;
}

TEST(FarmFaults, SubmissionsThatCannotBeMergedExactlyAreRefused) {
  const struct {
    const char* label;
    const char* settings;
    std::vector<std::string> options;
    const char* message;
  } cases[] = {
      {"preview plug-in", R"("plugin":"Dorrik.dll")", {"--shards", "2"}, "keeps running averages"},
      {"deep output", R"("aovs":{"deep.color":"deep.exr"})", {"--shards", "2"}, "\"deep.color\" is not a sum of samples"},
      {"variance output", R"("aovs":{"variance":"v.exr"})", {"--shards", "2"}, "\"variance\" is not a sum of samples"},
      {"more shards than samples", R"("iterations":3)", {"--shards", "4"}, "4 shards need at least 4 iterations"},
      {"frames without a rate", "", {"--shards", "2", "--frames", "1:3"}, "--frames needs --fps"},
      {"backwards frames", "", {"--shards", "2", "--frames", "5:1", "--fps", "24"}, "is empty"},
      {"no shards", "", {}, "--shards is required"},
  };
  for (const auto& c : cases) {
    const RunFolder folder("refused");
    std::vector<std::string> arguments = {"submit", kBox, writeConfig(folder, c.settings)};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    arguments.insert(arguments.end(), {"--local", "--job", "job"});
    const ProcessResult farm = runIn(folder, farmProgram(), arguments);
    EXPECT_NE(farm.exitCode, 0) << c.label;
    EXPECT_NE(farm.err.find(c.message), std::string::npos) << c.label << "\n" << farm.err;
    EXPECT_FALSE(fileExists(folder / "job/shards")) << c.label << ": nothing is submitted";
  }
}

}  // namespace
