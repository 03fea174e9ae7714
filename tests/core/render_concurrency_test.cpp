// What an interactive viewer relies on, with the real plug-ins: a window thread that resolves and
// reads back, aborts, hides shapes, changes depth limits and moves the camera while a render call
// runs on another thread; and the provisional pictures of frame hint 2.
#include <atomic>
#include <cmath>
#include <string>
#include <future>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/core/core_test_support.h"

namespace {

constexpr uint32_t kWidth = 40, kHeight = 30;
constexpr uint32_t kDepthKeys[] = {ZVR_CONTEXT_MAX_DEPTH, ZVR_CONTEXT_MAX_DEPTH_DIFFUSE, ZVR_CONTEXT_MAX_DEPTH_GLOSSY,
                                   ZVR_CONTEXT_MAX_DEPTH_REFRACTION};

// A white wall and floor lit by a point light, and an emissive card in front of the wall that
// casts a shadow on it: hiding the card changes what the camera sees, the shadow and the light.
class Stage {
 public:
  explicit Stage(const char* plugin) : context_({zvrRegisterPlugin(plugin)}, ZVR_CREATION_FLAGS_ENABLE_CPU, kThreads) {
    ZvrMaterialSystem system = nullptr;
    EXPECT_EQ(zvrContextCreateMaterialSystem(context_, 0, &system), ZVR_SUCCESS);
    ZvrMaterialNode white = material(system, 0), glowing = material(system, 6);
    scene_ = core_test::makeScene(context_, 0, 0.9f);
    quad({-2, -1, 0, 2, -1, 0, 2, 3, 0, -2, 3, 0}, white);
    quad({-2, -1, 0, -2, -1, 4, 2, -1, 4, 2, -1, 0}, white);
    card = quad({-0.6f, 0, 1.5f, 0.6f, 0, 1.5f, 0.6f, 1, 1.5f, -0.6f, 1, 1.5f}, glowing);
    ZvrLight light = nullptr;
    EXPECT_EQ(zvrContextCreateLight(context_, ZVR_LIGHT_POINT, &light), ZVR_SUCCESS);
    const float place[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1.2f, 1.5f, 3.5f, 1};
    EXPECT_EQ(zvrLightSetTransform(light, 0, place), ZVR_SUCCESS);
    EXPECT_EQ(zvrLightSetRadiance(light, 12, 12, 12), ZVR_SUCCESS);
    EXPECT_EQ(zvrSceneAttachLight(scene_.scene, light), ZVR_SUCCESS);
    lookFrom(0, 0.8f, 5);

    color = core_test::makeFrameBuffer(context_, kWidth, kHeight);
    resolved = core_test::makeFrameBuffer(context_, kWidth, kHeight);
    EXPECT_EQ(zvrContextSetAOV(context_, 0, color), ZVR_SUCCESS);
    ZvrPostEffect normalize = nullptr;
    EXPECT_EQ(zvrContextCreatePostEffect(context_, ZVR_POST_EFFECT_NORMALIZATION, &normalize), ZVR_SUCCESS);
    EXPECT_EQ(zvrContextAttachPostEffect(context_, normalize), ZVR_SUCCESS);
    auto count = [](float, void* data) { ++*static_cast<std::atomic<int>*>(data); };
    EXPECT_EQ(zvrContextSetParameterByKeyPtr(context_, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC, reinterpret_cast<void*>(+count)),
              ZVR_SUCCESS);
    EXPECT_EQ(zvrContextSetParameterByKeyPtr(context_, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA, &progress), ZVR_SUCCESS);
  }

  ZvrContext context() const { return context_; }
  void lookFrom(float x, float y, float z) { EXPECT_EQ(zvrCameraLookAt(scene_.camera, x, y, z, 0, 0.8f, 0, 0, 1, 0), ZVR_SUCCESS); }
  void setDepth(uint32_t depth) {
    for (uint32_t key : kDepthKeys) set(key, depth);
  }
  void set(uint32_t key, uint32_t value) { EXPECT_EQ(zvrContextSetParameterByKey1u(context_, key, value), ZVR_SUCCESS); }
  // A batch from a cleared picture, resolved as the viewer shows it.
  std::vector<float> batch(uint32_t iterations) {
    EXPECT_EQ(zvrFrameBufferClear(color), ZVR_SUCCESS);
    set(ZVR_CONTEXT_ITERATIONS, iterations);
    EXPECT_EQ(zvrContextRender(context_), ZVR_SUCCESS) << lastError(context_);
    return resolve();
  }
  std::vector<float> resolve() {
    EXPECT_EQ(zvrContextResolveFrameBuffer(context_, color, resolved, 0), ZVR_SUCCESS);
    return core_test::readPixels(resolved);
  }
  uint32_t iterations() const { return core_test::info<uint32_t>(zvrFrameBufferGetInfo, color, ZVR_FRAMEBUFFER_ITERATIONS); }
  void detachCard() { EXPECT_EQ(zvrSceneDetachShape(scene_.scene, card), ZVR_SUCCESS); }
  void attachCard() { EXPECT_EQ(zvrSceneAttachShape(scene_.scene, card), ZVR_SUCCESS); }
  // A long render on a thread of its own, as the viewer's render thread runs it, once `iterations` are in.
  std::future<ZvrStatus> startLongRender(int iterations) {
    set(ZVR_CONTEXT_ITERATIONS, kLongRender);
    progress = 0;
    auto render = std::async(std::launch::async, [this] { return zvrContextRender(context_); });
    while (progress < iterations) std::this_thread::yield();
    return render;
  }
  static constexpr uint32_t kLongRender = 100000;

  ZvrFrameBuffer color = nullptr, resolved = nullptr;
  ZvrShape card = nullptr;
  std::atomic<int> progress{0};

 private:
  static constexpr ZvrContextProperties kThreads[] = {ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT, 2, 0};

  ZvrMaterialNode material(ZvrMaterialSystem system, float glow) {
    ZvrMaterialNode node = nullptr;
    EXPECT_EQ(zvrMaterialSystemCreateNode(system, ZVR_MATERIAL_NODE_PBR, &node), ZVR_SUCCESS);
    EXPECT_EQ(zvrMaterialNodeSetParameter1f(node, "metallic", 0), ZVR_SUCCESS);
    EXPECT_EQ(zvrMaterialNodeSetParameter3f(node, "emissive", glow, glow * 0.3f, 0), ZVR_SUCCESS);
    EXPECT_EQ(zvrMaterialNodeSetParameter1u(node, "double_sided", 1), ZVR_SUCCESS);
    return node;
  }
  ZvrShape quad(std::vector<float> corners, ZvrMaterialNode node) {
    static const uint32_t indices[6] = {0, 1, 2, 0, 2, 3};
    ZvrMeshDesc desc{corners.data(), 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, 4, indices, 6};
    ZvrShape shape = nullptr;
    EXPECT_EQ(zvrContextCreateMesh(context_, &desc, &shape), ZVR_SUCCESS);
    EXPECT_EQ(zvrShapeSetMaterial(shape, node), ZVR_SUCCESS);
    EXPECT_EQ(zvrSceneAttachShape(scene_.scene, shape), ZVR_SUCCESS);
    return shape;
  }

  ScopedContext context_{{core_test::testPluginId()}};
  core_test::TestScene scene_;
};

// Largest difference of two pictures, relative to the brightest value of the first.
float difference(const std::vector<float>& a, const std::vector<float>& b) {
  EXPECT_EQ(a.size(), b.size());
  float largest = 0, brightest = 1e-6f;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
    largest = std::max(largest, std::fabs(a[i] - b[i]));
    brightest = std::max(brightest, std::fabs(a[i]));
  }
  return largest / brightest;
}

// The folder's fixture, run once for each plug-in family.
class HidingDuringARender : public core_test::CoreTest, public ::testing::WithParamInterface<const char*> {};
using QuillonDuringARender = core_test::CoreTest;
using ProvisionalPictures = core_test::CoreTest;

TEST_P(HidingDuringARender, TheShapeItsShadowAndItsLightAreGoneInTheNextBatch) {
  Stage stage(GetParam());
  stage.detachCard();
  const std::vector<float> without = stage.batch(4);
  stage.attachCard();
  const std::vector<float> with = stage.batch(4);
  ASSERT_GT(difference(without, with), 0.2f) << "the card must matter for the check to mean anything";

  EXPECT_EQ(zvrFrameBufferClear(stage.color), ZVR_SUCCESS);
  auto render = stage.startLongRender(2);
  EXPECT_EQ(zvrShapeSetVisibility(stage.card, 0), ZVR_SUCCESS) << lastError(stage.context());
  EXPECT_EQ(zvrContextAbortRender(stage.context()), ZVR_SUCCESS);
  ASSERT_EQ(render.get(), ZVR_SUCCESS);
  const std::vector<float> aborted = stage.resolve();
  EXPECT_LT(difference(with, aborted), difference(without, aborted)) << "the running call keeps the scene it started with";
  EXPECT_LT(difference(without, stage.batch(4)), 1e-4f) << "the next batch renders without the card";
}

INSTANTIATE_TEST_SUITE_P(Families, HidingDuringARender, ::testing::Values("Velder64.dll", "Quillon64.dll", "Dorrik.dll"));

TEST_F(QuillonDuringARender, ReadsAreWholeIterationsAndAbortDepthAndCameraWork) {
  Stage stage("Quillon64.dll");
  stage.setDepth(1);
  const std::vector<float> shallow = stage.batch(4);
  stage.setDepth(8);
  const std::vector<float> deep = stage.batch(4);
  ASSERT_GT(difference(deep, shallow), 0.05f) << "bounces must matter for the depth check to mean anything";

  EXPECT_EQ(zvrFrameBufferClear(stage.color), ZVR_SUCCESS);
  auto render = stage.startLongRender(1);
  uint32_t previous = 0;
  bool torn = false, notFinite = false, wentBack = false;
  for (int read = 0; read < 40; ++read) {
    const std::vector<float> raw = core_test::readPixels(stage.color);
    // Gaussian filter importance sampling weighs every sample 1: each pixel's weight counts the
    // iterations it holds, the same for every pixel unless a read caught half an iteration.
    const float held = raw[3];
    for (size_t i = 0; i < raw.size(); ++i) {
      if (!std::isfinite(raw[i])) notFinite = true;
      if (i % 4 == 3 && raw[i] != held) torn = true;
    }
    if (held < float(previous)) wentBack = true;
    previous = uint32_t(held);
    for (float value : stage.resolve())
      if (!std::isfinite(value)) notFinite = true;
    if (read == 10) stage.setDepth(1);
    if (read == 15) {
      EXPECT_EQ(zvrObjectDelete(stage.color), ZVR_ERROR_BUSY) << "a bound framebuffer outlives the render";
    }
    if (read == 20 || read == 30) {
      EXPECT_EQ(zvrShapeSetVisibility(stage.card, read == 30), ZVR_SUCCESS);
    }
  }
  EXPECT_EQ(zvrContextAbortRender(stage.context()), ZVR_SUCCESS);
  ASSERT_EQ(render.get(), ZVR_SUCCESS);
  EXPECT_EQ(std::make_tuple(torn, notFinite, wentBack), std::make_tuple(false, false, false))
      << "a read held part of an iteration, a value that is not finite, or fewer iterations than before";
  const uint32_t held = stage.iterations();
  EXPECT_LT(held, Stage::kLongRender) << "the abort was lost";
  EXPECT_EQ(core_test::readPixels(stage.color)[3], float(held)) << "whole iterations only after the abort";
  EXPECT_EQ(zvrContextAbortRender(stage.context()), ZVR_SUCCESS) << "with no render running";

  EXPECT_LT(difference(shallow, stage.batch(4)), 1e-4f) << "depth 1 set during the render holds in the next batch";
  stage.lookFrom(1.5f, 2, 4);
  EXPECT_GT(difference(shallow, stage.batch(4)), 0.05f) << "the moved camera renders";
  stage.lookFrom(0, 0.8f, 5);
  EXPECT_LT(difference(shallow, stage.batch(4)), 1e-4f);
}

TEST_F(ProvisionalPictures, AreCheapBlocksAndNeverReachTheAccumulation) {
  Stage stage("Velder64.dll");
  stage.batch(4);
  const std::vector<float> accumulated = core_test::readPixels(stage.color);

  for (const auto& [block287, side] : {std::pair<uint32_t, uint32_t>{0, ZVR_PREVIEW_BLOCK_DEFAULT}, {3, 3}}) {
    SCOPED_TRACE("key 287 = " + std::to_string(block287));
    stage.set(ZVR_CONTEXT_KEY_287, block287);
    stage.set(ZVR_CONTEXT_FRAMECOUNT, ZVR_FRAMECOUNT_PROVISIONAL);
    stage.batch(1);
    stage.set(ZVR_CONTEXT_ITERATIONS, 1);
    ASSERT_EQ(zvrContextRender(stage.context()), ZVR_SUCCESS);
    EXPECT_EQ(stage.iterations(), 2u) << "provisional iterations average with each other";
    const std::vector<float> preview = core_test::readPixels(stage.color);
    size_t distinct = 0;
    for (uint32_t y = 0; y < kHeight; ++y)
      for (uint32_t x = 0; x < kWidth; ++x)
        for (size_t k = 0, at = (y * kWidth + x) * 4, from = ((y - y % side) * kWidth + x - x % side) * 4; k < 4; ++k)
          distinct += preview[at + k] != preview[from + k];
    EXPECT_EQ(distinct, 0u) << "every block repeats its one sample";
    EXPECT_GT(difference(accumulated, preview), 0.01f);

    stage.set(ZVR_CONTEXT_FRAMECOUNT, ZVR_FRAMECOUNT_ACCUMULATE);
    stage.set(ZVR_CONTEXT_ITERATIONS, 4);
    ASSERT_EQ(zvrContextRender(stage.context()), ZVR_SUCCESS);
    EXPECT_EQ(stage.iterations(), 4u);
    EXPECT_EQ(core_test::readPixels(stage.color), accumulated) << "the accumulation starts at sample 0, as from a clear";
  }

  // On accumulated iterations the hint would degrade the picture, so it is ignored.
  stage.set(ZVR_CONTEXT_FRAMECOUNT, ZVR_FRAMECOUNT_PROVISIONAL);
  stage.set(ZVR_CONTEXT_ITERATIONS, 1);
  ASSERT_EQ(zvrContextRender(stage.context()), ZVR_SUCCESS);
  stage.set(ZVR_CONTEXT_FRAMECOUNT, ZVR_FRAMECOUNT_ACCUMULATE);
  ASSERT_EQ(zvrContextRender(stage.context()), ZVR_SUCCESS);
  EXPECT_EQ(stage.iterations(), 6u);
  Stage plain("Velder64.dll");
  plain.batch(6);
  EXPECT_EQ(core_test::readPixels(stage.color), core_test::readPixels(plain.color));
}

}  // namespace
