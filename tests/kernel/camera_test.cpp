// Projections map known directions to known pixels, in the ray generator and in a real render.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/aov.h"
#include "kernel/camera.h"
#include "tests/kernel/test_support.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::kernel {
namespace {

constexpr float kW = 200, kH = 100;

struct DirectionCase {
  const char* name;
  uint32_t mode;
  uint32_t type;
  float postScale;
  float x, y;          // film position
  Vec3 direction;      // expected, camera space
  Vec3 originOffset;   // expected origin relative to the camera position
};

std::vector<DirectionCase> directionCases() {
  float t = std::tan(0.4f);  // half of fovY 0.8
  Vec3 topEdge = normalize(Vec3(0, t, -1));
  Vec3 rightEdge = normalize(Vec3(t * 2, 0, -1));  // aspect 2
  Vec3 topHalfScale = normalize(Vec3(0, t * 2, -1));
  return {
      {"perspective_centre", 0, 0, 1, 100, 50, Vec3(0, 0, -1), Vec3(0)},
      {"perspective_top_edge", 0, 0, 1, 100, 0, topEdge, Vec3(0)},
      {"perspective_right_edge", 0, 0, 1, 200, 50, rightEdge, Vec3(0)},
      {"perspective_post_scale_zooms_out", 0, 0, 2, 100, 0, topHalfScale, Vec3(0)},
      {"orthographic_offsets_origin", 0, 1, 1, 100, 0, Vec3(0, 0, -1), Vec3(0, 1.5f, 0)},
      {"latlong_centre_is_forward", 3, 0, 1, 100, 50, Vec3(0, 0, -1), Vec3(0)},
      {"latlong_three_quarters_is_right", 3, 0, 1, 150, 50, Vec3(1, 0, 0), Vec3(0)},
      {"latlong_quarter_is_left", 3, 0, 1, 50, 50, Vec3(-1, 0, 0), Vec3(0)},
      {"latlong_edge_is_behind", 3, 0, 1, 0.001f, 50, Vec3(0, 0, 1), Vec3(0)},
      {"latlong_top_is_up", 3, 0, 1, 100, 0.001f, Vec3(0, 1, 0), Vec3(0)},
      {"stereo_left_eye_on_top", 4, 0, 1, 100, 25, Vec3(0, 0, -1), Vec3(-kStereoEyeOffset, 0, 0)},
      {"stereo_right_eye_below", 4, 0, 1, 100, 75, Vec3(0, 0, -1), Vec3(kStereoEyeOffset, 0, 0)},
      {"stereo_top_of_lower_image_is_up", 4, 0, 1, 100, 50.001f, Vec3(0, 1, 0), Vec3(kStereoEyeOffset, 0, 0)},
      {"fisheye_centre", 7, 0, 1, 100, 50, Vec3(0, 0, -1), Vec3(0)},
      {"fisheye_rim_is_sideways", 7, 0, 1, 150, 50, Vec3(1, 0, 0), Vec3(0)},
      {"fisheye_half_radius_is_45_degrees", 7, 0, 1, 100, 25, normalize(Vec3(0, 1, -1)), Vec3(0)},
  };
}

class CameraDirectionTest : public ::testing::TestWithParam<DirectionCase> {};

TEST_P(CameraDirectionTest, FilmPositionGivesKnownDirection) {
  const DirectionCase& c = GetParam();
  CameraData data;
  // A camera turned to look along -x and moved, so the test sees the camera transform applied.
  Matrix4 m = test::lookAt(5, 1, 2, 4, 1, 2);
  data.transform = m;
  data.mode = c.mode;
  data.type = c.type;
  data.fovY = 0.8f;
  data.orthoHeight = 3;
  data.postScale = c.postScale;
  Camera camera(data, uint32_t(kW), uint32_t(kH));
  Ray ray;
  ASSERT_TRUE(camera.generateRay(c.x, c.y, ray));
  Vec3 worldDir = transformVector(m, c.direction);
  Vec3 worldOrigin = transformPoint(m, c.originOffset);
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(ray.direction[k], worldDir[k], 2e-3f) << c.name;
    EXPECT_NEAR(ray.origin[k], worldOrigin[k], 1e-4f) << c.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, CameraDirectionTest, ::testing::ValuesIn(directionCases()),
                         [](const auto& info) { return std::string(info.param.name); });

// Texture footprints start from these: a pixel's angle for projections, its width for orthographic.
TEST(Footprint, PixelSpreadAndWidthFollowTheProjection) {
  CameraData data;
  data.fovY = 0.8f;
  Camera perspective(data, 200, 100);
  EXPECT_NEAR(perspective.pixelSpread(), 2 * std::tan(0.4f) / 100, 1e-6f);
  EXPECT_EQ(perspective.pixelWidth(), 0.0f);
  data.type = 1;
  data.orthoHeight = 3;
  data.postScale = 2;
  Camera ortho(data, 200, 100);
  EXPECT_EQ(ortho.pixelSpread(), 0.0f);
  EXPECT_NEAR(ortho.pixelWidth(), 3 * 2 / 100.0f, 1e-6f);
}

TEST(Fisheye, OutsideTheCircleHasNoRay) {
  CameraData data;
  data.mode = kModeFisheye;
  Camera camera(data, 200, 100);
  Ray ray;
  EXPECT_FALSE(camera.generateRay(2, 2, ray));
  EXPECT_TRUE(camera.generateRay(100, 2, ray));
}

// End to end: a small lamp to the camera's right lands in the lat-long column for +x, and in the
// stereo image it appears in both halves at the same column.
TEST(LatLongRender, LampToTheRightLightsTheExpectedPixels) {
  using namespace test;
  for (uint32_t mode : {3u, 4u}) {
    SceneSnapshot scene;
    auto lamp = std::make_shared<MaterialData>(*diffuseMaterial(0, 0, 0));
    lamp->emissive[0] = lamp->emissive[1] = lamp->emissive[2] = 1;
    lamp->emissiveStrength = 50;
    scene.shapes.push_back(shape(1, makeSphere(0.3f, 16, 8), lamp, translation(5, 0, 0)));
    scene.hasCamera = true;
    scene.camera.mode = mode;
    RenderParams params;
    params.imageFilterType = 0;
    velder::VelderPlugin plugin;
    const uint32_t w = 64, h = mode == 4 ? 64 : 32;
    auto out = renderWith(plugin, scene, params, w, h, 2, {kAovColor});
    ASSERT_EQ(out.status, 0) << out.error;
    auto img = out.image();
    auto brightest = [&](uint32_t y0, uint32_t y1) {
      float best = -1;
      uint32_t bx = 0, by = 0;
      for (uint32_t y = y0; y < y1; ++y)
        for (uint32_t x = 0; x < w; ++x)
          if (img[(y * w + x) * 4] > best) best = img[(y * w + x) * 4], bx = x, by = y;
      return std::make_pair(bx, by);
    };
    auto top = brightest(0, mode == 4 ? h / 2 : h);
    EXPECT_NEAR(top.first, 48, 1) << "mode " << mode;
    EXPECT_NEAR(top.second, mode == 4 ? 16 : 16, 1) << "mode " << mode;
    if (mode == 4) {
      auto bottom = brightest(h / 2, h);
      EXPECT_NEAR(bottom.first, 48, 1);
      EXPECT_NEAR(bottom.second, 48, 1);
    }
  }
}

}  // namespace
}  // namespace zvr::kernel
