#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <algorithm>

#include "tests/loadstore/scene_catalog.h"
#include "loadstore/scene_file.h"
#include "loadstore/scene_framing.h"
#include "loadstore/transform_math.h"

namespace zvr::loadstore {
namespace {

TEST(TransformMath, MatricesSplitBackIntoTheirParts) {
  struct Case {
    const char* name;
    Trs trs;
  };
  const float h = std::sqrt(0.5f);
  const Case cases[] = {
      {"identity", Trs{}},
      {"translation only", Trs{{1, -2, 3}, {0, 0, 0, 1}, {1, 1, 1}}},
      {"quarter turn about x", Trs{{0, 0, 0}, {h, 0, 0, h}, {1, 1, 1}}},
      {"half turn about y", Trs{{0, 0, 0}, {0, 1, 0, 0}, {1, 1, 1}}},
      {"half turn about z with scale", Trs{{4, 5, 6}, {0, 0, 1, 0}, {2, 3, 4}}},
      {"oblique turn, uneven scale", Trs{{-1, 0.5f, 2}, {0.1825742f, 0.3651484f, 0.5477226f, 0.7302967f}, {0.5f, 2, 7}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Trs back;
    ASSERT_TRUE(decomposeMatrix(matrixFromTrs(c.trs), &back));
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(back.translation[i], c.trs.translation[i], 1e-5f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(back.scale[i], c.trs.scale[i], 1e-4f);
    // q and -q are the same turn; the block keeps w non-negative.
    EXPECT_GE(back.rotation[3], 0.f);
    const float sign = c.trs.rotation[3] < 0 ? -1.f : 1.f;
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(back.rotation[i], sign * c.trs.rotation[i], 1e-5f) << "component " << i;
  }
  Trs m;
  EXPECT_FALSE(decomposeMatrix(matrixFromTrs(Trs{{0, 0, 0}, {0, 0, 0, 1}, {1, 0, 1}}), &m))
      << "a collapsed axis has no rotation";
  const Matrix4 mirrored = matrixFromTrs(Trs{{0, 0, 0}, {0, 0, 0, 1}, {-1, 1, 1}});
  ASSERT_TRUE(decomposeMatrix(mirrored, &m));
  const Matrix4 rebuilt = matrixFromTrs(m);
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(rebuilt[i], mirrored[i], 1e-6f) << "a mirror survives in the scale";
}

TEST(SceneFraming, CameraSeesTheBoundingSphereFromAbove) {
  Bounds b;
  b.empty = false;
  b.lower = {-1, 2, -3};
  b.upper = {3, 4, 1};
  const Framing f = frameBounds(b);
  EXPECT_EQ(f.target, (std::array<float, 3>{1, 3, -1}));
  const float dx = f.eye[0] - f.target[0], dy = f.eye[1] - f.target[1], dz = f.eye[2] - f.target[2];
  const float distance = std::sqrt(dx * dx + dy * dy + dz * dz);
  const float radius = std::sqrt(16.f + 4.f + 16.f) / 2;
  EXPECT_NEAR(distance * std::sin(f.fovY / 2), radius, 1e-4f) << "the sphere just touches the view cone";
  EXPECT_NEAR(f.fovY, 3.14159265f / 4, 1e-6f);
  EXPECT_GT(dz, 0.f);
  EXPECT_GT(dy, 0.f);
  EXPECT_LT(dy, 0.5f * dz) << "only slightly raised";
  EXPECT_LT(f.nearPlane, distance - radius);
  EXPECT_GT(f.farPlane, distance + radius);
}

TEST(ExampleScene, CommittedFileIsWhatTheGeneratorWritesWithCameraAndLight) {
  const std::string committed = std::string(ZVR_SOURCE_DIR) + "/examples/example.gltf";
  const std::string fresh = testing::scratchDir() + "/example_fresh.gltf";
  const std::string command = std::string(ZVR_BIN_DIR) + "/make_example_scene " + fresh;
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(testing::fileBytes(fresh), testing::fileBytes(committed)) << "examples/example.gltf is stale: regenerate it";

  // Rendered as it is, the room needs its camera and its light.
  const SceneDescription s = readSceneFile(committed);
  EXPECT_EQ(std::count_if(s.nodes.begin(), s.nodes.end(), [](const Node& n) { return n.camera >= 0; }), 1);
  EXPECT_TRUE(sceneHasLightOrEmission(s)) << "the ceiling quad is the light";
  // In world space everything sits inside the room: floor at y = 0, ceiling light below y = 4.
  const Bounds b = sceneBounds(s, worldMatrices(s));
  EXPECT_NEAR(b.lower[1], 0.f, 1e-5f);
  EXPECT_LE(b.upper[1], 4.f + 1e-5f);
}

}  // namespace
}  // namespace zvr::loadstore
