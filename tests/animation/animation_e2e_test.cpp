// The program poses an animated glTF scene at "animation.time" exactly as the file's own channels
// define it; a still scene sends each matrix at most once and nothing for an identity.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/animation/gltf_animation_reference.h"
#include "tests/support/program_run.h"

namespace {

const std::string kScenes = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/";

const char* kConfig =
    R"({"plugin":"Velder64.dll","gui":0,"width":32,"height":24,"iterations":1,"batchsize":1,)"
    R"("print.progress":0,"print.result":0,"output.json":"stats.json","context":{"gpu0":0,"threads":2}})";

std::vector<double> matrixOf(const std::string& line) {
  std::vector<double> values;
  const size_t open = line.find("matrix=[");
  if (open == std::string::npos) return values;
  std::istringstream numbers(line.substr(open + 8, line.find(']', open) - open - 8));
  for (double v; numbers >> v;) values.push_back(v);
  return values;
}

bool isIdentity(const reference::M4& m) {
  const reference::M4 identity = reference::identity();
  for (int i = 0; i < 16; ++i)
    if (std::fabs(m[i] - identity[i]) > 1e-6) return false;
  return true;
}

bool sameMatrix(const std::vector<double>& traced, const reference::M4& expected) {
  if (traced.size() != 16) return false;
  for (int i = 0; i < 16; ++i)
    if (std::fabs(traced[i] - expected[i]) > 2e-5 * std::max(1.0, std::fabs(expected[i]))) return false;
  return true;
}

std::string writeConfig(const std::string& folder) {
  const std::string path = folder + "/config.json";
  std::ofstream(path) << kConfig;
  return path;
}

TEST(AnimationEndToEnd, ShapesFollowTheFilesChannels) {
  const std::string scene = kScenes + "BoxAnimated/BoxAnimated.glb";
  const GltfAnimationReference gltf(scene);
  const RunFolder folder("box_animated");
  const std::string config = writeConfig(folder);
  // On the first key (inner box hidden in the outer one), rising out of it, on an inner key, half
  // way through the rotation, sinking back, after the last key.
  const double times[] = {0.0, 0.3, 1.25, 1.875, 3.6, 5.0};
  std::vector<std::string> pictures;
  for (double time : times) {
    const std::string image = "t" + std::to_string(pictures.size()) + ".png";
    std::ostringstream override_;
    override_ << R"({"animation.time":)" << time << R"(,"output":")" << image << "\"}";
    const ProgramRun run = runProgram(folder, {scene, config, override_.str()});
    ASSERT_EQ(run.exitCode, 0) << run.err;

    std::vector<reference::M4> moved;
    for (int node : gltf.meshNodes()) {
      const reference::M4 world = gltf.worldMatrix(node, time);
      if (!isIdentity(world)) moved.push_back(world);
    }
    const std::vector<std::string> sent = run.calls("zvrShapeSetTransform");
    ASSERT_EQ(sent.size(), moved.size()) << "time " << time;
    for (const std::string& line : sent) {
      EXPECT_NE(line.find("transpose=1"), std::string::npos) << line;
      bool matched = false;
      for (const reference::M4& world : moved) matched = matched || sameMatrix(matrixOf(line), world);
      EXPECT_TRUE(matched) << "time " << time << ": " << line;
    }
    pictures.push_back(readWholeFile(folder / image));
    EXPECT_FALSE(pictures.back().empty()) << "time " << time;
  }
  EXPECT_TRUE(pictures[0] != pictures[1]) << "the inner box shows at 0.3 and not at 0";
  EXPECT_TRUE(pictures[1] != pictures[4]) << "the inner box stands higher at 0.3 than at 3.6";
}

TEST(AnimationEndToEnd, StillSceneSendsEachMatrixAtMostOnce) {
  const std::string scene = kScenes + "Box/Box.glb";
  const GltfAnimationReference gltf(scene);
  const RunFolder folder("box_still");
  const ProgramRun run = runProgram(folder, {scene, writeConfig(folder), R"({"animation.time":2.0})"});
  ASSERT_EQ(run.exitCode, 0) << run.err;

  std::set<std::string> handles;
  for (const char* operation : {"zvrShapeSetTransform", "zvrLightSetTransform", "zvrCameraSetTransform"}) {
    for (const std::string& line : run.calls(operation)) {
      const std::string handle = line.substr(0, line.find(','));
      EXPECT_TRUE(handles.insert(handle).second) << "sent twice: " << line;
    }
  }
  const std::vector<std::string> shapes = run.calls("zvrShapeSetTransform");
  ASSERT_EQ(shapes.size(), 1u);
  EXPECT_TRUE(sameMatrix(matrixOf(shapes[0]), gltf.worldMatrix(gltf.meshNodes()[0], 0.0))) << shapes[0];
}

}  // namespace
