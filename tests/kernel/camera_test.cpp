// Projections map known directions to known pixels, in the ray generator and in a real render.
#include <cmath>
#include <tuple>

#include "kernel/aov.h"
#include "kernel/camera.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

TEST(Camera, FilmPositionGivesKnownDirection) {
  const float t = std::tan(0.4f);  // half of fovY 0.8
  const Vec3 forward(0, 0, -1), up(0, 1, 0), o(0), leftEye(-kStereoEyeOffset, 0, 0), rightEye(kStereoEyeOffset, 0, 0);
  // Label, mode, type, post scale, film position in a 200 x 100 picture; the expected direction and
  // origin in camera space.
  const std::tuple<const char*, uint32_t, uint32_t, float, float, float, Vec3, Vec3> cases[] = {
      {"perspective centre", kModePlain, 0, 1, 100, 50, forward, o},
      {"perspective top edge", kModePlain, 0, 1, 100, 0, normalize(Vec3(0, t, -1)), o},
      {"perspective right edge", kModePlain, 0, 1, 200, 50, normalize(Vec3(t * 2, 0, -1)), o},
      {"post scale zooms out", kModePlain, 0, 2, 100, 0, normalize(Vec3(0, t * 2, -1)), o},
      {"orthographic offsets origin", kModePlain, 1, 1, 100, 0, forward, Vec3(0, 1.5f, 0)},
      {"latlong centre is forward", kModeLatLong, 0, 1, 100, 50, forward, o},
      {"latlong three quarters is right", kModeLatLong, 0, 1, 150, 50, Vec3(1, 0, 0), o},
      {"latlong quarter is left", kModeLatLong, 0, 1, 50, 50, Vec3(-1, 0, 0), o},
      {"latlong edge is behind", kModeLatLong, 0, 1, 0.001f, 50, Vec3(0, 0, 1), o},
      {"latlong top is up", kModeLatLong, 0, 1, 100, 0.001f, up, o},
      {"stereo left eye on top", kModeStereoLatLong, 0, 1, 100, 25, forward, leftEye},
      {"stereo right eye below", kModeStereoLatLong, 0, 1, 100, 75, forward, rightEye},
      {"stereo top of lower image is up", kModeStereoLatLong, 0, 1, 100, 50.001f, up, rightEye},
      {"fisheye centre", kModeFisheye, 0, 1, 100, 50, forward, o},
      {"fisheye rim is sideways", kModeFisheye, 0, 1, 150, 50, Vec3(1, 0, 0), o},
      {"fisheye half radius is 45 degrees", kModeFisheye, 0, 1, 100, 25, normalize(Vec3(0, 1, -1)), o},
  };
  for (const auto& [name, mode, type, postScale, x, y, direction, origin] : cases) {
    CameraData data;
    data.transform = lookAt(5, 1, 2, 4, 1, 2);  // turned and moved, so the transform shows
    data.mode = mode;
    data.type = type;
    data.fovY = 0.8f;
    data.orthoHeight = 3;
    data.postScale = postScale;
    Ray ray;
    ASSERT_TRUE(Camera(data, 200, 100).generateRay(x, y, ray)) << name;
    const Vec3 wantDirection = transformVector(data.transform, direction);
    const Vec3 wantOrigin = transformPoint(data.transform, origin);
    for (int k = 0; k < 3; ++k) {
      EXPECT_NEAR(ray.direction[k], wantDirection[k], 2e-3f) << name;
      EXPECT_NEAR(ray.origin[k], wantOrigin[k], 1e-4f) << name;
    }
  }
  CameraData fisheye;
  fisheye.mode = kModeFisheye;
  Ray ray;
  EXPECT_FALSE(Camera(fisheye, 200, 100).generateRay(2, 2, ray)) << "outside the fisheye's circle there is no ray";
}

// Texture footprints start from these: a pixel's angle for projections, its width for orthographic.
TEST(Camera, PixelSpreadAndWidthFollowTheProjection) {
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

// A small lamp to the camera's right lands in the lat-long column for +x, and in the stereo image
// in both halves at the same column.
TEST(Camera, LampToTheRightLightsTheExpectedPixels) {
  for (uint32_t mode : {kModeLatLong, kModeStereoLatLong}) {
    SCOPED_TRACE(mode);
    auto lamp = emitter(1);
    lamp->emissiveStrength = 50;
    SceneSnapshot scene = sceneOf({shape(1, makeSphere(0.3f, 16, 8), lamp, translation(5, 0, 0))}, {}, CameraData{});
    scene.camera.mode = mode;
    const uint32_t w = 64, h = mode == kModeStereoLatLong ? 64 : 32;
    auto img = render(scene, boxFilter(), w, h, 2, {kAovColor})[0];
    auto brightest = [&](uint32_t y0, uint32_t y1) {
      std::pair<uint32_t, uint32_t> best{0, y0};
      for (uint32_t y = y0; y < y1; ++y)
        for (uint32_t x = 0; x < w; ++x)
          if (img[(y * w + x) * 4] > img[(best.second * w + best.first) * 4]) best = {x, y};
      return best;
    };
    auto top = brightest(0, 32);
    EXPECT_NEAR(top.first, 48, 1);
    EXPECT_NEAR(top.second, 16, 1);
    if (mode == kModeStereoLatLong) {
      auto bottom = brightest(32, 64);
      EXPECT_NEAR(bottom.first, 48, 1);
      EXPECT_NEAR(bottom.second, 48, 1);
    }
  }
}

}  // namespace
}  // namespace zvr::test
