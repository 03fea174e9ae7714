// Pictures the program renders as a user runs it, read back as linear EXR: the user's sky through
// the keys "environment", "environment.intensity" and "environment.rotation", and a sample scene.
// A sky image that cannot be read is a row of the failure table.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/render/image_file.h"
#include "tests/support/program_run.h"

namespace {

// A closed white diffuse cube of side 2 about the origin, four corners per face so that the
// generated normals are the faces', as a glTF with its buffer.
void writeWhiteCube(const std::string& folder) {
  std::vector<float> positions;
  std::vector<uint16_t> indices;
  for (int axis = 0; axis < 3; ++axis)
    for (int sign : {-1, 1}) {
      const uint16_t base = uint16_t(positions.size() / 3);
      for (auto [a, b] : {std::pair{-1, -1}, {1, -1}, {1, 1}, {-1, 1}}) {
        float p[3];
        p[axis] = float(sign), p[(axis + 1) % 3] = float(a), p[(axis + 2) % 3] = float(b);
        positions.insert(positions.end(), p, p + 3);
      }
      // Counter-clockwise seen from outside.
      const uint16_t second = uint16_t(base + (sign > 0 ? 1 : 3)), fourth = uint16_t(base + (sign > 0 ? 3 : 1));
      indices.insert(indices.end(), {base, second, uint16_t(base + 2), base, uint16_t(base + 2), fourth});
    }
  std::string bin(reinterpret_cast<const char*>(positions.data()), positions.size() * 4);
  bin.append(reinterpret_cast<const char*>(indices.data()), indices.size() * 2);
  std::ofstream(folder + "/cube.bin", std::ios::binary) << bin;
  std::ofstream(folder + "/cube.gltf")
      << R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[{"mesh":0}],
"meshes":[{"primitives":[{"attributes":{"POSITION":0},"indices":1,"material":0}]}],
"materials":[{"pbrMetallicRoughness":{"baseColorFactor":[1,1,1,1],"metallicFactor":0,"roughnessFactor":1}}],
"buffers":[{"uri":"cube.bin","byteLength":)" << bin.size() << R"(}],"bufferViews":[{"buffer":0,"byteLength":288},
{"buffer":0,"byteOffset":288,"byteLength":72}],"accessors":[{"bufferView":0,"componentType":5126,"count":24,"type":"VEC3",
"min":[-1,-1,-1],"max":[1,1,1]},{"bufferView":1,"componentType":5123,"count":36,"type":"SCALAR"}]})";
}

// A Radiance HDR of a dim sky with one bright column (flat scanlines, RGBE).
void writeStripedSky(const std::filesystem::path& path, int width, int height, int brightColumn) {
  std::ofstream out(path, std::ios::binary);
  out << "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y " << height << " +X " << width << "\n";
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      // 0.5 and 8 as mantissa 128 with exponents 128 and 132.
      const unsigned char texel[4] = {128, 128, 128, static_cast<unsigned char>(x == brightColumn ? 132 : 128)};
      out.write(reinterpret_cast<const char*>(texel), 4);
    }
}

class EnvironmentRun : public testing::Test {
 protected:
  void SetUp() override { writeWhiteCube(folder_); }

  // Renders the cube (or another scene of the folder) with the Velder plug-in; `keys` are added
  // to the override.
  ProgramRun render(const std::string& keys, const std::string& output = "out.exr", const std::string& scene = "cube.gltf") {
    const std::string override = R"({"gui":0,"plugin":"velder","width":64,"height":32,"iterations":32,"output":")" + output +
                                 "\"" + (keys.empty() ? "" : "," + keys) + "}";
    return runProgram(folder_, {folder_ / scene, override});
  }
  ImageFile picture(const std::string& name = "out.exr") { return readImageFile(folder_ / name); }

  RunFolder folder_{"environment"};
};

double channelMean(const ImageFile& p, int c) {
  double sum = 0;
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) sum += p.at(x, y, c);
  return sum / (double(p.width) * p.height);
}

int brightestColumn(const ImageFile& p) {
  int best = -1;
  float bestValue = 0;
  for (int x = 0; x < p.width; ++x)
    if (p.at(x, 8, 1) > bestValue) {
      bestValue = p.at(x, 8, 1);
      best = x;
    }
  return best;
}

// A white diffuse object under a constant sky of colour c disappears into it, scaled by the intensity.
// A 360 camera at the cube's side sees the sky's bright column where the image holds it; turning the
// sky by 90 degrees about up moves it by a quarter of the picture's width, to the left (towards
// smaller u). The ".xml" export of a run with a sky carries it, the image embedded, so the document
// renders without any key as the scene did with them.
TEST_F(EnvironmentRun, SkyColourIntensityRotationAndItsXmlExport) {
  const std::string camera = R"("cameratype":"360","camera.transform":[1,0,0,0,0,1,0,0,0,0,1,0,0,0,6,1])";
  writeStripedSky(folder_ / "sky.hdr", 64, 32, 8);
  ASSERT_EQ(render(camera + R"(,"environment":"sky.hdr")").exitCode, 0);
  EXPECT_EQ(brightestColumn(picture()), 8) << "with no rotation the picture shows the sky as the image holds it";
  const float furnace[3] = {0.4f, 1.0f, 1.6f};  // the sky's colour times its intensity
  struct Case {
    const char* name;
    std::string view, sky;
    int brightColumn;  // -1: a furnace, no column to look for
  };
  const Case cases[] = {
      {"colour", "", R"("environment":[0.2,0.5,0.8],"environment.intensity":2)", -1},
      {"image", camera, R"("environment":"sky.hdr","environment.rotation":90,"environment.intensity":0.5)", 8 - 16 + 64},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    writeStripedSky(folder_ / "sky.hdr", 64, 32, 8);
    const std::string keys = c.view.empty() ? c.sky : c.view + "," + c.sky;
    ProgramRun result = render(keys);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const ImageFile direct = picture();
    ASSERT_EQ(direct.width, 64);
    if (c.brightColumn >= 0) {
      EXPECT_EQ(brightestColumn(direct), c.brightColumn);
    } else {
      for (int ch = 0; ch < 3; ++ch) {
        EXPECT_NEAR(channelMean(direct, ch), furnace[ch], 0.01 * furnace[ch]);
        // A 4x4 block: the converged centre lies 2.4% below the sky (the default rough metal's
        // albedo), too close to the bound for one pixel's noise at 32 samples.
        double centre = 0;
        for (int y = 14; y < 18; ++y)
          for (int x = 30; x < 34; ++x) centre += direct.at(x, y, ch) / 16;
        EXPECT_NEAR(centre, furnace[ch], 0.03 * furnace[ch]) << "the cube's centre";
      }
    }
    result = render(keys, ".xml");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::filesystem::remove(folder_ / "sky.hdr");
    result = render(c.view, "again.exr", ".xml");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const ImageFile again = picture("again.exr");
    ASSERT_EQ(again.width, direct.width);
    for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(channelMean(again, ch), channelMean(direct, ch), 0.01 * channelMean(direct, ch));
    EXPECT_EQ(brightestColumn(again), brightestColumn(direct));
  }
}

// The texture-transform sample scene: the rotated arrow must point at the sample's green marker
// (rotation applied counter-clockwise), not at its red one (reversed).
TEST(TextureTransformScene, RotatedArrowPointsAtTheGreenMarker) {
  RunFolder folder("texture_transform");
  const std::string scene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/TextureTransformTest/TextureTransformTest.gltf";
  const ProgramRun run =
      runProgram(folder, {scene, R"({"gui":0,"plugin":"velder","width":160,"height":120,"iterations":8,"output":"arrows.exr"})"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const ImageFile p = readImageFile(folder / "arrows.exr");
  ASSERT_EQ(p.width, 160);
  // Mean brightness of a 3 x 3 patch around (x, y).
  auto patch = [&](int x, int y) {
    double sum = 0;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx)
        for (int c = 0; c < 3; ++c) sum += p.at(x + dx, y + dy, c);
    return sum / 27;
  };
  // The bottom-left quad: the shaft towards the green marker below, and where a reversed rotation
  // would put it, towards the red marker on the right.
  EXPECT_LT(patch(40, 72), 0.4) << "the arrow's shaft is missing on its way to the green marker";
  EXPECT_GT(patch(53, 68), 0.7) << "the arrow points towards the red marker";
}

}  // namespace
