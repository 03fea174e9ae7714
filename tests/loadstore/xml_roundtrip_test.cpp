#include <gtest/gtest.h>

#include <filesystem>

#include "tests/loadstore/scene_catalog.h"
#include "loadstore/scene_file.h"
#include "loadstore/xml_reader.h"
#include "loadstore/xml_writer.h"

namespace zvr::loadstore {
namespace {

// Everything the XML document holds, field by field: a field the writer forgets comes back as its
// default and shows here.
void expectSameDescription(const SceneDescription& a, const SceneDescription& b) {
  const auto node = [](const Node& n) {
    return std::tie(n.name, n.parent, n.sourceIndex, n.mesh, n.camera, n.light, n.catcher, n.local.translation,
                    n.local.rotation, n.local.scale);
  };
  const auto primitive = [](const Primitive& p) {
    return std::tie(p.positions, p.normals, p.tangents, p.texcoords0, p.texcoords1, p.colors, p.indices, p.material);
  };
  const auto material = [](const Material& x) {
    return std::tie(x.name, x.baseColor, x.emissive, x.metallic, x.roughness, x.normalScale, x.occlusionStrength,
                    x.emissiveStrength, x.alphaMode, x.alphaCutoff, x.doubleSided, x.unlit, x.ior, x.transmission,
                    x.thickness, x.attenuationDistance, x.clearcoat, x.clearcoatRoughness, x.clearcoatNormalScale,
                    x.specular, x.sheenRoughness, x.attenuationColor, x.lightGroup, x.specularColor, x.sheenColor);
  };
  const auto texture = [](const TextureRef& t) {
    return std::tie(t.image, t.texcoord, t.wrapS, t.wrapT, t.magFilter, t.minFilter, t.offset, t.rotation, t.scale);
  };
  const auto camera = [](const Camera& c) { return std::tie(c.orthographic, c.yfov, c.xmag, c.ymag, c.znear, c.zfar); };
  const auto light = [](const Light& l) {
    return std::tie(l.type, l.color, l.intensity, l.innerCone, l.outerCone, l.lightGroup);
  };
  const auto animation = [](const AnimationChannel& c) {
    return std::tie(c.animationIndex, c.sourceInterpolation, c.node, c.kind, c.times, c.values);
  };
  const auto expectEach = [](const auto& x, const auto& y, const auto& fields, const char* what) {
    ASSERT_EQ(x.size(), y.size()) << what;
    for (size_t i = 0; i < x.size(); ++i) EXPECT_TRUE(fields(x[i]) == fields(y[i])) << what << " " << i;
  };
  expectEach(a.nodes, b.nodes, node, "node");
  ASSERT_EQ(a.meshes.size(), b.meshes.size());
  for (size_t m = 0; m < a.meshes.size(); ++m) {
    EXPECT_EQ(std::tie(a.meshes[m].name, a.meshes[m].sourceIndex), std::tie(b.meshes[m].name, b.meshes[m].sourceIndex));
    expectEach(a.meshes[m].primitives, b.meshes[m].primitives, primitive, "primitive");
  }
  expectEach(a.materials, b.materials, material, "material");
  for (size_t i = 0; i < a.materials.size() && i < b.materials.size(); ++i)
    expectEach(a.materials[i].textures, b.materials[i].textures, texture, "texture slot");
  expectEach(a.images, b.images, [](const Image& i) { return std::tie(i.mimeType, i.encoded); }, "image");
  expectEach(a.cameras, b.cameras, camera, "camera");
  expectEach(a.lights, b.lights, light, "light");
  expectEach(a.animations, b.animations, animation, "animation");
  EXPECT_EQ(a.ocio.configText, b.ocio.configText);
  expectEach(a.ocio.files, b.ocio.files, [](const auto& f) { return std::tie(f.name, f.bytes); }, "OCIO file");
}

TEST(XmlRoundTrip, EverySharedSceneReadsBackAsTheSameDescription) {
  const std::string folder = testing::scratchDir() + "/xml_roundtrip";
  std::filesystem::create_directories(folder);
  const auto files = testing::sharedSceneFiles();
  ASSERT_GE(files.size(), 15u);
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    const SceneDescription original = readSceneFile(file);
    for (const Node& n : original.nodes) EXPECT_TRUE(n.parent < 0 || &original.nodes[n.parent] < &n) << "parent after child: " << n.name;
    for (const Mesh& m : original.meshes)
      for (const Primitive& p : m.primitives) {
        ASSERT_EQ(p.normals.size(), p.positions.size()) << "normals must exist for every vertex";
        ASSERT_EQ(p.indices.size() % 3, 0u);
        for (uint32_t i : p.indices) ASSERT_LT(i, p.vertexCount());
      }
    const std::string out = folder + "/scene.xml";
    saveSceneXml(original, out);
    const SceneDescription back = readSceneFile(out);
    expectSameDescription(original, back);
    // Nothing is lost or altered on a second pass either.
    const std::vector<uint8_t> saved = testing::fileBytes(out);
    EXPECT_TRUE(writeSceneXml(back) == std::string(saved.begin(), saved.end()));
  }
  // The writer's temporary file carries the process id after ".tmp".
  const auto entries = std::distance(std::filesystem::directory_iterator(folder), {});
  EXPECT_EQ(entries, 1) << "no temporary file may stay behind";
}

// What no shared scene holds: OCIO files, catchers, light groups.
TEST(XmlRoundTrip, OcioFilesAndTagsTravelWithTheScene) {
  SceneDescription scene = readSceneFile(testing::kScenes + "LightsPunctualLamp/LightsPunctualLamp.gltf");
  scene.ocio.configText = "ocio_profile_version: 2\nsearch_path: .\n";
  scene.ocio.files.push_back({"curve.spi1d", {'V', 'e', 'r', 's', 'i', 'o', 'n', ' ', '1', 0, 255}});
  scene.nodes.at(0).catcher = 3;
  scene.lights.at(1).lightGroup = 15;
  scene.materials.at(0).lightGroup = 0;
  expectSameDescription(scene, readSceneXml("lamp.xml", writeSceneXml(scene)));
}

}  // namespace
}  // namespace zvr::loadstore
