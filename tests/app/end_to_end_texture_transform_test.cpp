// The texture-transform sample scene as a user renders it: the rotated arrow must point at the
// sample's green marker (rotation applied counter-clockwise), not at its red one (reversed).
#include <gtest/gtest.h>
#include <OpenImageIO/imageio.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/process_runner.h"

namespace {

TEST(TextureTransformScene, RotatedArrowPointsAtTheGreenMarker) {
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / ("zvrs_texture_transform_" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  ProcessOptions options;
  options.workingDirectory = folder.string();
  const std::string scene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/TextureTransformTest/TextureTransformTest.gltf";
  const ProcessResult result = runProcess(
      renderProgramPath(),
      {scene, R"({"gui":0,"plugin":"velder","width":160,"height":120,"iterations":8,"output":"arrows.exr"})"}, options);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  auto in = OIIO::ImageInput::open((folder / "arrows.exr").string());
  ASSERT_TRUE(in);
  const int width = in->spec().width;
  std::vector<float> rgba(size_t(width) * in->spec().height * 4);
  in->read_image(0, 0, 0, 4, OIIO::TypeDesc::FLOAT, rgba.data());
  std::filesystem::remove_all(folder);
  // Mean brightness of a 3 x 3 patch around (x, y).
  auto patch = [&](int x, int y) {
    double sum = 0;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx)
        for (int c = 0; c < 3; ++c) sum += rgba[(size_t(y + dy) * width + x + dx) * 4 + c];
    return sum / 27;
  };
  // The bottom-left quad: the shaft towards the green marker below, and where a reversed rotation
  // would put it, towards the red marker on the right.
  EXPECT_LT(patch(40, 72), 0.4) << "the arrow's shaft is missing on its way to the green marker";
  EXPECT_GT(patch(53, 68), 0.7) << "the arrow points towards the red marker";
}

}  // namespace
