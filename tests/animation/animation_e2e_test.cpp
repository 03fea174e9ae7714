// The program poses an animated glTF scene at "animation.time" exactly as the file's own channels
// define it; a still scene sends each matrix at most once and nothing for an identity.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "tests/animation/reference_matrices.h"
#include "tests/support/program_run.h"

namespace {

const std::string kScenes = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/";
const double kPi = 3.14159265358979323846;

// The traced matrix, row-major as sent with transpose=1, equals `expected`.
bool sameMatrix(const std::string& line, const reference::M4& expected) {
  const size_t open = line.find("transpose=1, matrix=[");
  std::istringstream numbers(open == std::string::npos ? "" : line.substr(open + 21));
  double value = 0;
  for (double wanted : expected)
    if (!(numbers >> value) || std::fabs(value - wanted) > 2e-5 * std::max(1.0, std::fabs(wanted))) return false;
  return true;
}

// BoxAnimated's inner box, posed by hand from the file's two channels: its root rises from 0 to
// 2.52 by 1.25 s, stays up until 2.5 s and sinks back by 3.70833 s; the box itself turns half
// about x from 1.25 s to 2.5 s (slerp of two quaternions 90 degrees apart). The first and last
// keys hold outside the channels' times.
reference::M4 innerBoxAt(double t) {
  const double rise = std::clamp(t / 1.25, 0.0, 1.0), sink = std::clamp((t - 2.5) / (3.70833 - 2.5), 0.0, 1.0);
  const double turn = std::clamp((t - 1.25) / 1.25, 0.0, 1.0);
  return reference::mul(reference::translation(0, 2.52 * (rise - sink), 0), reference::rotationX(kPi * turn));
}

// Every run sends each object's matrix at most once, nothing for an identity.
TEST(AnimationEndToEnd, ShapesFollowTheFilesChannels) {
  const RunFolder folder("animation");
  const std::string config = folder / "config.json", animated = kScenes + "BoxAnimated/BoxAnimated.glb";
  std::ofstream(config) << R"({"plugin":"Velder64.dll","gui":0,"width":32,"height":24,"iterations":1,"batchsize":1,"print.progress":0,)"
                        << R"("print.result":0,"output.json":"stats.json","context":{"gpu0":0,"threads":2}})";
  // On the first key (inner box hidden in the outer one, so nothing is sent), rising out of it,
  // on an inner key, half way through the turn, sinking back, after the last key; last a still
  // scene whose root matrix turns y up into z.
  const std::vector<std::pair<std::string, double>> runs = {{animated, 0.0}, {animated, 0.3}, {animated, 1.25}, {animated, 1.875},
                                                            {animated, 3.6}, {animated, 5.0}, {kScenes + "Box/Box.glb", 2.0}};
  std::vector<std::string> pictures;
  for (const auto& [scene, time] : runs) {
    SCOPED_TRACE(scene + " at " + std::to_string(time));
    const std::string image = "t" + std::to_string(pictures.size()) + ".png";
    std::ostringstream override_;
    override_ << R"({"animation.time":)" << time << R"(,"output":")" << image << "\"}";
    const ProgramRun run = runProgram(folder, {scene, config, override_.str()});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::set<std::string> handles;
    for (const char* operation : {"zvrShapeSetTransform", "zvrLightSetTransform", "zvrCameraSetTransform"})
      for (const std::string& line : run.calls(operation))
        EXPECT_TRUE(handles.insert(line.substr(0, line.find(','))).second) << "sent twice: " << line;
    const std::vector<std::string> sent = run.calls("zvrShapeSetTransform");
    ASSERT_EQ(sent.size(), time == 0.0 ? 0u : 1u);
    const reference::M4 expected = scene == animated ? innerBoxAt(time) : reference::rotationX(-kPi / 2);
    for (const std::string& line : sent) EXPECT_TRUE(sameMatrix(line, expected)) << line;
    pictures.push_back(readWholeFile(folder / image));
  }
  EXPECT_FALSE(pictures[0].empty());
  EXPECT_TRUE(pictures[0] != pictures[1]) << "the inner box shows at 0.3 and not at 0";
  EXPECT_TRUE(pictures[1] != pictures[4]) << "the inner box stands higher at 0.3 than at 3.6";
}

}  // namespace
