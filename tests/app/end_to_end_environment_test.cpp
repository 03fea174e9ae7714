// The user's sky through the configuration keys "environment", "environment.intensity" and
// "environment.rotation", run as a user runs the program, pictures read back as linear EXR.
#include <gtest/gtest.h>
#include <OpenImageIO/imageio.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/process_runner.h"

namespace {

// A closed white diffuse cube of side 2 about the origin, flat-shaded, as a glTF with its buffer.
void writeWhiteCube(const std::filesystem::path& folder) {
  std::vector<float> positions, normals;
  std::vector<uint16_t> indices;
  for (int axis = 0; axis < 3; ++axis)
    for (int sign : {-1, 1}) {
      float n[3] = {0, 0, 0};
      n[axis] = float(sign);
      int u = (axis + 1) % 3, v = (axis + 2) % 3;
      uint16_t base = uint16_t(positions.size() / 3);
      for (auto [a, b] : {std::pair{-1, -1}, {1, -1}, {1, 1}, {-1, 1}}) {
        float p[3];
        p[axis] = float(sign);
        p[u] = float(a);
        p[v] = float(b);
        positions.insert(positions.end(), p, p + 3);
        normals.insert(normals.end(), n, n + 3);
      }
      // Counter-clockwise seen from outside.
      if (sign > 0) indices.insert(indices.end(), {base, uint16_t(base + 1), uint16_t(base + 2), base, uint16_t(base + 2), uint16_t(base + 3)});
      else indices.insert(indices.end(), {base, uint16_t(base + 2), uint16_t(base + 1), base, uint16_t(base + 3), uint16_t(base + 2)});
    }
  std::string bin;
  bin.append(reinterpret_cast<const char*>(positions.data()), positions.size() * 4);
  bin.append(reinterpret_cast<const char*>(normals.data()), normals.size() * 4);
  bin.append(reinterpret_cast<const char*>(indices.data()), indices.size() * 2);
  std::ofstream(folder / "cube.bin", std::ios::binary) << bin;
  const size_t p = positions.size() * 4, i = indices.size() * 2;
  std::ofstream(folder / "cube.gltf") << R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[{"mesh":0}],
"meshes":[{"primitives":[{"attributes":{"POSITION":0,"NORMAL":1},"indices":2,"material":0}]}],
"materials":[{"pbrMetallicRoughness":{"baseColorFactor":[1,1,1,1],"metallicFactor":0,"roughnessFactor":1}}],
"buffers":[{"uri":"cube.bin","byteLength":)" << bin.size() << R"(}],
"bufferViews":[{"buffer":0,"byteOffset":0,"byteLength":)" << p << R"(},{"buffer":0,"byteOffset":)" << p
                                    << R"(,"byteLength":)" << p << R"(},{"buffer":0,"byteOffset":)" << 2 * p
                                    << R"(,"byteLength":)" << i << R"(}],
"accessors":[{"bufferView":0,"componentType":5126,"count":24,"type":"VEC3","min":[-1,-1,-1],"max":[1,1,1]},
{"bufferView":1,"componentType":5126,"count":24,"type":"VEC3"},{"bufferView":2,"componentType":5123,"count":36,"type":"SCALAR"}]})";
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

struct Picture {
  int width = 0, height = 0;
  std::vector<float> rgba;
  float at(int x, int y, int c) const { return rgba[(size_t(y) * width + x) * 4 + c]; }
};

Picture readExr(const std::string& path) {
  Picture p;
  auto in = OIIO::ImageInput::open(path);
  if (!in) return p;
  const OIIO::ImageSpec& spec = in->spec();
  p.width = spec.width;
  p.height = spec.height;
  p.rgba.assign(size_t(p.width) * p.height * 4, 0.0f);
  in->read_image(0, 0, 0, 4, OIIO::TypeDesc::FLOAT, p.rgba.data());
  return p;
}

class EnvironmentRun : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::path(testing::TempDir()) /
              ("zvrs_env_" + std::to_string(getpid()) + "_" + testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    writeWhiteCube(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  // Renders the cube (or another scene of the folder) with the Velder plug-in; `keys` are added
  // to the override.
  ProcessResult render(const std::string& keys, const std::string& output = "out.exr", const std::string& scene = "cube.gltf") {
    ProcessOptions options;
    options.workingDirectory = folder_.string();
    const std::string override = R"({"gui":0,"plugin":"velder","width":64,"height":32,"iterations":32,"output":")" + output +
                                 "\"" + (keys.empty() ? "" : "," + keys) + "}";
    return runProcess(renderProgramPath(), {(folder_ / scene).string(), override}, options);
  }
  Picture picture(const std::string& name = "out.exr") { return readExr((folder_ / name).string()); }

  std::filesystem::path folder_;
};

double channelMean(const Picture& p, int c) {
  double sum = 0;
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) sum += p.at(x, y, c);
  return sum / (double(p.width) * p.height);
}

// A white diffuse object under a constant sky of colour c disappears into it; intensity scales it.
TEST_F(EnvironmentRun, ConstantSkyIsAFurnaceAndIntensityScalesIt) {
  const float colour[3] = {0.2f, 0.5f, 0.8f};
  for (float intensity : {1.0f, 2.0f}) {
    SCOPED_TRACE(testing::Message() << "intensity " << intensity);
    const ProcessResult result =
        render(R"("environment":[0.2,0.5,0.8],"environment.intensity":)" + std::to_string(intensity));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Picture p = picture();
    ASSERT_EQ(p.width, 64);
    for (int c = 0; c < 3; ++c) {
      EXPECT_NEAR(channelMean(p, c), colour[c] * intensity, 0.01 * colour[c] * intensity);
      EXPECT_NEAR(p.at(32, 16, c), colour[c] * intensity, 0.03 * colour[c] * intensity) << "the cube's centre";
    }
  }
}

int brightestColumn(const Picture& p) {
  int best = -1;
  float bestValue = 0;
  for (int x = 0; x < p.width; ++x)
    if (p.at(x, 8, 1) > bestValue) {
      bestValue = p.at(x, 8, 1);
      best = x;
    }
  return best;
}

// A 360 camera at the cube's side sees the sky's bright column; turning the sky by 90 degrees
// about up moves it by a quarter of the picture's width, to the left (towards smaller u).
TEST_F(EnvironmentRun, RotationTurnsTheSkyAboutUp) {
  writeStripedSky(folder_ / "sky.hdr", 64, 32, 8);
  const std::string common = R"("cameratype":"360","camera.transform":[1,0,0,0,0,1,0,0,0,0,1,0,0,0,6,1],"environment":"sky.hdr")";
  ProcessResult result = render(common);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const int still = brightestColumn(picture());
  EXPECT_EQ(still, 8) << "with no rotation the picture shows the sky as the image holds it";
  result = render(common + R"(,"environment.rotation":90)");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(brightestColumn(picture()), (still - 16 + 64) % 64);
}

// The ".xml" export of a run with a sky carries it (the image embedded), so the document renders
// without any key as the scene did with them.
TEST_F(EnvironmentRun, XmlExportCarriesTheSky) {
  const std::string camera = R"("cameratype":"360","camera.transform":[1,0,0,0,0,1,0,0,0,0,1,0,0,0,6,1])";
  struct Case {
    const char* name;
    std::string view, sky;
  };
  const Case cases[] = {
      {"colour", "", R"("environment":[0.2,0.5,0.8],"environment.intensity":2)"},
      {"image", camera, R"("environment":"sky.hdr","environment.rotation":90,"environment.intensity":0.5)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    writeStripedSky(folder_ / "sky.hdr", 64, 32, 8);
    const std::string keys = c.view.empty() ? c.sky : c.view + "," + c.sky;
    ProcessResult result = render(keys);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Picture direct = picture();
    result = render(keys, ".xml");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::filesystem::remove(folder_ / "sky.hdr");
    result = render(c.view, "again.exr", ".xml");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Picture again = picture("again.exr");
    ASSERT_EQ(again.width, direct.width);
    for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(channelMean(again, ch), channelMean(direct, ch), 0.01 * channelMean(direct, ch));
    EXPECT_EQ(brightestColumn(again), brightestColumn(direct));
  }
}

// An image missing at export time stops the export as it stops a render, naming the file.
TEST_F(EnvironmentRun, MissingImageStopsTheExportNamingTheFile) {
  const ProcessResult result = render(R"("environment":"no/such/sky.hdr")", ".xml");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err.rfind("E000018: Setting environment failed. ", 0), 0u) << result.err;
  EXPECT_NE(result.err.find("no/such/sky.hdr"), std::string::npos) << result.err;
  EXPECT_FALSE(std::filesystem::exists(folder_ / ".xml"));
}

// An image that cannot be read stops the run before rendering, naming the file.
TEST_F(EnvironmentRun, MissingImageStopsTheRunNamingTheFile) {
  const ProcessResult result = render(R"("environment":"no/such/sky.hdr")");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err.rfind("E000018: Setting environment failed. ", 0), 0u) << result.err;
  EXPECT_NE(result.err.find("no/such/sky.hdr"), std::string::npos) << result.err;
  EXPECT_FALSE(std::filesystem::exists(folder_ / "out.exr"));
  EXPECT_EQ(result.out.find("Total Render Time"), std::string::npos) << "nothing may render";
}

}  // namespace
