#include <gtest/gtest.h>

#include <cmath>

#include "tests/loadstore/scene_catalog.h"
#include "loadstore/scene_file.h"
#include "loadstore/scene_framing.h"
#include "loadstore/skin_pose.h"

namespace zvr::loadstore {
namespace {

Matrix4 translation(float x, float y, float z) {
  Trs t;
  t.translation = {x, y, z};
  return matrixFromTrs(t);
}

TEST(SkinPose, VerticesFollowTheirWeightedJoints) {
  struct Case {
    const char* name;
    std::array<uint32_t, 4> joints;
    std::array<float, 4> weights;
    std::array<float, 3> expected;
  };
  const Case cases[] = {
      {"one joint", {0, 0, 0, 0}, {1, 0, 0, 0}, {3, 1, 1}},
      {"half and half", {0, 1, 0, 0}, {0.5f, 0.5f, 0, 0}, {2, 3, 1}},
      {"weights normalized", {0, 1, 0, 0}, {0.2f, 0.2f, 0, 0}, {2, 3, 1}},
      {"no weight stays", {0, 1, 0, 0}, {0, 0, 0, 0}, {1, 1, 1}},
  };
  const std::vector<Matrix4> joints = {translation(2, 0, 0), translation(0, 4, 0)};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Primitive p;
    p.positions = {1, 1, 1};
    applySkinning(std::vector<uint32_t>(c.joints.begin(), c.joints.end()), std::vector<float>(c.weights.begin(), c.weights.end()),
                  joints, &p);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(p.positions[k], c.expected[k], 1e-6f);
  }
}

TEST(SkinPose, NormalsStayPerpendicularUnderUnevenScale) {
  Trs squash;
  squash.scale = {2, 1, 1};
  Primitive p;
  p.positions = {0, 0, 0};
  const float h = std::sqrt(0.5f);
  p.normals = {h, h, 0};
  p.tangents = {h, -h, 0, 1};
  applySkinning({0, 0, 0, 0}, {1, 0, 0, 0}, {matrixFromTrs(squash)}, &p);
  const float dot = p.normals[0] * p.tangents[0] + p.normals[1] * p.tangents[1] + p.normals[2] * p.tangents[2];
  EXPECT_NEAR(dot, 0.f, 1e-6f);
  EXPECT_NEAR(std::hypot(p.normals[0], p.normals[1], p.normals[2]), 1.f, 1e-6f);
  EXPECT_NEAR(std::hypot(p.tangents[0], p.tangents[1], p.tangents[2]), 1.f, 1e-6f);
  EXPECT_EQ(p.tangents[3], 1.f) << "handedness is kept";
}

// The bind pose of the shared sample has no translation to undo: the inverse is checked here.
TEST(SkinPose, AffineInverseUndoesTheMatrix) {
  const Trs t{{1, -2, 3}, {0.1825742f, 0.3651484f, 0.5477226f, 0.7302967f}, {0.5f, 2, 4}};
  const Matrix4 m = matrixFromTrs(t);
  Matrix4 inverse;
  ASSERT_TRUE(invertAffine(m, &inverse));
  const Matrix4 product = multiply(m, inverse), identity = identityMatrix();
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(product[i], identity[i], 1e-5f) << i;
  EXPECT_FALSE(invertAffine(matrixFromTrs(Trs{{0, 0, 0}, {0, 0, 0, 1}, {1, 0, 1}}), &inverse));
}

TEST(SkinPose, SkinnedMeshIgnoresTheTransformOfItsNode) {
  // RiggedSimple's mesh node sits under an armature turned 90 degrees, but its joints' bind
  // matrices undo that turn: at the bind pose the mesh stands under the Z_UP root alone.
  const std::string file = testing::kScenes + "RiggedSimple/RiggedSimple.glb";
  const nlohmann::json j = testing::gltfJson(file);
  const SceneDescription s = readSceneFile(file);
  const std::vector<float> raw = testing::accessorFloats(file, j, j["meshes"][0]["primitives"][0]["attributes"]["POSITION"]);
  const std::vector<Matrix4> world = worldMatrices(s);
  Matrix4 zUp;
  const std::vector<float> rootMatrix = j["nodes"][0]["matrix"].get<std::vector<float>>();
  std::copy(rootMatrix.begin(), rootMatrix.end(), zUp.begin());
  size_t checked = 0;
  for (size_t n = 0; n < s.nodes.size(); ++n) {
    if (s.nodes[n].mesh < 0) continue;
    const Primitive& posed = s.meshes[s.nodes[n].mesh].primitives.at(0);
    ASSERT_EQ(posed.positions.size(), raw.size());
    for (size_t v = 0; v < posed.vertexCount(); ++v) {
      const auto got = transformPoint(world[n], {posed.positions[v * 3], posed.positions[v * 3 + 1], posed.positions[v * 3 + 2]});
      const auto want = transformPoint(zUp, {raw[v * 3], raw[v * 3 + 1], raw[v * 3 + 2]});
      for (int k = 0; k < 3; ++k) ASSERT_NEAR(got[k], want[k], 1e-3f) << "vertex " << v;
      ++checked;
    }
  }
  EXPECT_GT(checked, 0u);
}

}  // namespace
}  // namespace zvr::loadstore
