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

using EngineSetup = EngineTest;

// Exactly one attaches, every other value detaches; a wrong type stops before any call.
TEST_F(EngineSetup, RenderLayers) {
  const std::string mismatch = "\"type mismatch! call is<type>() before get<type>()\" && ";
  const struct {
    const char* label;
    const char* document;
    std::vector<std::string> calls;
    std::string thrown;
  } cases[] = {
      {"no block", R"({})", {}, ""},
      {"null block", R"({"layers": null})", {}, ""},
      {"attach then detach, by name", R"({"layers": {"b": 0, "a": 1}})",
       {"zvrContextAttachRenderLayer(context=", "layer=\"a\"", "zvrContextDetachRenderLayer(context=", "layer=\"b\""}, ""},
      {"two detaches", R"({"layers": {"x": 2}})", {"zvrContextDetachRenderLayer(context=", "layer=\"x\""}, ""},
      {"one after narrowing to float", R"({"layers": {"y": 1.00000001}})",
       {"zvrContextAttachRenderLayer(context=", "layer=\"y\""}, ""},
      {"block not an object", R"({"layers": [1]})", {}, mismatch + "is<object>()"},
      {"value not a number", R"({"layers": {"a": true, "b": 1}})", {}, mismatch + "is<double>()"},
  };
  for (const auto& c : cases) {
    forgetTrace();
    std::string thrown;
    try {
      applyRenderLayers(parse(c.document), context_);
    } catch (const std::runtime_error& error) {
      thrown = error.what();
    }
    EXPECT_EQ(thrown, c.thrown) << c.label;
    const std::vector<std::string> lines = traceOf({"zvrContextAttachRenderLayer", "zvrContextDetachRenderLayer"});
    ASSERT_EQ(lines.size() * 2, c.calls.size()) << c.label;
    for (size_t i = 0; i < lines.size(); ++i) {
      EXPECT_TRUE(contains(lines[i], c.calls[2 * i])) << c.label << ": " << lines[i];
      EXPECT_TRUE(contains(lines[i], c.calls[2 * i + 1])) << c.label << ": " << lines[i];
    }
  }
}

TEST_F(EngineSetup, PostEffectsNormalizationAlwaysGammaOnlyWhenAskedAndMissing) {
  enum : uint32_t {
    kToneMap = ZVR_POST_EFFECT_TONE_MAP, kWhiteBalance = ZVR_POST_EFFECT_WHITE_BALANCE,
    kSimple = ZVR_POST_EFFECT_SIMPLE_TONEMAP, kNormalization = ZVR_POST_EFFECT_NORMALIZATION,
    kGamma = ZVR_POST_EFFECT_GAMMA_CORRECTION, kBloom = ZVR_POST_EFFECT_BLOOM
  };
  const struct {
    const char* label;
    std::vector<uint32_t> attached;
    bool gammaGiven;
    std::vector<std::pair<uint32_t, bool>> expected;  // type, owned
  } cases[] = {
      {"nothing, no gamma", {}, false, {{kNormalization, true}}},
      {"nothing, gamma given", {}, true, {{kNormalization, true}, {kGamma, true}}},
      {"tone map and gamma", {kToneMap}, true, {{kToneMap, false}, {kNormalization, true}}},
      {"simple tone map and gamma", {kSimple}, true, {{kSimple, false}, {kNormalization, true}}},
      {"gamma effect present", {kGamma}, true, {{kGamma, false}, {kNormalization, true}}},
      {"normalization and white balance", {kNormalization, kWhiteBalance}, false,
       {{kNormalization, false}, {kWhiteBalance, false}}},
      {"white balance and bloom count for nothing", {kWhiteBalance, kBloom}, true,
       {{kWhiteBalance, false}, {kBloom, false}, {kNormalization, true}, {kGamma, true}}},
  };
  for (const auto& c : cases) {
    const ScopedContext context;
    ASSERT_EQ(context.status(), 0);
    for (uint32_t type : c.attached) {
      ZvrPostEffect effect = nullptr;
      ASSERT_EQ(zvrContextCreatePostEffect(context, type, &effect), 0) << c.label;
      ASSERT_EQ(zvrContextAttachPostEffect(context, effect), 0) << c.label;
    }
    RenderSettings settings;
    settings.gammaGiven = c.gammaGiven;
    std::vector<PostEffectEntry> effects;
    ASSERT_EQ(setupPostEffects(parse("{}"), context, settings, effects), 0) << c.label;
    std::vector<std::pair<uint32_t, bool>> made;
    for (const PostEffectEntry& effect : effects) {
      uint32_t type = 99;
      EXPECT_EQ(zvrPostEffectGetInfo(effect.handle, ZVR_POST_EFFECT_TYPE, sizeof(type), &type, nullptr), 0);
      made.emplace_back(type, effect.owned);
    }
    EXPECT_EQ(made, c.expected) << c.label;
    uint32_t attachedCount = 0;
    ASSERT_EQ(zvrContextGetAttachedPostEffectCount(context, &attachedCount), 0);
    EXPECT_EQ(attachedCount, c.expected.size()) << c.label;
  }
}

TEST_F(EngineSetup, LeakReportCountsSurvivorsByKind) {
  auto report = [](ZvrContext context) {
    ::testing::internal::CaptureStdout();
    reportContextLeaks(context);
    std::fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
  };
  EXPECT_EQ(report(nullptr), "");
  EXPECT_EQ(report(context_), "");
  ZvrCamera cameras[2] = {nullptr, nullptr};
  for (ZvrCamera& camera : cameras) ASSERT_EQ(zvrContextCreateCamera(context_, &camera), 0);
  const uint8_t pixel[4] = {1, 2, 3, 4};
  const ZvrImageDesc desc = {1, 1, 4, ZVR_COMPONENT_TYPE_UINT8, ZVR_IMAGE_COLORSPACE_LINEAR};
  ZvrImage image = nullptr;
  ASSERT_EQ(zvrContextCreateImage(context_, &desc, pixel, &image), 0);
  EXPECT_EQ(report(context_), "leak of 2 cameras\nleak of 1 images\nWarning : this context has some leak\n");
  ZvrScene scene = nullptr;
  ASSERT_EQ(zvrContextCreateScene(context_, &scene), 0);
  zvrObjectDelete(cameras[0]);
  zvrObjectDelete(image);
  EXPECT_EQ(report(context_), "leak of 1 cameras\nleak of 1 sceces\nWarning : this context has some leak\n");
  zvrObjectDelete(cameras[1]);
  zvrObjectDelete(scene);
  EXPECT_EQ(report(context_), "");
}

}  // namespace
