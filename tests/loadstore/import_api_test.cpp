#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <tuple>

#include "tests/loadstore/api_fixture.h"
#include "tests/loadstore/scene_catalog.h"

namespace zvr::testing {
namespace {

bool fileHasEmission(const nlohmann::json& j) {
  for (const auto& m : j.value("materials", nlohmann::json::array())) {
    float strength = 1.f;
    if (m.contains("extensions") && m["extensions"].contains("KHR_materials_emissive_strength"))
      strength = m["extensions"]["KHR_materials_emissive_strength"].value("emissiveStrength", 1.f);
    for (float c : m.value("emissiveFactor", std::vector<float>{0, 0, 0}))
      if (c * strength > 0.f) return true;
  }
  return false;
}

using ImportApi = LoadStoreApi;

TEST_F(ImportApi, EverySharedSceneImportsAndIsDeletedWithoutLeaks) {
  for (const std::string& file : sharedSceneFiles()) {
    SCOPED_TRACE(file);
    const nlohmann::json j = gltfJson(file);
    const ExpectedCounts want = expectedCounts(j);
    ZvrScene imported = nullptr;
    ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &imported, 0, nullptr), 0) << lastError();
    const auto shapes = this->imported<zvrsListImportedShapes>();
    EXPECT_EQ(shapes.size(), want.shapes);
    // A scene without camera gets one; a scene without light or emission gets an environment.
    EXPECT_EQ(this->imported<zvrsListImportedCameras>().size(), want.cameras ? want.cameras : 1);
    EXPECT_EQ(this->imported<zvrsListImportedLights>().size(), want.lights + (want.lights == 0 && !fileHasEmission(j)));
    size_t records = 0;
    while (zvrsGetAnimation(uint32_t(records))) ++records;
    EXPECT_EQ(records, want.animationRecords);
    // Every shape's group chain ends at a root within the number of groups.
    for (ZvrObject shape : shapes) {
      std::string group = parentName(zvrsGetParentGroupFromShape, shape);
      ASSERT_FALSE(group.empty());
      for (size_t depth = 0; !group.empty(); ++depth) {
        ASSERT_LE(depth, want.groups);
        ZvrsTransformGroupBlock block;
        ASSERT_EQ(zvrsGetTransformGroup(group.c_str(), &block), 0);
        group = groupParent(group);
      }
    }
    EXPECT_EQ(info<ZvrScene>(zvrContextGetInfo, context, ZVR_CONTEXT_SCENE), imported)
        << "the new scene must be the context's";
    EXPECT_EQ(zvrsReleaseImportedData(), 0);
    EXPECT_EQ(zvrObjectDelete(imported), 0);
  }
  ASSERT_EQ(zvrObjectDelete(materialSystem), 0);
  materialSystem = nullptr;
  ASSERT_EQ(zvrsDeleteListImportedObjects(nullptr), 0);
  for (ZvrContextInfo key : {ZVR_CONTEXT_LIST_CREATED_SHAPES, ZVR_CONTEXT_LIST_CREATED_LIGHTS, ZVR_CONTEXT_LIST_CREATED_CAMERAS,
                             ZVR_CONTEXT_LIST_CREATED_IMAGES, ZVR_CONTEXT_LIST_CREATED_MATERIALNODES})
    EXPECT_TRUE(liveObjects(key).empty()) << "objects of list key " << key << " survived the deletion";
}

TEST_F(ImportApi, BoxAnimatedGroupsAndRecordsAsTheProgramReadsThem) {
  const std::string file = kScenes + "BoxAnimated/BoxAnimated.glb";
  const nlohmann::json j = gltfJson(file);
  ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  // Each shape's group is the node holding its mesh, and the chain follows the file's children lists.
  for (ZvrObject shape : imported<zvrsListImportedShapes>()) {
    int node = int(info<uint32_t>(zvrShapeGetInfo, shape, ZVR_SHAPE_GROUP_ID));
    std::string group = parentName(zvrsGetParentGroupFromShape, shape);
    EXPECT_EQ(group, j["nodes"][node].value("name", group));
    while (true) {
      int parent = -1;
      for (size_t p = 0; p < j["nodes"].size(); ++p)
        for (int c : j["nodes"][p].value("children", std::vector<int>{}))
          if (c == node) parent = int(p);
      group = groupParent(group);
      if (parent < 0) {
        EXPECT_EQ(group, "");
        break;
      }
      EXPECT_EQ(group, j["nodes"][parent].value("name", group));
      node = parent;
    }
    // Import leaves the group transforms to the program: the shape's own matrix is the identity.
    using Matrix = std::array<float, 16>;
    EXPECT_EQ(info<Matrix>(zvrShapeGetInfo, shape, ZVR_SHAPE_TRANSFORM),
              (Matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));
  }
  const auto& channels = j["animations"][0]["channels"];
  for (uint32_t i = 0; i < channels.size(); ++i) {
    const ZvrsAnimationRecord* r = zvrsGetAnimation(i);
    ASSERT_NE(r, nullptr);
    const std::string path = channels[i]["target"]["path"];
    EXPECT_EQ(r->kind, path == "translation" ? 1u : path == "rotation" ? 2u : 3u);
    EXPECT_EQ(r->componentCount, r->kind == 2 ? 4u : 3u);
    EXPECT_EQ(r->timeCount, r->keyCount);
    EXPECT_EQ(std::string(r->groupName), j["nodes"][channels[i]["target"]["node"].get<int>()].value("name", r->groupName));
    // Linear keys reach the program as the file holds them.
    const auto& sampler = j["animations"][0]["samplers"][channels[i]["sampler"].get<int>()];
    EXPECT_EQ(std::vector<float>(r->times, r->times + r->timeCount), accessorFloats(file, j, sampler["input"]));
    const std::vector<float> values = accessorFloats(file, j, sampler["output"]);
    ASSERT_EQ(r->keyCount * r->componentCount, values.size());
    for (size_t k = 0; k < values.size(); ++k) EXPECT_NEAR(r->values[k], values[k], 1e-6f);
  }
  EXPECT_EQ(zvrsGetAnimation(uint32_t(channels.size())), nullptr);
  EXPECT_EQ(zvrsReleaseImportedData(), 0);
  EXPECT_EQ(zvrsGetAnimation(0), nullptr);
  ZvrsTransformGroupBlock block;
  EXPECT_NE(zvrsGetTransformGroup(j["nodes"][0].value("name", "").c_str(), &block), 0);
  EXPECT_EQ(imported<zvrsListImportedShapes>().size(), 2u) << "the lists outlive the released data";
}

TEST_F(ImportApi, MatrixNodeBecomesTranslationRotationScale) {
  // Box.glb's root node turns the Z-up box into Y-up with a matrix.
  const std::string file = kScenes + "Box/Box.glb";
  const nlohmann::json j = gltfJson(file);
  ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const std::vector<float> m = j["nodes"][0]["matrix"].get<std::vector<float>>();
  std::string root = parentName(zvrsGetParentGroupFromShape, imported<zvrsListImportedShapes>().at(0));
  while (!groupParent(root).empty()) root = groupParent(root);
  ZvrsTransformGroupBlock b;
  ASSERT_EQ(zvrsGetTransformGroup(root.c_str(), &b), 0);
  const float x = b.rotation[0], y = b.rotation[1], z = b.rotation[2], w = b.rotation[3];
  // Column 1 of the rotation, scaled, against the file's matrix.
  EXPECT_NEAR(2 * (x * y - z * w) * b.scale[1], m[4], 1e-5f);
  EXPECT_NEAR((1 - 2 * (x * x + z * z)) * b.scale[1], m[5], 1e-5f);
  EXPECT_NEAR(2 * (y * z + x * w) * b.scale[1], m[6], 1e-5f);
  EXPECT_NEAR(2 * (x * z - y * w) * b.scale[0], m[2], 1e-5f);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(b.translation[i], m[12 + i], 1e-6f);
}

TEST_F(ImportApi, FailedImportsNameTheFileAndLeaveNothingBehind) {
  struct Case {
    const char* name;
    std::string path;
    const void* options;
    ZvrStatus status;
    const char* words;
  };
  // A copy of a textured sample with its embedded PNG's signature overwritten: the container
  // intact, the image not. A broken container fails in the reader as a missing file does.
  std::vector<uint8_t> bytes = fileBytes(kScenes + "BoxTextured/BoxTextured.glb");
  for (size_t i = 0; i + 4 < bytes.size(); ++i)
    if (std::memcmp(&bytes[i], "\x89PNG", 4) == 0) std::memset(&bytes[i], 'x', 16);
  const std::string badPng = scratchDir() + "/badpng.glb";
  std::ofstream(badPng, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
  int dummy = 0;
  const Case cases[] = {
      {"missing file", "/nonexistent/scene.glb", nullptr, ZVR_ERROR_IO, "scene.glb: does not exist"},
      {"undecodable texture", badPng, nullptr, ZVR_ERROR_IO, "badpng.glb: decoding image 0"},
      {"options given", kScenes + "Box/Box.glb", &dummy, ZVR_ERROR_UNSUPPORTED, "not supported"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ZvrScene s = reinterpret_cast<ZvrScene>(&dummy);  // whatever the caller left there
    EXPECT_EQ(zvrsImport(c.path.c_str(), context, materialSystem, &s, 0, c.options), c.status);
    EXPECT_EQ(s, nullptr) << "a failed import hands out no scene";
    EXPECT_NE(lastError().find(c.words), std::string::npos) << lastError();
    for (ZvrContextInfo key : {ZVR_CONTEXT_LIST_CREATED_SHAPES, ZVR_CONTEXT_LIST_CREATED_IMAGES,
                               ZVR_CONTEXT_LIST_CREATED_MATERIALNODES, ZVR_CONTEXT_LIST_CREATED_SCENES})
      EXPECT_TRUE(liveObjects(key).empty()) << "a failed import left objects of list key " << key;
  }
  EXPECT_EQ(zvrsImport(nullptr, context, materialSystem, &scene, 0, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrsImport((kScenes + "Box/Box.glb").c_str(), nullptr, materialSystem, &scene, 0, nullptr), ZVR_ERROR_INVALID_OBJECT);
  EXPECT_EQ(zvrsImport((kScenes + "Box/Box.glb").c_str(), context, context, &scene, 0, nullptr), ZVR_ERROR_INVALID_OBJECT);
}

// Each name reaches its key with its type; the other type, an unknown name and another case are refused.
TEST_F(ImportApi, ParametersByNameReachTheirKeys) {
  const std::tuple<const char*, ZvrContextInfo, bool, float> cases[] = {
      {"displaygamma", ZVR_CONTEXT_DISPLAY_GAMMA, true, 1.8f},
      {"texturegamma", ZVR_CONTEXT_TEXTURE_GAMMA, true, 2.2f},
      {"mipmaplodoffset", ZVR_CONTEXT_MIPMAP_LOD_OFFSET, true, -0.5f},
      {"maxdepth.shadow", ZVR_CONTEXT_MAX_DEPTH_SHADOW, false, 3},
      {"maxdepth.diffuse", ZVR_CONTEXT_MAX_DEPTH_DIFFUSE, false, 4},
      {"maxdepth.glossy", ZVR_CONTEXT_MAX_DEPTH_GLOSSY, false, 5},
      {"maxdepth.refraction", ZVR_CONTEXT_MAX_DEPTH_REFRACTION, false, 6},
      {"maxdepth.refraction.glossy", ZVR_CONTEXT_MAX_DEPTH_REFRACTION_GLOSSY, false, 7},
      {"ooctexcache", ZVR_CONTEXT_OOC_TEXTURE_CACHE, false, 512},
  };
  for (const auto& [name, key, isFloat, value] : cases) {
    SCOPED_TRACE(name);
    ASSERT_EQ(isFloat ? zvrContextSetParameter1f(context, name, value)
                      : zvrContextSetParameter1u(context, name, uint32_t(value)), 0) << lastError();
    EXPECT_EQ(isFloat ? info<float>(zvrContextGetInfo, context, key)
                      : float(info<uint32_t>(zvrContextGetInfo, context, key)), value);
    EXPECT_EQ(isFloat ? zvrContextSetParameter1u(context, name, 1) : zvrContextSetParameter1f(context, name, 1.f),
              ZVR_ERROR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(zvrContextSetParameter1u(context, "maxdepth.bogus", 1), ZVR_ERROR_UNKNOWN_KEY);
  EXPECT_NE(lastError().find("\"maxdepth.bogus\""), std::string::npos) << lastError();
  EXPECT_EQ(zvrContextSetParameter1f(context, "DisplayGamma", 1.f), ZVR_ERROR_UNKNOWN_KEY);
}

}  // namespace
}  // namespace zvr::testing
