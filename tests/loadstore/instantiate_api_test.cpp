#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "tests/loadstore/api_fixture.h"
#include "tests/loadstore/scene_catalog.h"

namespace zvr::testing {
namespace {

using InstantiateApi = LoadStoreApi;

TEST_F(InstantiateApi, CamerasKeepTheirProjectionAndTheFirstIsTheScenes) {
  ASSERT_EQ(zvrsImport((kScenes + "Cameras/Cameras.gltf").c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const auto cameras = imported<zvrsListImportedCameras>();
  ASSERT_EQ(cameras.size(), 2u);
  ZvrCamera active = nullptr;
  ASSERT_EQ(zvrSceneGetCamera(scene, &active), 0);
  EXPECT_EQ(active, cameras[0]) << "the first camera in node order is the scene's";
  EXPECT_EQ(info<uint32_t>(zvrCameraGetInfo, cameras[0], ZVR_CAMERA_TYPE), uint32_t(ZVR_CAMERA_PERSPECTIVE));
  EXPECT_FLOAT_EQ(info<float>(zvrCameraGetInfo, cameras[0], ZVR_CAMERA_FOVY), 0.7f);
  EXPECT_EQ(info<uint32_t>(zvrCameraGetInfo, cameras[1], ZVR_CAMERA_TYPE), uint32_t(ZVR_CAMERA_ORTHOGRAPHIC));
  EXPECT_FLOAT_EQ(info<float>(zvrCameraGetInfo, cameras[1], ZVR_CAMERA_ORTHO_HEIGHT), 2.f) << "ymag is half the height";
  using Clip = std::array<float, 2>;
  EXPECT_EQ(info<Clip>(zvrCameraGetInfo, cameras[0], ZVR_CAMERA_CLIP), (Clip{0.01f, 100.f}));
  EXPECT_EQ(parentName(zvrsGetParentGroupFromCamera, cameras[0]), "node_1");
  EXPECT_EQ(parentName(zvrsGetParentGroupFromCamera, cameras[1]), "node_2");
  // The file's quaternion is slightly off unit length; the group gets it normalized.
  ZvrsTransformGroupBlock root;
  ASSERT_EQ(zvrsGetTransformGroup("node_0", &root), 0);
  const float* q = root.rotation;
  EXPECT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1.0, 1e-6);
}

// A copy of the lamp scene whose lights are in groups 1, 2, ..., whose emissive materials in group
// 9, and whose mesh nodes catch shadows, reflections, both, through the glTF extras.
std::string taggedLamp() {
  const std::string folder = scratchDir() + "/tags";
  std::filesystem::create_directories(folder);
  std::filesystem::copy(kScenes + "LightsPunctualLamp", folder,
                        std::filesystem::copy_options::overwrite_existing | std::filesystem::copy_options::recursive);
  nlohmann::json j = gltfJson(kScenes + "LightsPunctualLamp/LightsPunctualLamp.gltf");
  int group = 1;
  for (auto& light : j["extensions"]["KHR_lights_punctual"]["lights"]) light["extras"]["lightGroup"] = group++;
  for (auto& material : j["materials"])
    if (material.contains("emissiveFactor")) material["extras"]["lightGroup"] = 9;
  j["nodes"][0]["extras"] = {{"shadowCatcher", true}, {"note", "kept"}};
  j["nodes"][1]["extras"] = {{"reflectionCatcher", true}, {"shadowCatcher", false}};
  j["nodes"][2]["extras"] = {{"shadowCatcher", true}, {"reflectionCatcher", true}};
  std::ofstream(folder + "/lamp.gltf") << j.dump();
  return folder + "/lamp.gltf";
}

// The tags arrive from the glTF extras, and the XML export of that file carries every one of them.
TEST_F(InstantiateApi, LightsGroupsAndCatchersArriveFromGltfAndTravelThroughXml) {
  const std::string gltf = taggedLamp(), xml = scratchDir() + "/tags/lamp.xml";
  const auto definitions = gltfJson(gltf)["extensions"]["KHR_lights_punctual"]["lights"];
  ASSERT_EQ(zvrsExportToXML(gltf.c_str(), xml.c_str()), 0);
  for (const std::string& file : {gltf, xml}) {
    SCOPED_TRACE(file);
    ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
    // Each light by its name: a point light of colour times intensity, in the group of its place.
    const auto lights = imported<zvrsListImportedLights>();
    ASSERT_EQ(lights.size(), definitions.size());
    for (ZvrObject light : lights) {
      const std::string name = info<Name>(zvrLightGetInfo, light, ZVR_OBJECT_NAME).data();
      EXPECT_EQ(info<uint32_t>(zvrLightGetInfo, light, ZVR_LIGHT_TYPE), uint32_t(ZVR_LIGHT_POINT)) << name;
      EXPECT_FALSE(parentName(zvrsGetParentGroupFromLight, light).empty()) << name;
      const auto d = std::find_if(definitions.begin(), definitions.end(), [&](const auto& d) { return d["name"] == name; });
      ASSERT_NE(d, definitions.end()) << name;
      EXPECT_EQ(info<int32_t>(zvrLightGetInfo, light, ZVR_LIGHT_GROUP), int32_t(d - definitions.begin()) + 1) << name;
      const auto radiance = info<std::array<float, 3>>(zvrLightGetInfo, light, ZVR_LIGHT_RADIANCE);
      const std::vector<float> colour = d->value("color", std::vector<float>{1, 1, 1});
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(radiance[c], colour[c] * d->value("intensity", 1.f), 1e-4f) << name;
    }
    std::multiset<std::pair<uint32_t, int32_t>> shapes;  // catcher flags and light group of each shape
    for (ZvrObject shape : imported<zvrsListImportedShapes>())
      shapes.insert({info<uint32_t>(zvrShapeGetInfo, shape, ZVR_SHAPE_CATCHER),
                     info<int32_t>(zvrShapeGetInfo, shape, ZVR_SHAPE_LIGHT_GROUP)});
    EXPECT_EQ(shapes, (std::multiset<std::pair<uint32_t, int32_t>>{
                          {ZVR_CATCHER_SHADOW, 9}, {ZVR_CATCHER_REFLECTION, -1}, {ZVR_CATCHER_SHADOW | ZVR_CATCHER_REFLECTION, 9}}));
    // The library's own operation refuses bits it does not know.
    EXPECT_EQ(zvrShapeSetCatcher(imported<zvrsListImportedShapes>().at(0), 4), ZVR_ERROR_INVALID_ARGUMENT);
    EXPECT_NE(lastError().find("catcher flags 4"), std::string::npos) << lastError();
    ASSERT_EQ(zvrObjectDelete(scene), 0);
    scene = nullptr;
    ASSERT_EQ(zvrsDeleteListImportedObjects(nullptr), 0);
  }
}

TEST_F(InstantiateApi, TexturesAreSharedPerColourSpaceAndMaterialsCarryTheirFactors) {
  const std::string file = kScenes + "NormalTangentMirrorTest/NormalTangentMirrorTest.glb";
  ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const auto shapes = imported<zvrsListImportedShapes>();
  ASSERT_EQ(shapes.size(), 1u);
  const auto material = info<ZvrMaterialNode>(zvrShapeGetInfo, shapes[0], ZVR_SHAPE_MATERIAL);
  ASSERT_NE(material, nullptr);
  const auto slotImage = [&](const char* slot) { return info<ZvrImage>(zvrMaterialNodeGetParameter, material, slot); };
  const auto colourSpace = [](ZvrImage i) { return info<ZvrImageDesc>(zvrImageGetInfo, i, ZVR_IMAGE_DESC).colorSpace; };
  // Occlusion and metallic-roughness read one image, both linear: it is decoded once.
  EXPECT_EQ(slotImage("occlusion"), slotImage("metallic_roughness"));
  EXPECT_EQ(colourSpace(slotImage("base_color")), uint32_t(ZVR_IMAGE_COLORSPACE_SRGB));
  EXPECT_EQ(colourSpace(slotImage("normal")), uint32_t(ZVR_IMAGE_COLORSPACE_LINEAR));
  EXPECT_EQ(colourSpace(slotImage("occlusion")), uint32_t(ZVR_IMAGE_COLORSPACE_LINEAR));
  EXPECT_EQ(liveObjects(ZVR_CONTEXT_LIST_CREATED_IMAGES).size(), 3u);
  EXPECT_EQ(info<uint32_t>(zvrMaterialNodeGetParameter, material, "double_sided"), 1u);
  EXPECT_EQ(info<uint32_t>(zvrMaterialNodeGetParameter, material, "material_id"), 0u);
}

TEST_F(InstantiateApi, ShapesCarryIdsNamesAndTheirMaterials) {
  const std::string file = kScenes + "BoxTextured/BoxTextured.glb";
  const nlohmann::json j = gltfJson(file);
  ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const auto shapes = imported<zvrsListImportedShapes>();
  ASSERT_EQ(shapes.size(), 1u);
  const ZvrShape shape = shapes[0];
  EXPECT_EQ(info<uint32_t>(zvrShapeGetInfo, shape, ZVR_SHAPE_OBJECT_ID), 0u);
  EXPECT_EQ(info<uint32_t>(zvrShapeGetInfo, shape, ZVR_SHAPE_MESH_ID), 0u);
  EXPECT_EQ(j["nodes"][info<uint32_t>(zvrShapeGetInfo, shape, ZVR_SHAPE_GROUP_ID)]["mesh"], 0)
      << "the group id is the index of the node holding the mesh";
  EXPECT_EQ(info<Name>(zvrShapeGetInfo, shape, ZVR_OBJECT_NAME).data(), parentName(zvrsGetParentGroupFromShape, shape))
      << "a single primitive takes its node's name";
  const auto material = info<ZvrMaterialNode>(zvrShapeGetInfo, shape, ZVR_SHAPE_MATERIAL);
  EXPECT_EQ(info<float>(zvrMaterialNodeGetParameter, material, "metallic"), 0.f);
  EXPECT_EQ((info<std::array<float, 4>>(zvrMaterialNodeGetParameter, material, "base_color")[0]), 1.f)
      << "the default factor is white";
  const int positions = j["meshes"][0]["primitives"][0]["attributes"]["POSITION"];
  EXPECT_EQ(info<uint32_t>(zvrShapeGetInfo, shape, ZVR_SHAPE_VERTEX_COUNT), j["accessors"][positions]["count"]);
}

}  // namespace
}  // namespace zvr::testing
