// The batch loop called directly on a real context: cases the program's settings reader never
// lets through (no iterations), the progress record, and which framebuffer each family saves.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "render/batch_render.h"
#include "tests/render/engine_fixture.h"
#include "render/output_elements.h"

using namespace zvrs;

namespace {

class BatchRender : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    makeEnvironmentScene(0.5f, 0.5f, 0.5f);
    settings_.width = settings_.framebufferDesc.width = 4;
    settings_.height = settings_.framebufferDesc.height = 2;
  }

  // The colour element alone, bound to the colour AOV (0).
  std::vector<OutputElement> colorElement(const std::string& file) {
    ZvrFrameBuffer color = framebuffer(4, 2);
    EXPECT_EQ(zvrContextSetAOV(context_, 0, color), 0);
    return {{"color", {file}, color, "color"}};
  }

  std::string run(const std::vector<int32_t>& kinds, const char* document, std::vector<OutputElement>& elements) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(renderBatches(kinds, parse(document), context_, settings_, elements, progress_, timing_), 0);
    std::fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
  }

  RenderSettings settings_;
  ProgressRecord progress_;
  TimingRecord timing_;
};

// The preview family's framebuffers already hold final values: its raw framebuffer is saved, the
// others' resolved copy.
TEST_F(BatchRender, IterationCountsPercentagesAndTheSavedFramebuffer) {
  const struct {
    const char* label;
    int32_t family;
    uint32_t iterations;
    uint32_t batchSize;
    bool printProgress;
    size_t renders;
    const char* out;
    float offset, scale;
  } cases[] = {
      {"no iterations renders nothing and still saves", ZVR_PLUGIN_FAMILY_VELDER, 0, 4, true, 0, "100%\n", 0.0f, 0.0f},
      {"batch size 0 is one a call", ZVR_PLUGIN_FAMILY_VELDER, 3, 0, true, 3, "  0%\n 33%\n 67%\n100%\n", 200.0f / 3.0f,
       100.0f / 3.0f},
      {"silent", ZVR_PLUGIN_FAMILY_VELDER, 10, 4, false, 3, "", 80.0f, 20.0f},
      {"preview family", ZVR_PLUGIN_FAMILY_DORRIK, 1, 4, false, 1, "", 0.0f, 100.0f},
  };
  for (const auto& c : cases) {
    forgetTrace();
    settings_.iterations = c.iterations;
    settings_.batchSize = c.batchSize;
    settings_.printProgress = c.printProgress;
    progress_ = ProgressRecord();
    const std::string file = tempFile("out.png");
    std::vector<OutputElement> elements = colorElement(file);
    EXPECT_EQ(run({c.family}, "{}", elements), c.out) << c.label;
    EXPECT_EQ(traceOf({"zvrContextRender"}).size(), c.renders) << c.label;
    EXPECT_EQ(traceOf({"zvrContextResolveFrameBuffer"}).size(), 1u) << c.label << ": resolved whatever the family";
    const std::vector<std::string> saves = traceOf({"zvrFrameBufferSaveToFile"});
    ASSERT_EQ(saves.size(), 1u) << c.label;
    char raw[32];
    std::snprintf(raw, sizeof(raw), "frameBuffer=%p,", static_cast<void*>(elements[0].framebuffer));
    EXPECT_EQ(contains(saves[0], raw), c.family == ZVR_PLUGIN_FAMILY_DORRIK) << c.label << ": " << saves[0];
    EXPECT_FLOAT_EQ(progress_.offset, c.offset) << c.label;
    EXPECT_FLOAT_EQ(progress_.scale, c.scale) << c.label;
    EXPECT_EQ(timing_.stampCount, 2) << c.label;
    EXPECT_LE(timing_.stamps[0], timing_.stamps[1]) << c.label;
    EXPECT_TRUE(std::ifstream(file).good()) << c.label;
    zvrObjectDelete(elements[0].framebuffer);
  }
}

}  // namespace
