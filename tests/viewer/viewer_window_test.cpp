// The viewer in a real window on the test's X display, driven by real input events: its picture
// against a batch render of the same samples, navigation through the API trace, shape visibility,
// and how a run ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/render/image_file.h"
#include "tests/support/process_runner.h"
#include "viewer/upscaler_constants.h"
#include "tests/viewer/upscaler_reference.h"
#include "tests/support/program_run.h"
#include "tests/viewer/x11_session.h"

using namespace zvrs;

namespace {

const std::string kCornell = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/CornellBox/cornellBox-2.80-Eevee-gltf.gltf";
const std::string kBox = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";
constexpr int kWidth = 200;
constexpr int kHeight = 150;
// The panel opens at (60, 60) and is about 215 pixels wide; the picture around it is never covered.
bool outsidePanel(int x, int y) { return x < 60 || y < 60 || x > 290; }

void pause(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

std::string settingsFor(const std::string& plugin, const std::string& extra, int width = kWidth,
                        int height = kHeight) {
  return R"({"plugin":")" + plugin + R"(","width":)" + std::to_string(width) + R"(,"height":)" +
         std::to_string(height) + R"(,"gamma":2.2,"print.progress":0)" + extra + "}";
}

int toByte(float value) { return static_cast<int>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f)); }

// Largest difference, over the uncovered part of the picture less `border` pixels at its edges,
// between the window and `expected`.
int largestDifference(const WindowPixels& window, const Picture& expected, int border) {
  int largest = 0;
  const int top = window.height - kHeight;  // the picture stands in the lower-left corner
  for (int y = border; y + border < kHeight; ++y)
    for (int x = border; x + border < kWidth; ++x) {
      if (!outsidePanel(x, y + top)) continue;
      for (int c = 0; c < 3; ++c) largest = std::max(largest, std::abs(window.at(x, y + top)[c] - toByte(expected.at(x, y)[c])));
    }
  return largest;
}

double meanDifference(const WindowPixels& a, const WindowPixels& b) {
  double sum = 0.0;
  for (size_t i = 0; i < a.rgb.size() && i < b.rgb.size(); ++i) sum += std::abs(a.rgb[i] - b.rgb[i]);
  return sum / static_cast<double>(std::max<size_t>(a.rgb.size(), 1));
}

using Vec = std::array<float, 3>;
Vec minus(const Vec& a, const Vec& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
float dot(const Vec& a, const Vec& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

struct LookAt {
  Vec eye, at;
};

std::vector<LookAt> lookAtCalls(const std::string& trace) {
  std::vector<LookAt> calls;
  std::ifstream lines(trace);
  auto value = [](const std::string& line, const std::string& name) {
    return std::stof(line.substr(line.find(", " + name + "=") + name.size() + 3));
  };
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("zvrCameraLookAt(", 0) != 0) continue;
    calls.push_back({{value(line, "posX"), value(line, "posY"), value(line, "posZ")},
                     {value(line, "atX"), value(line, "atY"), value(line, "atZ")}});
  }
  return calls;
}

class ViewerWindow : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!x11_.available()) GTEST_SKIP() << "no X display; ctest runs this test under xvfb-run";
  }

  // Starts the viewer on `scene` and waits for its window.
  void start(const std::string& scene, const std::string& settings) {
    viewer_ = std::make_unique<ChildProcess>(renderProgramPath(), std::vector<std::string>{scene, settings},
                                             ProcessOptions{folder_, {{"ZVR_TRACE", folder_ / "api.trace"}}});
    ASSERT_TRUE(x11_.findWindow("ZvrsRender", 120.0)) << viewer_->finish(5).err;
  }

  // Input is polled once per window frame, and a frame may be slow (a sanitizer build, a busy
  // machine): the key or button is held until the engine has been handed new cameras, at most 30 s.
  size_t lookAtCount() const { return lookAtCalls(folder_ / "api.trace").size(); }

  void holdKeyUntilHandedOver(const std::string& key, size_t cameras) {
    const size_t before = lookAtCount();
    x11_.pressKey(key);
    for (int tries = 0; tries < 300 && lookAtCount() < before + cameras; ++tries) pause(50);
    x11_.releaseKey(key);
  }

  void dragRightUntilHandedOver(int x, int y) {
    x11_.moveTo(x, y);
    pause(200);
    x11_.pressButton();
    const size_t before = lookAtCount();
    for (int step = 1; step <= 300 && lookAtCount() < before + 4; ++step) {
      x11_.moveTo(x + std::min(step, 30) * 4, y);
      pause(100);
    }
    x11_.releaseButton();
  }

  ProcessResult close() {
    x11_.requestClose();
    return viewer_->finish(300.0);
  }

  void keepOnFailure(const WindowPixels& pixels, const std::string& name) {
    if (HasFailure()) savePng(pixels, ::testing::TempDir() + name + ".png");
  }

  RunFolder folder_{::testing::UnitTest::GetInstance()->current_test_info()->name()};
  X11Session x11_;
  std::unique_ptr<ChildProcess> viewer_;
};

// The viewer's batches (1, 1, 4, 4) and the batch loop's (4, 4, 2) accumulate the very same samples,
// so the stopped window shows the batch render's picture, or with upscaling both CPU passes of it.
TEST_F(ViewerWindow, StoppedPictureEqualsABatchRenderThenAMoveClearsIt) {
  const struct {
    const char* plugin;
    int divisor;  // of the window's size, for the render
    const char* upscaling;
  } cases[] = {{"velder", 1, ""},
               {"quillon", 1, ""},
               {"dorrik", 1, ""},
               {"velder", 2, R"(,"vsk.enable":1,"vsk.nalt.enable":1,"vsk.width":200,"vsk.height":150)"}};
  for (const auto& c : cases) {
    const std::string label = c.plugin + std::string(c.divisor > 1 ? " upscaled" : "");
    SCOPED_TRACE(label);
    const int width = kWidth / c.divisor, height = kHeight / c.divisor;
    const ProgramRun batch =
        runProgram(folder_, {kCornell, settingsFor(c.plugin, R"(,"gui":0,"iterations":10,"batchsize":4,)"
                                                             R"("output":"reference.exr","framebuffer.save.float32":1)",
                                                   width, height)});
    ASSERT_EQ(batch.exitCode, 0) << batch.err;
    Picture expected(width, height);
    expected.rgba = readImageFile(folder_ / "reference.exr").values;
    ASSERT_EQ(expected.rgba.size(), size_t(width) * height * 4);
    if (c.divisor > 1) expected = referenceNalt(referenceTovu(expected, kWidth, kHeight), naltSharpness(0.25f));
    // The sharpening's taps beyond the edge are the driver's business: then the border is left out.
    const int border = c.divisor > 1 ? 1 : 0;

    start(kCornell, settingsFor(c.plugin, std::string(R"(,"gui.stop_at_iterations":10,"batchsize":4)") + c.upscaling,
                                width, height));
    ASSERT_TRUE(viewer_->waitForOutput("ZVR Render finish after ", 300.0)) << viewer_->output().err;
    pause(500);
    const WindowPixels stopped = x11_.capture();
    ASSERT_EQ(stopped.width, kWidth);
    EXPECT_LE(largestDifference(stopped, expected, border), 1);
    keepOnFailure(stopped, "viewer_stopped_" + std::to_string(&c - cases));

    holdKeyUntilHandedOver("w", 1);
    pause(500);
    EXPECT_EQ(largestDifference(x11_.capture(), Picture(kWidth, kHeight), border), 0)
        << "after the stop a move clears the picture and nothing renders again";

    const ProcessResult ended = close();
    EXPECT_EQ(ended.exitCode, 0) << ended.err;
    EXPECT_NE(ended.out.find("shapes: 23\n"), std::string::npos);
    EXPECT_NE(ended.out.find("End of program.\n"), std::string::npos);
    EXPECT_TRUE(std::ifstream(folder_ / "output.json").good()) << "the statistics are written after the window";
    EXPECT_FALSE(std::ifstream(folder_ / "test.png").good()) << "the viewer saves no image";
  }
}

TEST_F(ViewerWindow, KeysAndDragMoveTheCameraThroughTheEngine) {
  start(kCornell, settingsFor("velder", R"(,"batchsize":2)"));
  pause(1500);
  const WindowPixels before = x11_.capture();
  // Eight steps of 0.2 change the picture well beyond the noise of its first samples, even in a
  // sanitizer build that shows fewer of them.
  holdKeyUntilHandedOver("w", 8);
  pause(1000);
  const WindowPixels walked = x11_.capture();
  EXPECT_GT(meanDifference(before, walked), 2.0);
  dragRightUntilHandedOver(20, 20);
  pause(1000);
  const WindowPixels turned = x11_.capture();
  EXPECT_GT(meanDifference(walked, turned), 2.0);
  keepOnFailure(turned, "viewer_turned");
  ASSERT_EQ(close().exitCode, 0);

  const std::vector<LookAt> calls = lookAtCalls(folder_ / "api.trace");
  ASSERT_GE(calls.size(), 2u);
  const Vec firstDir = minus(calls[0].at, calls[0].eye);
  size_t walking = 1;
  // While W is held the eye advances 0.2 per frame along the view, which stays one unit ahead.
  for (; walking < calls.size(); ++walking) {
    const Vec step = minus(calls[walking].eye, calls[walking - 1].eye);
    if (std::sqrt(dot(step, step)) < 1e-4f) break;  // the drag turns without moving
    EXPECT_NEAR(dot(step, firstDir), 0.2f, 2e-3f) << "call " << walking;
  }
  ASSERT_LT(walking, calls.size()) << "the drag sent no turn";
  const Vec last = minus(calls.back().at, calls.back().eye);
  EXPECT_NEAR(std::sqrt(dot(last, last)), 1.0f, 1e-3f);
  EXPECT_LT(dot(last, firstDir), 0.999f) << "the drag turned the view";
}

TEST_F(ViewerWindow, UntickedShapeLeavesThePicture) {
  // Large enough for the panel to show its visibility list whole.
  start(kBox, settingsFor("velder", R"(,"batchsize":1)", 400, 300));
  pause(1500);
  const WindowPixels shown = x11_.capture();
  x11_.click(77, 247, 1500);  // the box of shape 0 in the panel's visibility list, held past a frame
  pause(1500);
  const WindowPixels hidden = x11_.capture();
  ASSERT_EQ(close().exitCode, 0);
  // Without its one shape the scene is its environment alone: one flat value everywhere.
  int spreadShown = 0, spreadHidden = 0;
  for (int y = 0; y < shown.height && y < hidden.height; ++y)
    for (int x = 0; x < shown.width && x < hidden.width; ++x) {
      if (!outsidePanel(x, y)) continue;
      spreadShown = std::max(spreadShown, std::abs(shown.at(x, y)[0] - shown.at(0, 0)[0]));
      spreadHidden = std::max(spreadHidden, std::abs(hidden.at(x, y)[0] - hidden.at(0, 0)[0]));
    }
  EXPECT_GT(spreadShown, 20);
  EXPECT_LE(spreadHidden, 1);
  keepOnFailure(hidden, "viewer_hidden");
  keepOnFailure(shown, "viewer_shown");
}

}  // namespace
