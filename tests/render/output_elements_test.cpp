// Output elements made from the "aovs" block against the real core: order, names, formats, the
// calls that make them and the refusals.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/render/engine_fixture.h"
#include "render/output_elements.h"

using namespace zvrs;

namespace {

class OutputElements : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    settings_.framebufferDesc = {8, 4};
  }
  // Makes the elements and deletes their framebuffers; what the process was told, or the exception.
  std::string make(const char* document, ZvrStatus* status) {
    std::vector<OutputElement> elements;
    ::testing::internal::CaptureStderr();
    try {
      *status = createOutputElements(parse(document), context_, settings_, elements);
    } catch (const std::runtime_error& error) {
      ::testing::internal::GetCapturedStderr();
      *status = -1;
      return error.what();
    }
    for (const OutputElement& element : elements) zvrObjectDelete(element.framebuffer);
    return ::testing::internal::GetCapturedStderr();
  }
  RenderSettings settings_;
};

// Every known element's framebuffer is created at the settings' size, cleared and bound in name order;
// trace needles in call order.
TEST_F(OutputElements, CallsForEachKind) {
  const struct {
    const char* label;
    const char* document;
    int32_t colorTable;
    uint32_t componentType;  // asked for; data elements are always float
    std::vector<std::string> calls;
  } cases[] = {
      {"no block", "{}", 0, ZVR_COMPONENT_TYPE_FLOAT32, {}},
      {"null block", R"({"aovs": null})", 0, ZVR_COMPONENT_TYPE_FLOAT32, {}},
      {"data elements are float whatever the setting; depth (7), normal (6), uv (3) by name; unknown names skipped",
       R"({"aovs": {"uv": "u.exr", "normal": "n.png", "diffuse": "x.png", "Normal": "N.png", "depth": "d.exr"}})", 0,
       ZVR_COMPONENT_TYPE_FLOAT16,
       {"CreateFrameBuffer(", "componentType=3", "FrameBufferClear(", "", "SetAOV(", "aov=7", "CreateFrameBuffer(",
        "width=8, height=4", "FrameBufferClear(", "", "SetAOV(", "aov=6", "CreateFrameBuffer(", "componentType=3",
        "FrameBufferClear(", "", "SetAOV(", "aov=3,"}},
      {"deep colour takes the deep type", R"({"aovs": {"deep.color": "deep.exr"}})", 0, ZVR_COMPONENT_TYPE_FLOAT32,
       {"CreateFrameBuffer(", "componentType=5", "FrameBufferClear(", "", "SetAOV(", ""}},
      {"an lpe entry hands its expression over before binding",
       R"({"aovs": {"lpe2": {"output": "l.png", "lpe": "C<RD>L"}}})", 0, ZVR_COMPONENT_TYPE_FLOAT32,
       {"CreateFrameBuffer(", "", "FrameBufferClear(", "", "FrameBufferSetLPE(", "C<RD>L", "SetAOV(", "aov=34"}},
      {"cryptomatte goes on with the multilayer flag",
       R"({"multilayerexr": 1, "aovs": {"cryptomatte.mat0": "a.exr"}})", 0, ZVR_COMPONENT_TYPE_FLOAT32,
       {"CreateFrameBuffer(", "", "FrameBufferClear(", "", "SetAOV(", ""}},
      {"colour table on request", "{}", 1, ZVR_COMPONENT_TYPE_FLOAT32, {"SetAOVindicesLookup(", "first=0, count=65536"}},
  };
  for (const auto& c : cases) {
    forgetTrace();
    settings_.colorTable = c.colorTable;
    settings_.framebufferFormat.componentType = c.componentType;
    ZvrStatus status = -1;
    EXPECT_EQ(make(c.document, &status), "") << c.label;
    EXPECT_EQ(status, 0) << c.label;
    const std::vector<std::string> lines =
        traceOf({"zvrContextCreateFrameBuffer", "zvrFrameBufferClear", "zvrContextSetAOV", "zvrFrameBufferSetLPE",
                 "zvrContextSetAOVindicesLookup"});
    ASSERT_EQ(lines.size() * 2, c.calls.size()) << c.label;
    for (size_t i = 0; i < lines.size(); ++i) {
      EXPECT_TRUE(contains(lines[i], c.calls[2 * i])) << c.label << ": " << lines[i];
      EXPECT_TRUE(contains(lines[i], c.calls[2 * i + 1])) << c.label << ": " << lines[i];
      EXPECT_TRUE(contains(lines[i], "-> 0")) << c.label << ": " << lines[i];
    }
  }
}

TEST_F(OutputElements, Refusals) {
  const struct {
    const char* label;
    const char* document;
    const char* said;
  } cases[] = {
      {"block not an object", R"({"aovs": 3})", "type mismatch"},
      {"plain entry not a string", R"({"aovs": {"depth": 1}})", "type mismatch"},
      {"lpe entry not an object", R"({"aovs": {"lpe0": "x.png"}})", "type mismatch"},
      {"lpe output not a string", R"({"aovs": {"lpe0": {"output": 1, "lpe": "CRL"}}})", "type mismatch"},
      {"cryptomatte with flag 0", R"({"multilayerexr": 0, "aovs": {"cryptomatte.mat0": "a.exr"}})",
       "E000008: cryptomatte requires multi layer exr. please use \"multilayerexr\" : 0\nfile="},
      {"cryptomatte without the flag", R"({"aovs": {"cryptomatte.obj3": "a.exr"}})", "E000008: cryptomatte requires"},
      {"cryptomatte flag not a number", R"({"multilayerexr": "1", "aovs": {"cryptomatte.mat0": "a.exr"}})",
       "E000008: cryptomatte requires"},
  };
  for (const auto& c : cases) {
    ZvrStatus status = 0;
    const std::string said = make(c.document, &status);
    EXPECT_NE(status, 0) << c.label;
    EXPECT_TRUE(contains(said, c.said)) << c.label << ": " << said;
  }
}

}  // namespace
