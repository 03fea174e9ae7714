// AOV contents: the light split sums back to colour, ids are exact, depth is the known distance.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "kernel/aov.h"
#include "tests/kernel/test_support.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::test {
namespace {

using namespace kernel;

SceneSnapshot mixedScene() {
  SceneSnapshot scene;
  auto plastic = std::make_shared<MaterialData>();
  plastic->metallic = 0;
  plastic->roughness = 0.4f;
  plastic->materialId = 11;
  auto glass = std::make_shared<MaterialData>();
  glass->metallic = 0;
  glass->roughness = 0.1f;
  glass->transmission = 1;
  glass->thickness = 1;
  glass->materialId = 12;
  auto floor = diffuseMaterial(0.6f, 0.6f, 0.6f);
  floor->materialId = 13;
  auto lamp = std::make_shared<MaterialData>(*diffuseMaterial(0, 0, 0));
  lamp->emissive[0] = lamp->emissive[1] = lamp->emissive[2] = 2;
  ShapeData s1 = shape(1, makeSphere(0.5f, 24, 12), plastic, translation(-0.6f, 0.5f, 0));
  s1.objectId = 7;
  s1.meshId = 70;
  s1.groupId = 700;
  ShapeData s2 = shape(2, makeSphere(0.4f, 24, 12), glass, translation(0.6f, 0.4f, 0));
  s2.objectId = 8;
  ShapeData s3 = shape(3, makeQuad(3), floor);
  s3.objectId = 9;
  ShapeData s4 = shape(4, makeSphere(0.2f, 12, 6), lamp, translation(0, 1.6f, 0.5f));
  scene.shapes = {s1, s2, s3, s4};
  scene.lights.push_back(environmentLight(0.5f));
  scene.lights.push_back(pointLight(1, 3, 2, 4));
  scene.hasCamera = true;
  scene.camera.transform = lookAt(0, 1.2f, 3.5f, 0, 0.4f, 0);
  scene.camera.fovY = 0.9f;
  return scene;
}

TEST(LightSplit, PartsSumBackToColor) {
  SceneSnapshot scene = mixedScene();
  RenderParams params;
  params.radianceClamp = 5;  // the clamp must apply to the parts the same way
  velder::VelderPlugin plugin;
  std::vector<uint32_t> aovs = {kAovColor,           kAovEmission,      kAovBackground,      kAovDirectDiffuse,
                                kAovDirectReflect,   kAovIndirectDiffuse, kAovIndirectReflect, kAovRefract,
                                kAovVolume,          kAovSss,           kAovDirectIllumination, kAovIndirectIllumination};
  auto out = renderWith(plugin, scene, params, 32, 24, 16, aovs);
  ASSERT_EQ(out.status, 0) << out.error;
  auto color = out.image(0);
  std::vector<std::vector<float>> parts;
  for (size_t i = 0; i < aovs.size(); ++i) parts.push_back(out.image(i));
  double totals[12] = {};
  for (size_t p = 0; p < color.size(); p += 4)
    for (int k = 0; k < 3; ++k) {
      float byLobe = 0, byDepth = parts[1][p + k] + parts[2][p + k] + parts[10][p + k] + parts[11][p + k];
      for (size_t i = 1; i <= 9; ++i) byLobe += parts[i][p + k];
      ASSERT_NEAR(byLobe, color[p + k], 1e-4f * std::max(1.0f, color[p + k])) << "pixel " << p / 4;
      ASSERT_NEAR(byDepth, color[p + k], 1e-4f * std::max(1.0f, color[p + k])) << "pixel " << p / 4;
      for (size_t i = 0; i < aovs.size(); ++i) totals[i] += parts[i][p + k];
    }
  // Every part this scene has must actually receive light, or the split proves nothing.
  for (size_t i : {1, 2, 3, 4, 5, 6, 7, 10, 11}) EXPECT_GT(totals[i], 0.0) << "AOV " << aovs[i] << " stayed black";
  EXPECT_EQ(totals[8], 0.0);
  EXPECT_EQ(totals[9], 0.0);
}

TEST(Ids, CarryTheExactIdOrItsColour) {
  SceneSnapshot scene = mixedScene();
  RenderParams params;
  params.imageFilterType = 1;
  params.imageFilterRadius = 0.5f;
  velder::VelderPlugin plugin;
  std::vector<uint32_t> aovs = {kAovObjectId, kAovMaterialId, kAovMeshId, kAovGroupId, kAovOpacity};
  auto out = renderWith(plugin, scene, params, 40, 30, 4, aovs);
  ASSERT_EQ(out.status, 0) << out.error;
  auto object = out.image(0), material = out.image(1), mesh = out.image(2), group = out.image(3);
  std::set<float> seen;
  for (size_t p = 0; p < object.size(); p += 4) {
    for (int k = 0; k < 3; ++k) {
      float id = object[p + k];
      // Pixels on one object hold its id exactly; only edge pixels mix two.
      if (id == 7) {
        EXPECT_EQ(material[p + k], 11);
        EXPECT_EQ(mesh[p + k], 70);
        EXPECT_EQ(group[p + k], 700);
      }
      seen.insert(id);
    }
  }
  EXPECT_TRUE(seen.count(7) && seen.count(8) && seen.count(9)) << "every object should fill whole pixels";

  // With a colour table, ids become colours.
  params.indexColors.assign(16 * 4, 0.0f);
  for (int id = 0; id < 16; ++id) {
    params.indexColors[4 * id] = id / 16.0f;
    params.indexColors[4 * id + 1] = 0.5f;
    params.indexColors[4 * id + 2] = 1 - id / 16.0f;
  }
  auto coloured = renderWith(plugin, scene, params, 40, 30, 4, {kAovObjectId});
  auto img = coloured.image();
  bool found = false;
  for (size_t p = 0; p < img.size(); p += 4)
    if (object[p] == 9) {
      EXPECT_FLOAT_EQ(img[p], 9 / 16.0f);
      EXPECT_FLOAT_EQ(img[p + 1], 0.5f);
      EXPECT_FLOAT_EQ(img[p + 2], 1 - 9 / 16.0f);
      found = true;
    }
  EXPECT_TRUE(found);
}

TEST(Depth, EqualsDistanceAlongTheRay) {
  SceneSnapshot scene;
  scene.shapes.push_back(shape(1, makeQuad(10), diffuseMaterial(0.5f, 0.5f, 0.5f)));
  scene.hasCamera = true;
  const float height = 2.5f;
  scene.camera.transform = lookAt(0, height, 0, 0, 0, 0);
  scene.camera.fovY = 1.0f;
  RenderParams params;
  params.imageFilterType = 0;
  velder::VelderPlugin plugin;
  const uint32_t w = 32, h = 32;
  auto out = renderWith(plugin, scene, params, w, h, 8, {kAovDepth, kAovWorldCoordinate, kAovNormal, kAovCameraNormal});
  ASSERT_EQ(out.status, 0) << out.error;
  auto depth = out.image(0), pos = out.image(1), normal = out.image(2), camNormal = out.image(3);
  for (size_t p = 0; p < depth.size(); p += 4) {
    float expected = std::sqrt(height * height + pos[p] * pos[p] + pos[p + 2] * pos[p + 2]);
    ASSERT_NEAR(depth[p], expected, 2e-3f * expected) << "pixel " << p / 4;
    EXPECT_NEAR(normal[p + 1], 1, 1e-5f);
    EXPECT_NEAR(camNormal[p + 2], 1, 1e-5f) << "the plane faces the camera: +z in camera space";
  }
  // The centre pixel looks straight down.
  size_t c = ((h / 2) * w + w / 2) * 4;
  EXPECT_NEAR(depth[c], height, 0.01f);
}

TEST(Variance, FallsToZeroForAConstantPixelAndIsPositiveForNoise) {
  SceneSnapshot scene = mixedScene();
  RenderParams params;
  velder::VelderPlugin plugin;
  auto out = renderWith(plugin, scene, params, 16, 12, 8, {kAovVariance, kAovColor});
  ASSERT_EQ(out.status, 0) << out.error;
  auto v = out.image(0);
  double sum = 0;
  for (size_t p = 0; p < v.size(); p += 4) {
    for (int k = 0; k < 3; ++k) ASSERT_GE(v[p + k], -1e-4f);
    sum += v[p];
  }
  EXPECT_GT(sum, 0);
  // A scene lit only by a constant environment with nothing in view has no variance.
  SceneSnapshot empty;
  empty.lights.push_back(environmentLight(0.7f));
  empty.hasCamera = true;
  auto flat = renderWith(plugin, empty, params, 8, 8, 6, {kAovVariance});
  auto flatImage = flat.image();
  for (size_t p = 0; p < flatImage.size(); p += 4)
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(flatImage[p + k], 0.0f, 1e-6f);
}

}  // namespace
}  // namespace zvr::test
