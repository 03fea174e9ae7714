// AOV contents: ids are exact, depth is the known distance, variance follows the noise. The light
// split is checked with the other partitions of the beauty among the light path tests.
#include <cmath>
#include <set>

#include "kernel/aov.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

TEST(Aovs, IdsCarryTheExactIdOrItsColour) {
  RenderParams params;
  params.imageFilterType = 1;
  params.imageFilterRadius = 0.5f;
  auto images = render(mixedScene(), params, 40, 30, 4, {kAovObjectId, kAovMaterialId, kAovMeshId, kAovGroupId});
  const auto &object = images[0], &material = images[1], &mesh = images[2], &group = images[3];
  std::set<float> seen(object.begin(), object.end());
  for (size_t p = 0; p < object.size(); ++p)
    if (p % 4 != 3 && object[p] == 7) {  // pixels on one object hold its ids exactly; only edge pixels mix two
      EXPECT_EQ(material[p], 11);
      EXPECT_EQ(mesh[p], 70);
      EXPECT_EQ(group[p], 700);
    }
  EXPECT_TRUE(seen.count(7) && seen.count(8) && seen.count(9)) << "every object should fill whole pixels";
  // With a colour table, ids become colours.
  params.indexColors.assign(16 * 4, 0.0f);
  for (int id = 0; id < 16; ++id) {
    params.indexColors[4 * id] = id / 16.0f;
    params.indexColors[4 * id + 1] = 0.5f;
    params.indexColors[4 * id + 2] = 1 - id / 16.0f;
  }
  auto img = render(mixedScene(), params, 40, 30, 4, {kAovObjectId})[0];
  for (size_t p = 0; p < img.size(); p += 4)  // object 9 fills whole pixels, as seen above
    if (object[p] == 9) {
      EXPECT_FLOAT_EQ(img[p], 9 / 16.0f);
      EXPECT_FLOAT_EQ(img[p + 1], 0.5f);
      EXPECT_FLOAT_EQ(img[p + 2], 1 - 9 / 16.0f);
    }
}

TEST(Aovs, DepthIsTheDistanceAlongTheRayAndNormalsFaceUp) {
  const float height = 2.5f;
  const SceneSnapshot scene =
      sceneOf({shape(1, makeQuad(10), diffuseMaterial(0.5f, 0.5f, 0.5f))}, {}, cameraAt(0, height, 0, 0, 0, 0, 1.0f));
  auto images = render(scene, boxFilter(), 32, 32, 8, {kAovDepth, kAovWorldCoordinate, kAovNormal, kAovCameraNormal});
  const auto &depth = images[0], &pos = images[1], &normal = images[2], &camNormal = images[3];
  for (size_t p = 0; p < depth.size(); p += 4) {
    float expected = std::sqrt(height * height + pos[p] * pos[p] + pos[p + 2] * pos[p + 2]);
    ASSERT_NEAR(depth[p], expected, 2e-3f * expected) << "pixel " << p / 4;
    EXPECT_NEAR(normal[p + 1], 1, 1e-5f);
    EXPECT_NEAR(camNormal[p + 2], 1, 1e-5f) << "the plane faces the camera: +z in camera space";
  }
  EXPECT_NEAR(depth[(16 * 32 + 16) * 4], height, 0.01f) << "the centre pixel looks straight down";
}

TEST(Aovs, VarianceIsZeroForAConstantPixelAndPositiveForNoise) {
  auto v = render(mixedScene(), RenderParams{}, 16, 12, 8, {kAovVariance, kAovColor})[0];
  for (size_t p = 0; p < v.size(); p += 4)
    for (int k = 0; k < 3; ++k) ASSERT_GE(v[p + k], -1e-4f);
  EXPECT_GT(meanChannel(v, 0), 0);
  // A constant environment with nothing in view has no variance.
  auto flat = render(sceneOf({}, {environmentLight(0.7f)}, CameraData{}), RenderParams{}, 8, 8, 6, {kAovVariance})[0];
  for (size_t p = 0; p < flat.size(); p += 4)
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(flat[p + k], 0.0f, 1e-6f);
}

}  // namespace
}  // namespace zvr::test
