#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>

#include "tests/loadstore/api_fixture.h"
#include "tests/loadstore/scene_catalog.h"

namespace zvr::testing {
namespace {

const std::string kScenes = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/";

using InstantiateApi = LoadStoreApi;

template <typename T>
T cameraInfo(ZvrCamera camera, uint32_t key) {
  T value{};
  EXPECT_EQ(zvrCameraGetInfo(camera, key, sizeof value, &value, nullptr), 0) << "key " << key;
  return value;
}

TEST_F(InstantiateApi, CamerasKeepTheirProjectionAndTheFirstIsTheScenes) {
  ASSERT_EQ(zvrsImport((kScenes + "Cameras/Cameras.gltf").c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const auto cameras = imported<zvrsListImportedCameras>();
  ASSERT_EQ(cameras.size(), 2u);
  ZvrCamera active = nullptr;
  ASSERT_EQ(zvrSceneGetCamera(scene, &active), 0);
  EXPECT_EQ(active, cameras[0]) << "the first camera in node order is the scene's";
  EXPECT_EQ(cameraInfo<uint32_t>(cameras[0], ZVR_CAMERA_TYPE), uint32_t(ZVR_CAMERA_PERSPECTIVE));
  EXPECT_FLOAT_EQ(cameraInfo<float>(cameras[0], ZVR_CAMERA_FOVY), 0.7f);
  EXPECT_EQ(cameraInfo<uint32_t>(cameras[1], ZVR_CAMERA_TYPE), uint32_t(ZVR_CAMERA_ORTHOGRAPHIC));
  EXPECT_FLOAT_EQ(cameraInfo<float>(cameras[1], ZVR_CAMERA_ORTHO_HEIGHT), 2.f) << "ymag is half the height";
  const auto clip = cameraInfo<std::array<float, 2>>(cameras[0], ZVR_CAMERA_CLIP);
  EXPECT_FLOAT_EQ(clip[0], 0.01f);
  EXPECT_FLOAT_EQ(clip[1], 100.f);
  EXPECT_EQ(parentName(zvrsGetParentGroupFromCamera, cameras[0]), "node_1");
  EXPECT_EQ(parentName(zvrsGetParentGroupFromCamera, cameras[1]), "node_2");
}

TEST_F(InstantiateApi, PunctualLightsCarryColourTimesIntensity) {
  const std::string file = kScenes + "LightsPunctualLamp/LightsPunctualLamp.gltf";
  const nlohmann::json j = gltfJson(file);
  ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const auto lights = imported<zvrsListImportedLights>();
  ASSERT_EQ(lights.size(), 5u);
  const auto& defs = j["extensions"]["KHR_lights_punctual"]["lights"];
  size_t matched = 0;
  for (ZvrObject light : lights) {
    char name[256] = {};
    ASSERT_EQ(zvrLightGetInfo(light, ZVR_OBJECT_NAME, sizeof name, name, nullptr), 0);
    for (const auto& d : defs) {
      if (d["name"] != name) continue;
      ++matched;
      const std::vector<float> colour = d.value("color", std::vector<float>{1, 1, 1});
      const float intensity = d.value("intensity", 1.f);
      float radiance[3];
      ASSERT_EQ(zvrLightGetInfo(light, ZVR_LIGHT_RADIANCE, sizeof radiance, radiance, nullptr), 0);
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(radiance[c], colour[c] * intensity, 1e-4f) << name;
      uint32_t type = 99;
      ASSERT_EQ(zvrLightGetInfo(light, ZVR_LIGHT_TYPE, sizeof type, &type, nullptr), 0);
      EXPECT_EQ(type, uint32_t(ZVR_LIGHT_POINT));
      EXPECT_FALSE(parentName(zvrsGetParentGroupFromLight, light).empty());
    }
  }
  EXPECT_EQ(matched, defs.size());
}

// An XML document's environment becomes the scene's own sky in place of the default one, and an
// export of that document carries it on.
TEST_F(InstantiateApi, XmlEnvironmentReplacesTheDefaultSkyAndIsExportedAgain) {
  const std::string folder = scratchDir() + "/xml_environment";
  std::filesystem::create_directories(folder);
  const std::string plain = folder + "/box.xml", lit = folder + "/box_lit.xml", again = folder + "/again.xml";
  ASSERT_EQ(zvrsExportToXML((kScenes + "Box/Box.glb").c_str(), plain.c_str()), 0);
  std::vector<uint8_t> bytes = fileBytes(plain);
  std::string text(bytes.begin(), bytes.end());
  const size_t at = text.find("<nodes");
  ASSERT_NE(at, std::string::npos);
  text.insert(at, "<environment color=\"0.2 0.5 0.8\" intensity=\"2\" rotation=\"30\" image=\"-1\" />\n  ");
  std::ofstream(lit) << text;

  ASSERT_EQ(zvrsImport(lit.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const auto lights = liveObjects(ZVR_CONTEXT_LIST_CREATED_LIGHTS);
  ASSERT_EQ(lights.size(), 1u) << "the document's sky takes the default one's place";
  float radiance[3], intensity = 0, rotation = 0;
  ASSERT_EQ(zvrLightGetInfo(lights[0], ZVR_LIGHT_RADIANCE, sizeof radiance, radiance, nullptr), 0);
  ASSERT_EQ(zvrLightGetInfo(lights[0], ZVR_LIGHT_INTENSITY, sizeof intensity, &intensity, nullptr), 0);
  ASSERT_EQ(zvrLightGetInfo(lights[0], ZVR_LIGHT_ROTATION, sizeof rotation, &rotation, nullptr), 0);
  EXPECT_EQ(std::vector<float>(radiance, radiance + 3), (std::vector<float>{0.2f, 0.5f, 0.8f}));
  EXPECT_EQ(intensity, 2.0f);
  EXPECT_EQ(rotation, 30.0f);

  ASSERT_EQ(zvrsExportToXML(lit.c_str(), again.c_str()), 0);
  bytes = fileBytes(again);
  const std::string exported(bytes.begin(), bytes.end());
  // Floats are written with the digits that read back exactly.
  EXPECT_NE(exported.find("<environment color=\"0.200000003 0.5 0.800000012\" intensity=\"2\" rotation=\"30\""),
            std::string::npos)
      << exported.substr(0, 2000);
}

// A copy of the lamp scene whose lights are in groups 1, 2, ... and whose emissive materials in
// group 9, through the glTF extras; `edit` may spoil it further.
std::string taggedLamp(const std::string& name, const std::function<void(nlohmann::json&)>& edit = {}) {
  const std::string folder = scratchDir() + "/light_groups";
  std::filesystem::create_directories(folder);
  std::filesystem::copy(kScenes + "LightsPunctualLamp", folder,
                        std::filesystem::copy_options::overwrite_existing | std::filesystem::copy_options::recursive);
  nlohmann::json j = gltfJson(kScenes + "LightsPunctualLamp/LightsPunctualLamp.gltf");
  int group = 1;
  for (auto& light : j["extensions"]["KHR_lights_punctual"]["lights"]) light["extras"]["lightGroup"] = group++;
  for (auto& material : j["materials"])
    if (material.contains("emissiveFactor")) material["extras"]["lightGroup"] = 9;
  if (edit) edit(j);
  const std::string file = folder + "/" + name;
  std::ofstream(file) << j.dump();
  return file;
}

// Light group of every imported light and shape, by name.
std::map<std::string, int32_t> importedLightGroups(const std::vector<ZvrObject>& lights, const std::vector<ZvrObject>& shapes) {
  std::map<std::string, int32_t> groups;
  for (ZvrObject light : lights) {
    char name[256] = {};
    int32_t group = -5;
    EXPECT_EQ(zvrLightGetInfo(light, ZVR_OBJECT_NAME, sizeof name, name, nullptr), 0);
    EXPECT_EQ(zvrLightGetInfo(light, ZVR_LIGHT_GROUP, sizeof group, &group, nullptr), 0);
    groups[std::string("light ") + name] = group;
  }
  for (ZvrObject shape : shapes) {
    char name[256] = {};
    int32_t group = -5;
    EXPECT_EQ(zvrShapeGetInfo(shape, ZVR_OBJECT_NAME, sizeof name, name, nullptr), 0);
    EXPECT_EQ(zvrShapeGetInfo(shape, ZVR_SHAPE_LIGHT_GROUP, sizeof group, &group, nullptr), 0);
    groups[std::string("shape ") + name] = group;
  }
  return groups;
}

// The tags arrive from the glTF extras, and the XML export of that file carries every one of them.
TEST_F(InstantiateApi, LightGroupsArriveFromGltfExtrasAndTravelThroughXml) {
  const std::string gltf = taggedLamp("lamp.gltf"), xml = scratchDir() + "/light_groups/lamp.xml";
  ASSERT_EQ(zvrsExportToXML(gltf.c_str(), xml.c_str()), 0);
  std::map<std::string, int32_t> fromGltf;
  for (const std::string& file : {gltf, xml}) {
    SCOPED_TRACE(file);
    ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
    auto groups = importedLightGroups(imported<zvrsListImportedLights>(), imported<zvrsListImportedShapes>());
    if (fromGltf.empty()) {
      fromGltf = groups;
      std::set<int32_t> seen;
      for (const auto& [name, group] : groups) seen.insert(group);
      EXPECT_EQ(seen, (std::set<int32_t>{-1, 1, 2, 3, 4, 5, 9})) << "five lights, the emissive shapes, the rest untagged";
    } else {
      EXPECT_EQ(groups, fromGltf);
    }
    ASSERT_EQ(zvrObjectDelete(scene), 0);
    scene = nullptr;
    ASSERT_EQ(zvrsDeleteListImportedObjects(nullptr), 0);
  }
}

TEST_F(InstantiateApi, ALightGroupOutsideZeroToFifteenIsRefused) {
  const std::string file = taggedLamp("bad.gltf", [](nlohmann::json& j) {
    j["extensions"]["KHR_lights_punctual"]["lights"][0]["extras"]["lightGroup"] = 16;
  });
  EXPECT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), ZVR_ERROR_IO);
  EXPECT_NE(lastError().find("light 0 has a \"lightGroup\" in its extras that is not a whole number from 0 to 15"),
            std::string::npos)
      << lastError();
}

TEST_F(InstantiateApi, TexturesAreSharedPerColourSpaceAndMaterialsCarryTheirFactors) {
  const std::string file = kScenes + "NormalTangentMirrorTest/NormalTangentMirrorTest.glb";
  ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const auto shapes = imported<zvrsListImportedShapes>();
  ASSERT_EQ(shapes.size(), 1u);
  ZvrMaterialNode material = nullptr;
  ASSERT_EQ(zvrShapeGetInfo(shapes[0], ZVR_SHAPE_MATERIAL, sizeof material, &material, nullptr), 0);
  ASSERT_NE(material, nullptr);
  auto slotImage = [&](const char* slot) {
    ZvrImage image = nullptr;
    EXPECT_EQ(zvrMaterialNodeGetParameter(material, slot, sizeof image, &image, nullptr), 0) << slot;
    return image;
  };
  auto colourSpace = [](ZvrImage image) {
    ZvrImageDesc desc{};
    EXPECT_EQ(zvrImageGetInfo(image, ZVR_IMAGE_DESC, sizeof desc, &desc, nullptr), 0);
    return desc.colorSpace;
  };
  // Occlusion and metallic-roughness read one image, both linear: it is decoded once.
  EXPECT_EQ(slotImage("occlusion"), slotImage("metallic_roughness"));
  EXPECT_EQ(colourSpace(slotImage("base_color")), uint32_t(ZVR_IMAGE_COLORSPACE_SRGB));
  EXPECT_EQ(colourSpace(slotImage("normal")), uint32_t(ZVR_IMAGE_COLORSPACE_LINEAR));
  EXPECT_EQ(colourSpace(slotImage("occlusion")), uint32_t(ZVR_IMAGE_COLORSPACE_LINEAR));
  EXPECT_EQ(liveObjects(ZVR_CONTEXT_LIST_CREATED_IMAGES).size(), 3u);
  uint32_t doubleSided = 0, materialId = 99;
  ASSERT_EQ(zvrMaterialNodeGetParameter(material, "double_sided", sizeof doubleSided, &doubleSided, nullptr), 0);
  EXPECT_EQ(doubleSided, 1u);
  ASSERT_EQ(zvrMaterialNodeGetParameter(material, "material_id", sizeof materialId, &materialId, nullptr), 0);
  EXPECT_EQ(materialId, 0u);
}

TEST_F(InstantiateApi, ShapesCarryIdsNamesAndTheirMaterials) {
  const std::string file = kScenes + "BoxTextured/BoxTextured.glb";
  const nlohmann::json j = gltfJson(file);
  ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const auto shapes = imported<zvrsListImportedShapes>();
  ASSERT_EQ(shapes.size(), 1u);
  uint32_t objectId = 99, meshId = 99, groupId = 99;
  ASSERT_EQ(zvrShapeGetInfo(shapes[0], ZVR_SHAPE_OBJECT_ID, 4, &objectId, nullptr), 0);
  ASSERT_EQ(zvrShapeGetInfo(shapes[0], ZVR_SHAPE_MESH_ID, 4, &meshId, nullptr), 0);
  ASSERT_EQ(zvrShapeGetInfo(shapes[0], ZVR_SHAPE_GROUP_ID, 4, &groupId, nullptr), 0);
  EXPECT_EQ(objectId, 0u);
  EXPECT_EQ(meshId, 0u);
  EXPECT_EQ(j["nodes"][groupId]["mesh"], 0) << "the group id is the index of the node holding the mesh";
  char name[256] = {};
  ASSERT_EQ(zvrShapeGetInfo(shapes[0], ZVR_OBJECT_NAME, sizeof name, name, nullptr), 0);
  EXPECT_EQ(std::string(name), parentName(zvrsGetParentGroupFromShape, shapes[0])) << "a single primitive takes its node's name";
  ZvrMaterialNode material = nullptr;
  ASSERT_EQ(zvrShapeGetInfo(shapes[0], ZVR_SHAPE_MATERIAL, sizeof material, &material, nullptr), 0);
  float metallic = -1, base[4] = {};
  ASSERT_EQ(zvrMaterialNodeGetParameter(material, "metallic", sizeof metallic, &metallic, nullptr), 0);
  EXPECT_EQ(metallic, 0.f);
  ASSERT_EQ(zvrMaterialNodeGetParameter(material, "base_color", sizeof base, base, nullptr), 0);
  EXPECT_EQ(base[0], 1.f) << "the default factor is white";
  uint32_t vertices = 0;
  ASSERT_EQ(zvrShapeGetInfo(shapes[0], ZVR_SHAPE_VERTEX_COUNT, 4, &vertices, nullptr), 0);
  const int positions = j["meshes"][0]["primitives"][0]["attributes"]["POSITION"];
  EXPECT_EQ(vertices, j["accessors"][positions]["count"].get<uint32_t>());
}

}  // namespace
}  // namespace zvr::testing
