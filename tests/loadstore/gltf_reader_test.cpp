#include <gtest/gtest.h>

#include <cmath>

#include "tests/loadstore/scene_catalog.h"
#include "loadstore/scene_file.h"

namespace zvr::loadstore {
namespace {

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
