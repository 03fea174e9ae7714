// A real render context over the Velder plug-in, with the API trace of every call kept in a folder
// of this test, so that call order and arguments can be read back.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "picojson.h"
#include "tests/support/program_run.h"
#include "tests/support/scoped_context.h"

class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("ZVR_TRACE", tracePath_.c_str(), 1);
    scoped_.emplace();  // after the trace is named, so the trace holds the creation too
    ASSERT_EQ(scoped_->status(), ZVR_SUCCESS);
    context_ = *scoped_;
  }
  void TearDown() override {
    scoped_.reset();
    unsetenv("ZVR_TRACE");
  }

  // A file name in this test's folder, removed with it.
  std::string tempFile(const std::string& name) const { return folder_ / name; }
  void forgetTrace() const { std::remove(tracePath_.c_str()); }

  // The trace lines of the given operations, in call order.
  std::vector<std::string> traceOf(const std::vector<std::string>& operations) const {
    std::vector<std::string> lines;
    std::ifstream trace(tracePath_);
    for (std::string line; std::getline(trace, line);)
      for (const std::string& operation : operations)
        if (line.compare(0, operation.size() + 1, operation + "(") == 0) lines.push_back(line);
    return lines;
  }

  // A framebuffer of four channels of `type` on this context, deleted with it.
  ZvrFrameBuffer framebuffer(uint32_t width, uint32_t height, uint32_t type = ZVR_COMPONENT_TYPE_FLOAT32) const {
    ZvrFrameBuffer buffer = nullptr;
    const ZvrFramebufferDesc desc = {width, height};
    EXPECT_EQ(zvrContextCreateFrameBuffer(context_, {4, type}, &desc, &buffer), ZVR_SUCCESS);
    return buffer;
  }

  // A scene of nothing but a constant environment, so that every pixel of a render is known.
  void makeEnvironmentScene(float r, float g, float b) {
    ZvrScene scene = nullptr;
    ZvrLight light = nullptr;
    ZvrCamera camera = nullptr;
    ZvrPostEffect normalization = nullptr;
    ASSERT_EQ(zvrContextCreateScene(context_, &scene), 0);
    ASSERT_EQ(zvrContextCreateLight(context_, ZVR_LIGHT_ENVIRONMENT, &light), 0);
    ASSERT_EQ(zvrLightSetRadiance(light, r, g, b), 0);
    ASSERT_EQ(zvrSceneAttachLight(scene, light), 0);
    ASSERT_EQ(zvrContextCreateCamera(context_, &camera), 0);
    ASSERT_EQ(zvrSceneSetCamera(scene, camera), 0);
    ASSERT_EQ(zvrContextSetScene(context_, scene), 0);
    ASSERT_EQ(zvrContextCreatePostEffect(context_, ZVR_POST_EFFECT_NORMALIZATION, &normalization), 0);
    ASSERT_EQ(zvrContextAttachPostEffect(context_, normalization), 0);
  }

  static picojson::value parse(const std::string& text) {
    picojson::value value;
    const std::string error = picojson::parse(value, text);
    EXPECT_TRUE(error.empty()) << error;
    return value;
  }

  const RunFolder folder_{std::string(::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name()) +
                          "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name()};
  const std::string tracePath_ = folder_ / "api.trace";
  std::optional<ScopedContext> scoped_;
  ZvrContext context_ = nullptr;
};

// True when `line` holds `needle`; for readable expectations on trace lines.
inline bool contains(const std::string& line, const std::string& needle) {
  return line.find(needle) != std::string::npos;
}
