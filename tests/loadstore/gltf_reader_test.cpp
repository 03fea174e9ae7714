#include <gtest/gtest.h>

#include <cmath>

#include "tests/loadstore/scene_catalog.h"
#include "loadstore/scene_file.h"

namespace zvr::loadstore {
namespace {

size_t shapeCount(const SceneDescription& s) {
  size_t n = 0;
  for (const Node& node : s.nodes)
    if (node.mesh >= 0) n += s.meshes[node.mesh].primitives.size();
  return n;
}

TEST(GltfReader, EverySharedSceneHoldsWhatItsJsonDeclares) {
  const auto files = testing::sharedSceneFiles();
  ASSERT_GE(files.size(), 15u);
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    const testing::ExpectedCounts want = testing::expectedCounts(testing::gltfJson(file));
    const SceneDescription scene = readSceneFile(file);
    EXPECT_EQ(scene.nodes.size(), want.groups);
    EXPECT_EQ(shapeCount(scene), want.shapes);
    size_t cameras = 0, lights = 0;
    for (const Node& n : scene.nodes) {
      cameras += n.camera >= 0;
      lights += n.light >= 0;
      EXPECT_TRUE(n.parent < 0 || &scene.nodes[n.parent] < &n) << "parent after child: " << n.name;
    }
    EXPECT_EQ(cameras, want.cameras);
    EXPECT_EQ(lights, want.lights);
    EXPECT_EQ(scene.animations.size(), want.animationRecords);
    for (const Mesh& m : scene.meshes)
      for (const Primitive& p : m.primitives) {
        ASSERT_EQ(p.normals.size(), p.positions.size()) << "normals must exist for every vertex";
        ASSERT_EQ(p.indices.size() % 3, 0u);
        for (uint32_t i : p.indices) ASSERT_LT(i, p.vertexCount());
      }
  }
}

TEST(GltfReader, GroupNamesAreUniqueAndEmptyNamesGetTheNodeIndex) {
  // Cameras.gltf has three unnamed nodes.
  const SceneDescription s = readSceneFile(std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Cameras/Cameras.gltf");
  ASSERT_EQ(s.nodes.size(), 3u);
  EXPECT_EQ(s.nodes[0].name, "node_0");
  EXPECT_EQ(s.nodes[1].name, "node_1");
  EXPECT_EQ(s.nodes[2].name, "node_2");
  ASSERT_EQ(s.cameras.size(), 2u);
  EXPECT_FALSE(s.cameras[s.nodes[1].camera].orthographic);
  EXPECT_FLOAT_EQ(s.cameras[s.nodes[1].camera].yfov, 0.7f);
  EXPECT_TRUE(s.cameras[s.nodes[2].camera].orthographic);
  EXPECT_FLOAT_EQ(s.nodes[1].local.translation[2], 3.f);
  // The file's quaternion is slightly off unit length; the reader normalizes it.
  const auto& q = s.nodes[0].local.rotation;
  EXPECT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1.0, 1e-6);
}

TEST(GltfReader, SparseAccessorReplacesTheListedPositions) {
  const std::string file = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/SimpleSparseAccessor/SimpleSparseAccessor.gltf";
  const SceneDescription s = readSceneFile(file);
  ASSERT_EQ(s.meshes.size(), 1u);
  const Primitive& p = s.meshes[0].primitives.at(0);
  // The sample lifts some vertices to y = 1..4 through its sparse values; without them every y is 0.
  float maxY = 0.f;
  for (size_t i = 0; i < p.vertexCount(); ++i) maxY = std::max(maxY, p.positions[i * 3 + 1]);
  EXPECT_GT(maxY, 0.5f);
}

TEST(GltfReader, MaterialExtensionsAndTexturesArrive) {
  struct Case {
    const char* file;
    bool (*check)(const SceneDescription&);
    const char* what;
  };
  const Case cases[] = {
      {"ClearCoatTest/ClearCoatTest.glb",
       [](const SceneDescription& s) {
         for (const Material& m : s.materials)
           if (m.clearcoat > 0.f) return true;
         return false;
       },
       "a clearcoat factor"},
      {"EmissiveStrengthTest/EmissiveStrengthTest.glb",
       [](const SceneDescription& s) {
         for (const Material& m : s.materials)
           if (m.emissiveStrength > 1.f) return true;
         return false;
       },
       "an emissive strength above 1"},
      {"TransmissionRoughnessTest/TransmissionRoughnessTest.glb",
       [](const SceneDescription& s) {
         for (const Material& m : s.materials)
           if (m.transmission > 0.f && m.ior != 1.5f) return true;
         return false;
       },
       "transmission with its own IOR"},
      {"TextureTransformTest/TextureTransformTest.gltf",
       [](const SceneDescription& s) {
         for (const Material& m : s.materials)
           if (m.texture(TextureSlot::BaseColor).rotation != 0.f) return true;
         return false;
       },
       "a rotated base colour texture"},
      {"DamagedHelmet/DamagedHelmet.glb",
       [](const SceneDescription& s) {
         const Material& m = s.materials.at(0);
         const int img = m.texture(TextureSlot::BaseColor).image;
         return img >= 0 && m.texture(TextureSlot::Normal).image >= 0 && s.images[img].encoded.size() > 1000;
       },
       "base colour and normal textures with encoded bytes"},
      {"LightsPunctualLamp/LightsPunctualLamp.gltf",
       [](const SceneDescription& s) {
         bool found = false;
         for (const Light& l : s.lights)
           found |= l.name == "Point.004" && l.type == LightType::Point && l.intensity == 180.f && l.color[2] > 0.5f;
         return s.lights.size() == 5 && found;
       },
       "five point lights with their colour and intensity"},
      {"VertexColorTest/VertexColorTest.glb",
       [](const SceneDescription& s) {
         for (const Mesh& m : s.meshes)
           for (const Primitive& p : m.primitives)
             if (p.colors.size() == p.vertexCount() * 4 && p.vertexCount() > 0) return true;
         return false;
       },
       "vertex colours"},
      {"NormalTangentMirrorTest/NormalTangentMirrorTest.glb",
       [](const SceneDescription& s) {
         const Primitive& p = s.meshes.at(0).primitives.at(0);
         return p.tangents.size() == p.vertexCount() * 4;
       },
       "tangents for the normal map"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const SceneDescription s = readSceneFile(std::string(ZVR_SHARED_DIR) + "/scenes/gltf/" + c.file);
    EXPECT_TRUE(c.check(s)) << "expected " << c.what;
  }
}

}  // namespace
}  // namespace zvr::loadstore
