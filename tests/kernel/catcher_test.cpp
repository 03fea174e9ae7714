// A mirror floor flagged as shadow and reflection catcher under a sphere in a white sky: it is
// invisible to the camera, catches the sphere's shadow and its reflection, and both plug-in
// families that trace paths fill the catcher elements alike.
#include "engine/ZvrCore.h"
#include "kernel/aov.h"
#include "plugins/quillon/quillon_plugin.h"
#include "plugins/velder/velder_plugin.h"
#include "tests/kernel/test_support.h"

namespace zvr::kernel {
namespace {

using namespace zvr::test;

constexpr uint32_t kSize = 32;

SceneSnapshot mirrorFloorScene() {
  auto mirror = diffuseMaterial(1, 1, 1);
  mirror->metallic = 1;
  mirror->roughness = 0;
  auto grey = diffuseMaterial(0.8f, 0.8f, 0.8f);
  SceneSnapshot scene =
      sceneOf({shape(1, makeQuad(4), mirror), shape(2, makeSphere(1, 24, 12), grey, translation(0, 1.2f, 0))},
              {environmentLight(1)}, cameraAt(0, 3, 5, 0, 0, 0));
  scene.shapes[0].catcher = ZVR_CATCHER_SHADOW | ZVR_CATCHER_REFLECTION;
  return scene;
}

TEST(Catchers, MirrorFloorCatchesShadowAndReflectionAndStaysInvisible) {
  velder::VelderPlugin velder;
  quillon::QuillonPlugin quillon;
  for (RenderPlugin* plugin : std::initializer_list<RenderPlugin*>{&velder, &quillon}) {
    SCOPED_TRACE(plugin->name());
    RenderParams params;
    auto out = renderWith(*plugin, mirrorFloorScene(), params, kSize, kSize, 48,
                          {kAovColor, kAovOpacity, kAovShadowCatcher, kAovReflectionCatcher, kAovMattePass});
    ASSERT_EQ(out.status, 0) << out.error;
    const auto color = out.image(0), opacity = out.image(1), shadow = out.image(2), reflection = out.image(3),
               matte = out.image(4);
    int floorPixels = 0, reflecting = 0, shadowed = 0, open = 0;
    double openColor = 0;
    for (size_t p = 0; p < size_t(kSize) * kSize; ++p) {
      const size_t i = p * 4;
      if (matte[i] == 0) {
        EXPECT_EQ(shadow[i], 1.0f) << "pixel " << p << ": no catcher seen, nothing to shadow";
        EXPECT_EQ(reflection[i], 0.0f) << "pixel " << p;
        continue;
      }
      if (matte[i] < 1 || opacity[i] > 0) continue;  // the floor's outline and the sphere in front of it
      ++floorPixels;
      EXPECT_LE(shadow[i], 1.0f);
      if (reflection[i] > 0.05f) ++reflecting;
      if (shadow[i] < 0.8f) ++shadowed;
      if (shadow[i] == 1.0f && reflection[i] == 0.0f) {
        ++open;
        openColor += color[i];
      }
    }
    EXPECT_GT(floorPixels, 100);
    EXPECT_GT(reflecting, 10) << "the sphere is seen in the mirror floor";
    EXPECT_GT(shadowed, 10) << "the sphere shadows the floor below it";
    ASSERT_GT(open, 20);
    // Where the floor catches nothing, the camera sees the sky of 1 through it.
    EXPECT_NEAR(openColor / open, 1.0, 0.06);
  }
}

}  // namespace
}  // namespace zvr::kernel
