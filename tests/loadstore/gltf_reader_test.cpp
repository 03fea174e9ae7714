// What the glTF reader takes from the samples' extensions, sparse accessors and textures.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "loadstore/scene_file.h"
#include "tests/loadstore/scene_catalog.h"

namespace zvr::loadstore {
namespace {

SceneDescription readSample(const std::string& file) { return readSceneFile(testing::kScenes + file); }

template <typename Predicate>
bool anyMaterial(const SceneDescription& s, Predicate predicate) {
  return std::any_of(s.materials.begin(), s.materials.end(), predicate);
}

TEST(GltfReader, SparseAccessorsMaterialExtensionsAndTexturesArrive) {
  const std::tuple<const char*, bool (*)(const SceneDescription&), const char*> cases[] = {
      // Without its sparse values no y of the sample's grid is above 1.
      {"SimpleSparseAccessor/SimpleSparseAccessor.gltf",
       [](const SceneDescription& s) {
         const Primitive& p = s.meshes.at(0).primitives.at(0);
         for (size_t i = 0; i < p.vertexCount(); ++i)
           if (p.positions[i * 3 + 1] > 3.5f) return s.meshes.size() == 1;
         return false;
       },
       "a vertex lifted to y = 4 by the sparse values"},
      {"ClearCoatTest/ClearCoatTest.glb",
       [](const SceneDescription& s) { return anyMaterial(s, [](const Material& m) { return m.clearcoat > 0.f; }); },
       "a clearcoat factor"},
      {"EmissiveStrengthTest/EmissiveStrengthTest.glb",
       [](const SceneDescription& s) { return anyMaterial(s, [](const Material& m) { return m.emissiveStrength > 1.f; }); },
       "an emissive strength above 1"},
      {"TransmissionRoughnessTest/TransmissionRoughnessTest.glb",
       [](const SceneDescription& s) {
         return anyMaterial(s, [](const Material& m) { return m.transmission > 0.f && m.ior != 1.5f; });
       },
       "transmission with its own IOR"},
      {"TextureTransformTest/TextureTransformTest.gltf",
       [](const SceneDescription& s) {
         return anyMaterial(s, [](const Material& m) { return m.texture(TextureSlot::BaseColor).rotation != 0.f; });
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
      // Tangents the reader generated for the normal map would pass a count: these are the file's.
      {"NormalTangentMirrorTest/NormalTangentMirrorTest.glb",
       [](const SceneDescription& s) {
         const std::string file = testing::kScenes + "NormalTangentMirrorTest/NormalTangentMirrorTest.glb";
         return s.meshes.at(0).primitives.at(0).tangents == testing::accessorFloats(file, testing::gltfJson(file), 3);
       },
       "the file's tangents"},
  };
  for (const auto& [file, check, what] : cases) EXPECT_TRUE(check(readSample(file))) << file << ": expected " << what;
}

}  // namespace
}  // namespace zvr::loadstore
