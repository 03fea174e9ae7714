// The scene follows snapshots: it rebuilds what changed, keeps what did not, and a transform or
// a layer filter change moves or removes geometry; the texture budget drops fine levels.
#include <tuple>

#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

// Distance from above down the y axis to the first surface, or -1.
float probeDown(const Scene& scene) {
  SurfaceHit hit;
  return scene.intersect(Ray{Vec3(0, 10, 0), Vec3(0, -1, 0), 0, 1e30f}, hit) ? hit.t : -1;
}

TEST_F(KernelTest, SceneRebuildsOnlyWhatChanged) {
  SceneSnapshot snap = sceneOf({shape(1, makeQuad(1), diffuseMaterial(0.5f, 0.5f, 0.5f)),
                                shape(2, makeSphere(0.5f, 12, 6), nullptr, translation(0, 2, 0))});
  snap.geometryRevision = snap.transformRevision = snap.materialRevision = 1;
  ASSERT_TRUE(build(snap));
  const RTCScene handle = scene_->handle();
  uint64_t version = scene_->version();
  ASSERT_TRUE(build(snap));
  EXPECT_EQ(scene_->version(), version);
  EXPECT_EQ(scene_->handle(), handle) << "the BVH must not be rebuilt for an unchanged snapshot";
  EXPECT_NEAR(probeDown(*scene_), 7.5f, 1e-3f) << "the sphere's top at y 2.5";

  snap.shapes[0].material = diffuseMaterial(0.1f, 0.2f, 0.3f);
  snap.materialRevision = 2;
  ASSERT_TRUE(build(snap));
  EXPECT_EQ(scene_->handle(), handle) << "a material change keeps the BVH";
  EXPECT_GT(scene_->version(), version);
  EXPECT_FLOAT_EQ(scene_->shapes()[0].material->data->baseColor[2], 0.3f);

  snap.shapes[1].transform = translation(0, 4, 0);
  snap.transformRevision = 2;
  ASSERT_TRUE(build(snap));
  EXPECT_NEAR(probeDown(*scene_), 5.5f, 1e-3f);
  ASSERT_TRUE(build(snap, {}, 1, [](const ShapeData& s) { return s.id != 2; }));
  EXPECT_NEAR(probeDown(*scene_), 10, 1e-3f) << "a changed filter rebuilds";
  ASSERT_TRUE(build(snap));
  EXPECT_NEAR(probeDown(*scene_), 5.5f, 1e-3f);
  snap.shapes[1].visible = false;
  snap.transformRevision = 3;
  ASSERT_TRUE(build(snap));
  EXPECT_NEAR(probeDown(*scene_), 10, 1e-3f) << "only the floor is left";
  EXPECT_FALSE(scene_->shapes()[1].attached);

  // Mirrored in x the winding flips; the outward side must not.
  snap.shapes[1].visible = true;
  snap.shapes[1].transform.m[0] = -1;
  snap.transformRevision = 4;
  ASSERT_TRUE(build(snap));
  SurfaceHit hit;
  ASSERT_TRUE(scene_->intersect(Ray{Vec3(0, 10, 0), Vec3(0, -1, 0), 0, 1e30f}, hit));
  EXPECT_GT(hit.ng.y, 0.9f);
  EXPECT_GT(hit.ns.y, 0.9f);
}

TEST_F(KernelTest, RayEpsilonScalesWithTheScene) {
  SceneSnapshot snap = sceneOf({shape(1, makeQuad(1), diffuseMaterial(0.5f, 0.5f, 0.5f))});
  RenderParams params;
  params.rayEpsilon = 1e-3f;
  ASSERT_TRUE(build(snap, params));
  const float small = scene_->rayEpsilon();
  EXPECT_NEAR(small, 1e-3f * scene_->diagonal(), 1e-7f);
  snap.shapes[0].transform.m[0] = snap.shapes[0].transform.m[10] = 100;
  snap.transformRevision = 9;
  ASSERT_TRUE(build(snap, params));
  EXPECT_NEAR(scene_->rayEpsilon(), 1e-3f * scene_->diagonal(), 1e-5f);
  EXPECT_GT(scene_->rayEpsilon(), 50 * small);
}

// The texture memory limit drops the finest levels; the budget scale (Quillon's GPU memory
// limit) shrinks it further.
TEST_F(KernelTest, TextureCacheLimitAndBudgetScaleDropFineLevels) {
  auto material = diffuseMaterial(1, 1, 1);
  material->baseColorTexture.image =
      image(512, 512, 4, std::vector<float>(512 * 512 * 4, 0.5f), ColorSpace::Linear, 321);
  const SceneSnapshot snap = sceneOf({shape(1, makeQuad(1), material)});
  // Cache limit in MB, budget scale; the width of the finest level kept.
  const std::tuple<uint32_t, float, uint32_t> cases[] = {{0, 1, 512}, {2, 1, 256}, {2, 0.25f, 128}, {8, 1, 512}};
  for (const auto& [cacheMB, scale, expectedWidth] : cases) {
    reset();
    RenderParams params;
    params.textureCacheMB = cacheMB;
    ASSERT_TRUE(build(snap, params, scale));
    const Texture* tex = scene_->shapes()[0].material->textures[kTexBaseColor];
    ASSERT_NE(tex, nullptr);
    EXPECT_EQ(tex->width(), expectedWidth) << cacheMB << " MB at scale " << scale;
  }
}

}  // namespace
}  // namespace zvr::test
