// The scene follows snapshots: it rebuilds what changed, keeps what did not, and a transform or
// a layer filter change moves or removes geometry.
#include <gtest/gtest.h>

#include <functional>

#include "kernel/scene.h"
#include "tests/kernel/test_support.h"

namespace zvr::kernel {
namespace {

class SceneUpdateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    device_ = rtcNewDevice(nullptr);
    scene_ = std::make_unique<Scene>(device_, &errors_);
    snap_.shapes.push_back(test::shape(1, test::makeQuad(1), test::diffuseMaterial(0.5f, 0.5f, 0.5f)));
    snap_.shapes.push_back(test::shape(2, test::makeSphere(0.5f, 12, 6), nullptr, test::translation(0, 2, 0)));
    snap_.geometryRevision = snap_.transformRevision = snap_.materialRevision = 1;
  }
  void TearDown() override {
    scene_.reset();
    rtcReleaseDevice(device_);
  }
  bool update(std::function<bool(const ShapeData&)> include = [](const ShapeData& s) { return s.visible; }) {
    std::string error;
    bool ok = scene_->update(snap_, params_, 1, include, &error);
    EXPECT_TRUE(ok) << error;
    return ok;
  }
  // Distance from above down the y axis to the first surface, or -1.
  float probeDown(float x = 0) {
    SurfaceHit hit;
    Ray ray{Vec3(x, 10, 0), Vec3(0, -1, 0), 0, 1e30f};
    return scene_->intersect(ray, hit) ? hit.t : -1;
  }

  RTCDevice device_ = nullptr;
  DeviceErrors errors_;
  std::unique_ptr<Scene> scene_;
  SceneSnapshot snap_;
  RenderParams params_;
};

TEST_F(SceneUpdateTest, UnchangedSnapshotKeepsEverything) {
  ASSERT_TRUE(update());
  uint64_t v = scene_->version();
  RTCScene handle = scene_->handle();
  ASSERT_TRUE(update());
  EXPECT_EQ(scene_->version(), v);
  EXPECT_EQ(scene_->handle(), handle) << "the BVH must not be rebuilt for an unchanged snapshot";
  EXPECT_NEAR(probeDown(), 10 - 2.5f, 1e-3f) << "the sphere's top at y 2.5";
}

TEST_F(SceneUpdateTest, MaterialChangeKeepsTheBvh) {
  ASSERT_TRUE(update());
  RTCScene handle = scene_->handle();
  uint64_t v = scene_->version();
  snap_.shapes[0].material = test::diffuseMaterial(0.1f, 0.2f, 0.3f);
  snap_.materialRevision = 2;
  ASSERT_TRUE(update());
  EXPECT_EQ(scene_->handle(), handle);
  EXPECT_GT(scene_->version(), v);
  EXPECT_FLOAT_EQ(scene_->shapes()[0].material->data->baseColor[2], 0.3f);
}

TEST_F(SceneUpdateTest, TransformAndVisibilityChangesMoveGeometry) {
  ASSERT_TRUE(update());
  snap_.shapes[1].transform = test::translation(0, 4, 0);
  snap_.transformRevision = 2;
  ASSERT_TRUE(update());
  EXPECT_NEAR(probeDown(), 10 - 4.5f, 1e-3f);
  snap_.shapes[1].visible = false;
  snap_.transformRevision = 3;
  ASSERT_TRUE(update());
  EXPECT_NEAR(probeDown(), 10, 1e-3f) << "only the floor is left";
  EXPECT_FALSE(scene_->shapes()[1].attached);
}

TEST_F(SceneUpdateTest, IncludeFilterChangesRebuild) {
  ASSERT_TRUE(update());
  ASSERT_TRUE(update([](const ShapeData& s) { return s.id != 2; }));
  EXPECT_NEAR(probeDown(), 10, 1e-3f);
  ASSERT_TRUE(update());
  EXPECT_NEAR(probeDown(), 7.5f, 1e-3f);
}

TEST_F(SceneUpdateTest, MirroringTransformKeepsNormalsOutward) {
  Matrix4 mirror;
  mirror.m[0] = -1;  // mirror in x: the winding flips, the outward side must not
  snap_.shapes[1].transform = mirror;
  snap_.shapes[1].transform.m[13] = 2;
  snap_.transformRevision = 5;
  ASSERT_TRUE(update());
  SurfaceHit hit;
  Ray ray{Vec3(0, 10, 0), Vec3(0, -1, 0), 0, 1e30f};
  ASSERT_TRUE(scene_->intersect(ray, hit));
  EXPECT_GT(hit.ng.y, 0.9f);
  EXPECT_GT(hit.ns.y, 0.9f);
}

TEST_F(SceneUpdateTest, RayEpsilonScalesWithTheScene) {
  params_.rayEpsilon = 1e-3f;
  ASSERT_TRUE(update());
  float small = scene_->rayEpsilon();
  EXPECT_NEAR(small, 1e-3f * scene_->diagonal(), 1e-7f);
  snap_.shapes[0].transform.m[0] = snap_.shapes[0].transform.m[10] = 100;
  snap_.transformRevision = 9;
  ASSERT_TRUE(update());
  EXPECT_NEAR(scene_->rayEpsilon(), 1e-3f * scene_->diagonal(), 1e-5f);
  EXPECT_GT(scene_->rayEpsilon(), 50 * small);
}

}  // namespace
}  // namespace zvr::kernel

namespace zvr::kernel {
namespace {

// The texture memory limit drops the finest levels; the budget scale (Quillon's GPU memory
// limit) shrinks it further.
TEST(TextureBudget, CacheLimitAndScaleDropFineLevels) {
  auto material = test::diffuseMaterial(1, 1, 1);
  auto img = std::make_shared<ImageData>();
  img->id = 321;
  img->width = img->height = 512;
  img->channels = 4;
  img->pixels.assign(size_t(512) * 512 * 4, 0.5f);
  material->baseColorTexture.image = img;
  SceneSnapshot snap;
  snap.shapes.push_back(test::shape(1, test::makeQuad(1), material));
  struct Case {
    uint32_t cacheMB;
    float scale;
    uint32_t expectedWidth;
  };
  for (Case c : {Case{0, 1, 512}, Case{2, 1, 256}, Case{2, 0.25f, 128}, Case{8, 1, 512}}) {
    RTCDevice device = rtcNewDevice(nullptr);
    DeviceErrors errors;
    {
      Scene scene(device, &errors);
      RenderParams params;
      params.textureCacheMB = c.cacheMB;
      std::string error;
      ASSERT_TRUE(scene.update(snap, params, c.scale, [](const ShapeData&) { return true; }, &error)) << error;
      const Texture* tex = scene.shapes()[0].material->textures[kTexBaseColor];
      ASSERT_NE(tex, nullptr);
      EXPECT_EQ(tex->width(), c.expectedWidth) << c.cacheMB << " MB at scale " << c.scale;
    }
    rtcReleaseDevice(device);
  }
}

}  // namespace
}  // namespace zvr::kernel
