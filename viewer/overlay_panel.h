// The panel drawn over the picture each frame: batch size and timing, four depth limits, shape
// visibility, and the eye position. Every change it makes restarts the accumulation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "viewer/camera_navigation.h"
#include "viewer/viewer_state.h"

namespace zvrs {

// What the panel edits; the depth fields start at 0 and are not read from the engine.
struct PanelState {
  std::vector<ZvrShape> shapes;
  std::vector<std::string> shapeLabels;
  std::vector<uint8_t> shapeVisible;
  int guiMaxDepth = 0;
  int guiMaxDepthDiffuse = 0;
  int guiMaxDepthReflection = 0;
  int guiMaxDepthRefraction = 0;
};

// What the panel shows of the running batch.
struct PanelFigures {
  uint32_t batchIterations = 0;
  float frameTimeMs = 0.0f;
  int32_t frameCount = 0;
};

// "12_Cube": the index keeps labels unique and gives the list its order.
std::string shapeLabel(size_t index, const char* name);
// A depth below 1 becomes 1; there is no upper limit.
int clampDepth(int value);
// Lists the imported shapes with their labels, all visible; prints "shapes: N".
void listShapes(PanelState& panel);

// Draws the panel inside the toolkit's frame and runs the navigation; answers whether the camera
// changed in this frame.
bool drawPanel(PanelState& panel, const PanelFigures& figures, ViewerState& viewer, RenderExchange& exchange,
               ZvrContext context);

}  // namespace zvrs
