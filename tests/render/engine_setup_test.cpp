// Render layers, post effect set-up and the leak report against the real core.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/render/engine_fixture.h"
#include "render/leak_report.h"
#include "render/post_effects.h"
#include "render/render_layers.h"

using namespace zvrs;

namespace {

using RenderLayers = EngineTest;
using PostEffects = EngineTest;
using LeakReport = EngineTest;

TEST_F(RenderLayers, ExactlyOneAttachesEverythingElseDetaches) {
  const struct {
    const char* label;
    const char* document;
    std::vector<std::string> calls;
  } cases[] = {
      {"no block", R"({})", {}},
      {"null block", R"({"layers": null})", {}},
      {"attach then detach, by name", R"({"layers": {"b": 0, "a": 1}})",
       {"zvrContextAttachRenderLayer(context=", "layer=\"a\"", "zvrContextDetachRenderLayer(context=", "layer=\"b\""}},
      {"two detaches", R"({"layers": {"x": 2}})", {"zvrContextDetachRenderLayer(context=", "layer=\"x\""}},
      {"one after narrowing to float", R"({"layers": {"y": 1.00000001}})",
       {"zvrContextAttachRenderLayer(context=", "layer=\"y\""}},
  };
  for (const auto& c : cases) {
    std::remove(tracePath_.c_str());
    applyRenderLayers(parse(c.document), context_);
    const std::vector<std::string> lines = traceOf(std::vector<std::string>{"zvrContextAttachRenderLayer", "zvrContextDetachRenderLayer"});
    ASSERT_EQ(lines.size() * 2, c.calls.size()) << c.label;
    for (size_t i = 0; i < lines.size(); ++i) {
      EXPECT_TRUE(contains(lines[i], c.calls[2 * i])) << c.label << ": " << lines[i];
      EXPECT_TRUE(contains(lines[i], c.calls[2 * i + 1])) << c.label << ": " << lines[i];
    }
  }
}

TEST_F(RenderLayers, WrongTypesThrowTheAssertionText) {
  const struct {
    const char* label;
    const char* document;
    const char* text;
  } cases[] = {
      {"block not an object", R"({"layers": [1]})",
       "\"type mismatch! call is<type>() before get<type>()\" && is<object>()"},
      {"value not a number", R"({"layers": {"a": true, "b": 1}})",
       "\"type mismatch! call is<type>() before get<type>()\" && is<double>()"},
  };
  for (const auto& c : cases) {
    try {
      applyRenderLayers(parse(c.document), context_);
      ADD_FAILURE() << c.label << ": no exception";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), c.text) << c.label;
    }
  }
  // Nothing after the failing member ran.
  EXPECT_TRUE(traceOf("zvrContextAttachRenderLayer").empty());
}

uint32_t typeOf(ZvrPostEffect effect) {
  uint32_t type = 99;
  EXPECT_EQ(zvrPostEffectGetInfo(effect, ZVR_POST_EFFECT_TYPE, sizeof(type), &type, nullptr), 0);
  return type;
}

TEST_F(PostEffects, NormalizationAlwaysGammaOnlyWhenAskedAndMissing) {
  struct Entry {
    uint32_t type;
    bool owned;
  };
  const struct {
    const char* label;
    std::vector<uint32_t> attached;
    bool gammaGiven;
    std::vector<Entry> expected;
  } cases[] = {
      {"nothing, no gamma", {}, false, {{3, true}}},
      {"nothing, gamma given", {}, true, {{3, true}, {4, true}}},
      {"tone map and gamma", {0}, true, {{0, false}, {3, true}}},
      {"simple tone map and gamma", {2}, true, {{2, false}, {3, true}}},
      {"gamma effect present", {4}, true, {{4, false}, {3, true}}},
      {"normalization and white balance", {3, 1}, false, {{3, false}, {1, false}}},
      {"white balance and bloom count for nothing", {1, 5}, true, {{1, false}, {5, false}, {3, true}, {4, true}}},
  };
  for (const auto& c : cases) {
    ZvrContext context = nullptr;
    const int32_t plugin = zvrRegisterPlugin("Velder64.dll");
    ASSERT_EQ(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, nullptr, &context),
              0);
    for (uint32_t type : c.attached) {
      ZvrPostEffect effect = nullptr;
      ASSERT_EQ(zvrContextCreatePostEffect(context, type, &effect), 0) << c.label;
      ASSERT_EQ(zvrContextAttachPostEffect(context, effect), 0) << c.label;
    }
    RenderSettings settings;
    settings.gammaGiven = c.gammaGiven;
    std::vector<PostEffectEntry> effects;
    ASSERT_EQ(setupPostEffects(parse("{}"), context, settings, effects), 0) << c.label;
    ASSERT_EQ(effects.size(), c.expected.size()) << c.label;
    for (size_t i = 0; i < effects.size(); ++i) {
      EXPECT_EQ(typeOf(effects[i].handle), c.expected[i].type) << c.label << " entry " << i;
      EXPECT_EQ(effects[i].owned, c.expected[i].owned) << c.label << " entry " << i;
    }
    uint32_t attachedCount = 0;
    ASSERT_EQ(zvrContextGetAttachedPostEffectCount(context, &attachedCount), 0);
    EXPECT_EQ(attachedCount, c.expected.size()) << c.label;
    zvrObjectDelete(context);
  }
}

std::string leakReportOf(ZvrContext context) {
  ::testing::internal::CaptureStdout();
  reportContextLeaks(context);
  std::fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

TEST_F(LeakReport, CountsSurvivorsByKind) {
  EXPECT_EQ(leakReportOf(nullptr), "");
  EXPECT_EQ(leakReportOf(context_), "");

  ZvrCamera cameras[2] = {nullptr, nullptr};
  for (ZvrCamera& camera : cameras) ASSERT_EQ(zvrContextCreateCamera(context_, &camera), 0);
  const uint8_t pixel[4] = {1, 2, 3, 4};
  const ZvrImageDesc desc = {1, 1, 4, ZVR_COMPONENT_TYPE_UINT8, ZVR_IMAGE_COLORSPACE_LINEAR};
  ZvrImage image = nullptr;
  ASSERT_EQ(zvrContextCreateImage(context_, &desc, pixel, &image), 0);
  EXPECT_EQ(leakReportOf(context_),
            "leak of 2 cameras\nleak of 1 images\nWarning : this context has some leak\n");

  ZvrScene scene = nullptr;
  ASSERT_EQ(zvrContextCreateScene(context_, &scene), 0);
  zvrObjectDelete(cameras[0]);
  zvrObjectDelete(image);
  EXPECT_EQ(leakReportOf(context_), "leak of 1 cameras\nleak of 1 sceces\nWarning : this context has some leak\n");

  zvrObjectDelete(cameras[1]);
  zvrObjectDelete(scene);
  EXPECT_EQ(leakReportOf(context_), "");
}

}  // namespace
