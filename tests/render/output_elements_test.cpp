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

// Every known element's framebuffer is created at the settings' size, cleared and bound in name order
// (trace needles in call order); a refused document makes nothing.
TEST_F(OutputElements, CallsForEachKindAndRefusals) {
  const struct {
    const char* label;
    const char* document;
    std::vector<std::string> calls;
    const char* refusal = nullptr;  // what the process is told; none when the document is accepted
    int32_t colorTable = 0;
    uint32_t componentType = ZVR_COMPONENT_TYPE_FLOAT32;  // asked for; data elements are always float
  } cases[] = {
      {"no block", "{}", {}},
      {"null block", R"({"aovs": null})", {}},
      {"data elements are float whatever the setting; depth (7), normal (6), uv (3) by name; unknown names skipped",
       R"({"aovs": {"uv": "u.exr", "normal": "n.png", "diffuse": "x.png", "Normal": "N.png", "depth": "d.exr"}})",
       {"CreateFrameBuffer(", "componentType=3", "FrameBufferClear(", "", "SetAOV(", "aov=7", "CreateFrameBuffer(",
        "width=8, height=4", "FrameBufferClear(", "", "SetAOV(", "aov=6", "CreateFrameBuffer(", "componentType=3",
        "FrameBufferClear(", "", "SetAOV(", "aov=3,"},
       nullptr, 0, ZVR_COMPONENT_TYPE_FLOAT16},
      {"deep colour takes the deep type", R"({"aovs": {"deep.color": "deep.exr"}})",
       {"CreateFrameBuffer(", "componentType=5", "FrameBufferClear(", "", "SetAOV(", ""}},
      {"an lpe entry hands its expression over before binding",
       R"({"aovs": {"lpe2": {"output": "l.png", "lpe": "C<RD>L"}}})",
       {"CreateFrameBuffer(", "", "FrameBufferClear(", "", "FrameBufferSetLPE(", "C<RD>L", "SetAOV(", "aov=34"}},
      {"cryptomatte goes on with the multilayer flag", R"({"multilayerexr": 1, "aovs": {"cryptomatte.mat0": "a.exr"}})",
       {"CreateFrameBuffer(", "", "FrameBufferClear(", "", "SetAOV(", ""}},
      {"colour table on request", "{}", {"SetAOVindicesLookup(", "first=0, count=65536"}, nullptr, 1},
      {"block not an object", R"({"aovs": 3})", {}, "type mismatch"},
      {"plain entry not a string", R"({"aovs": {"depth": 1}})", {}, "type mismatch"},
      {"lpe entry not an object", R"({"aovs": {"lpe0": "x.png"}})", {}, "type mismatch"},
      {"lpe output not a string", R"({"aovs": {"lpe0": {"output": 1, "lpe": "CRL"}}})", {}, "type mismatch"},
      {"cryptomatte with flag 0", R"({"multilayerexr": 0, "aovs": {"cryptomatte.mat0": "a.exr"}})", {},
       "E000008: cryptomatte requires multi layer exr. please use \"multilayerexr\" : 0\nfile="},
      {"cryptomatte without the flag", R"({"aovs": {"cryptomatte.obj3": "a.exr"}})", {},
       "E000008: cryptomatte requires"},
      {"cryptomatte flag not a number", R"({"multilayerexr": "1", "aovs": {"cryptomatte.mat0": "a.exr"}})", {},
       "E000008: cryptomatte requires"},
  };
  for (const auto& c : cases) {
    forgetTrace();
    settings_.colorTable = c.colorTable;
    settings_.framebufferFormat.componentType = c.componentType;
    ZvrStatus status = -1;
    const std::string said = make(c.document, &status);
    EXPECT_TRUE(c.refusal ? contains(said, c.refusal) : said.empty()) << c.label << ": " << said;
    EXPECT_EQ(status == 0, c.refusal == nullptr) << c.label;
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

}  // namespace
