#include <gtest/gtest.h>

#include <filesystem>

#include "tests/loadstore/scene_catalog.h"
#include "loadstore/scene_file.h"
#include "loadstore/xml_reader.h"
#include "loadstore/xml_writer.h"

namespace zvr::loadstore {
namespace {

void expectSameDescription(const SceneDescription& a, const SceneDescription& b) {
  ASSERT_EQ(a.nodes.size(), b.nodes.size());
  for (size_t i = 0; i < a.nodes.size(); ++i) {
    EXPECT_EQ(a.nodes[i].name, b.nodes[i].name);
    EXPECT_EQ(a.nodes[i].parent, b.nodes[i].parent);
    EXPECT_EQ(a.nodes[i].sourceIndex, b.nodes[i].sourceIndex);
    EXPECT_EQ(a.nodes[i].mesh, b.nodes[i].mesh);
    EXPECT_EQ(a.nodes[i].camera, b.nodes[i].camera);
    EXPECT_EQ(a.nodes[i].light, b.nodes[i].light);
    EXPECT_EQ(a.nodes[i].catcher, b.nodes[i].catcher);
    EXPECT_EQ(a.nodes[i].local.translation, b.nodes[i].local.translation);
    EXPECT_EQ(a.nodes[i].local.rotation, b.nodes[i].local.rotation);
    EXPECT_EQ(a.nodes[i].local.scale, b.nodes[i].local.scale);
  }
  ASSERT_EQ(a.meshes.size(), b.meshes.size());
  for (size_t m = 0; m < a.meshes.size(); ++m) {
    EXPECT_EQ(a.meshes[m].name, b.meshes[m].name);
    EXPECT_EQ(a.meshes[m].sourceIndex, b.meshes[m].sourceIndex);
    ASSERT_EQ(a.meshes[m].primitives.size(), b.meshes[m].primitives.size());
    for (size_t p = 0; p < a.meshes[m].primitives.size(); ++p) {
      const Primitive& x = a.meshes[m].primitives[p];
      const Primitive& y = b.meshes[m].primitives[p];
      EXPECT_EQ(x.positions, y.positions);
      EXPECT_EQ(x.normals, y.normals);
      EXPECT_EQ(x.tangents, y.tangents);
      EXPECT_EQ(x.texcoords0, y.texcoords0);
      EXPECT_EQ(x.texcoords1, y.texcoords1);
      EXPECT_EQ(x.colors, y.colors);
      EXPECT_EQ(x.indices, y.indices);
      EXPECT_EQ(x.material, y.material);
    }
  }
  ASSERT_EQ(a.materials.size(), b.materials.size());
  for (size_t i = 0; i < a.materials.size(); ++i) {
    const Material& x = a.materials[i];
    const Material& y = b.materials[i];
    EXPECT_EQ(x.name, y.name);
    EXPECT_EQ(x.baseColor, y.baseColor);
    EXPECT_EQ(x.emissive, y.emissive);
    EXPECT_EQ(std::tie(x.metallic, x.roughness, x.normalScale, x.occlusionStrength, x.emissiveStrength, x.alphaMode,
                       x.alphaCutoff, x.doubleSided, x.unlit, x.ior, x.transmission, x.thickness, x.attenuationDistance,
                       x.clearcoat, x.clearcoatRoughness, x.clearcoatNormalScale, x.specular, x.sheenRoughness),
              std::tie(y.metallic, y.roughness, y.normalScale, y.occlusionStrength, y.emissiveStrength, y.alphaMode,
                       y.alphaCutoff, y.doubleSided, y.unlit, y.ior, y.transmission, y.thickness, y.attenuationDistance,
                       y.clearcoat, y.clearcoatRoughness, y.clearcoatNormalScale, y.specular, y.sheenRoughness));
    EXPECT_EQ(x.attenuationColor, y.attenuationColor);
    EXPECT_EQ(x.lightGroup, y.lightGroup);
    EXPECT_EQ(x.specularColor, y.specularColor);
    EXPECT_EQ(x.sheenColor, y.sheenColor);
    for (size_t s = 0; s < kTextureSlotCount; ++s) {
      const TextureRef& t = x.textures[s];
      const TextureRef& u = y.textures[s];
      EXPECT_EQ(std::tie(t.image, t.texcoord, t.wrapS, t.wrapT, t.magFilter, t.minFilter, t.offset, t.rotation, t.scale),
                std::tie(u.image, u.texcoord, u.wrapS, u.wrapT, u.magFilter, u.minFilter, u.offset, u.rotation, u.scale));
    }
  }
  ASSERT_EQ(a.images.size(), b.images.size());
  for (size_t i = 0; i < a.images.size(); ++i) {
    EXPECT_EQ(a.images[i].mimeType, b.images[i].mimeType);
    EXPECT_EQ(a.images[i].encoded, b.images[i].encoded);
  }
  ASSERT_EQ(a.cameras.size(), b.cameras.size());
  for (size_t i = 0; i < a.cameras.size(); ++i) {
    const Camera& x = a.cameras[i];
    const Camera& y = b.cameras[i];
    EXPECT_EQ(std::tie(x.orthographic, x.yfov, x.xmag, x.ymag, x.znear, x.zfar),
              std::tie(y.orthographic, y.yfov, y.xmag, y.ymag, y.znear, y.zfar));
  }
  ASSERT_EQ(a.lights.size(), b.lights.size());
  for (size_t i = 0; i < a.lights.size(); ++i) {
    EXPECT_EQ(a.lights[i].type, b.lights[i].type);
    EXPECT_EQ(a.lights[i].color, b.lights[i].color);
    EXPECT_EQ(std::tie(a.lights[i].intensity, a.lights[i].innerCone, a.lights[i].outerCone),
              std::tie(b.lights[i].intensity, b.lights[i].innerCone, b.lights[i].outerCone));
    EXPECT_EQ(a.lights[i].lightGroup, b.lights[i].lightGroup);
  }
  ASSERT_EQ(a.animations.size(), b.animations.size());
  for (size_t i = 0; i < a.animations.size(); ++i) {
    EXPECT_EQ(a.animations[i].animationIndex, b.animations[i].animationIndex);
    EXPECT_EQ(a.animations[i].sourceInterpolation, b.animations[i].sourceInterpolation);
    EXPECT_EQ(a.animations[i].node, b.animations[i].node);
    EXPECT_EQ(a.animations[i].kind, b.animations[i].kind);
    EXPECT_EQ(a.animations[i].times, b.animations[i].times);
    EXPECT_EQ(a.animations[i].values, b.animations[i].values);
  }
  EXPECT_EQ(a.ocio.configText, b.ocio.configText);
  ASSERT_EQ(a.ocio.files.size(), b.ocio.files.size());
}

TEST(XmlRoundTrip, EverySharedSceneReadsBackAsTheSameDescription) {
  const std::string folder = testing::scratchDir() + "/xml_roundtrip";
  std::filesystem::create_directories(folder);
  for (const std::string& file : testing::sharedSceneFiles()) {
    SCOPED_TRACE(file);
    const SceneDescription original = readSceneFile(file);
    const std::string out = folder + "/scene.xml";
    saveSceneXml(original, out);
    const SceneDescription back = readSceneFile(out);
    expectSameDescription(original, back);
    // Nothing is lost or altered on a second pass either.
    const std::vector<uint8_t> saved = testing::fileBytes(out);
    EXPECT_TRUE(writeSceneXml(back) == std::string(saved.begin(), saved.end()));
  }
  EXPECT_FALSE(std::filesystem::exists(folder + "/scene.xml.tmp")) << "no temporary file may stay behind";
}

TEST(XmlRoundTrip, OcioConfigurationAndLutsTravelWithTheScene) {
  SceneDescription scene = readSceneFile(std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb");
  scene.ocio.configText = "ocio_profile_version: 2\nsearch_path: .\n";
  scene.ocio.files.push_back({"curve.spi1d", {'V', 'e', 'r', 's', 'i', 'o', 'n', ' ', '1', 0, 255}});
  const SceneDescription back = readSceneXml("box.xml", writeSceneXml(scene));
  EXPECT_EQ(back.ocio.configText, scene.ocio.configText);
  ASSERT_EQ(back.ocio.files.size(), 1u);
  EXPECT_EQ(back.ocio.files[0].name, "curve.spi1d");
  EXPECT_EQ(back.ocio.files[0].bytes, scene.ocio.files[0].bytes);
}

TEST(XmlRoundTrip, UnwritableTargetFailsWithTheFileNamed) {
  const SceneDescription scene = readSceneFile(std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb");
  try {
    saveSceneXml(scene, "/nonexistent-folder/out.xml");
    FAIL() << "writing into a missing folder must fail";
  } catch (const std::exception& e) {
    EXPECT_NE(std::string(e.what()).find("out.xml: cannot be created"), std::string::npos) << e.what();
  }
}

}  // namespace
}  // namespace zvr::loadstore
