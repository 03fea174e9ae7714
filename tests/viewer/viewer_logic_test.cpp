// The viewer's navigation arithmetic, batch schedule and panel helpers, without a window.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "viewer/batch_schedule.h"
#include "viewer/camera_navigation.h"
#include "viewer/overlay_panel.h"

using namespace zvrs;

namespace {

constexpr int kKeyW = 87;

ViewerState cameraAt(float upY) {
  ViewerState state;
  const float position[4] = {1.0f, 2.0f, 3.0f, 1.0f};
  const float lookAt[4] = {1.0f, 2.0f, -7.0f, 1.0f};  // ten units down -z
  for (int i = 0; i < 4; ++i) {
    state.position[i] = position[i];
    state.lookAt[i] = lookAt[i];
  }
  state.up[1] = upY;
  return state;
}

float viewAngleX(const ViewerState& state) {
  return std::atan2(state.lookAt[0] - state.position[0], -(state.lookAt[2] - state.position[2]));
}

TEST(Navigation, HeldKeyMovesFixedStepsAndPullsTheLookAtOneUnitAhead) {
  ViewerState state = cameraAt(1.0f);
  applyKeyAction(state, kKeyW, 1);
  applyKeyAction(state, kKeyW, 2);  // a repeat keeps the key held
  for (int frame = 0; frame < 10; ++frame) ASSERT_TRUE(moveCameraByKeys(state));
  EXPECT_NEAR(state.position[2], 3.0f - 2.0f, 1e-5f);
  EXPECT_NEAR(state.lookAt[2], state.position[2] - 1.0f, 1e-5f);
  EXPECT_FLOAT_EQ(state.position[0], 1.0f);
  applyKeyAction(state, kKeyW, 0);
  applyKeyAction(state, 999, 1);  // not a navigation key
  EXPECT_FALSE(moveCameraByKeys(state));
}

TEST(Navigation, DragYawsFromItsSecondFrameAndFollowsARolledCamera) {
  struct Case {
    float upY;
    float expectedYaw;  // on screen, a drag to the right turns the view right either way up
  };
  for (const Case& c : {Case{1.0f, 0.1f}, Case{-1.0f, -0.1f}}) {
    ViewerState state = cameraAt(c.upY);
    state.lastDragDelta[0] = 5.0f;
    EXPECT_FALSE(turnCameraByDrag(state, {true, 3.0f, 0.0f})) << "the first frame moves nothing";
    EXPECT_EQ(state.lastDragDelta[0], 0.0f);
    EXPECT_FLOAT_EQ(viewAngleX(state), 0.0f);
    EXPECT_TRUE(turnCameraByDrag(state, {true, 10.0f, 0.0f}));
    EXPECT_NEAR(viewAngleX(state), c.expectedYaw, 1e-5f) << "up " << c.upY;
    EXPECT_TRUE(turnCameraByDrag(state, {true, 10.0f, 0.0f})) << "a held drag counts as a change";
    EXPECT_FALSE(turnCameraByDrag(state, {false, 0.0f, 0.0f}));
    EXPECT_EQ(state.dragging, 0);
  }
}

// Runs the schedule as the window loop does, moving the camera in every batch when asked.
std::vector<uint32_t> renderedBatches(int32_t stopAt, uint32_t batchSize, bool moveEveryBatch, int batches) {
  BatchCounters counters;
  std::vector<uint32_t> rendered;
  bool cameraMoved = false;
  for (int b = 0; b < batches; ++b) {
    const BatchCounters atHead = counters;
    if (reachesStop(counters, stopAt)) counters.finished = true;
    const BatchChoice choice = chooseBatch(cameraMoved, counters.frameCount, batchSize, firstFramesValue(stopAt));
    EXPECT_EQ(choice.frameValue, 0u) << "a run with a stop never asks for cheap first frames";
    if (!counters.finished) rendered.push_back(choice.iterations);
    countBatch(counters, atHead, choice.iterations);
    cameraMoved = moveEveryBatch;
    if (moveEveryBatch) counters.frameCount = 0;
  }
  return rendered;
}

TEST(BatchSchedule, SingleIterationsAfterARestartThenFullBatchesUntilTheStop) {
  EXPECT_EQ(renderedBatches(10, 4, false, 20), (std::vector<uint32_t>{1, 1, 4, 4}));
  // Restarts do not reset the total: a camera kept moving reaches the stop with single iterations.
  EXPECT_EQ(renderedBatches(3, 4, true, 20), (std::vector<uint32_t>{1, 1, 1}));
  EXPECT_EQ(firstFramesValue(0), 2u);
  const BatchChoice settled = chooseBatch(false, 2, 32, 2);
  EXPECT_EQ(settled.iterations, 32u);
  EXPECT_EQ(settled.frameValue, 0u);
}

TEST(Panel, LabelsAndDepthClamp) {
  EXPECT_EQ(shapeLabel(12, "Cube"), "12_Cube");
  EXPECT_EQ(shapeLabel(3, ""), "3_");
  EXPECT_EQ(clampDepth(-1), 1);  // "-" on a field that shows 0
  EXPECT_EQ(clampDepth(0), 1);
  EXPECT_EQ(clampDepth(500), 500);
}

}  // namespace
