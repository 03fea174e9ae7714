#include "viewer/overlay_panel.h"

#include <imgui.h>

#include <cstdio>

#include "engine/ZvrLoadStore.h"

namespace zvrs {

namespace {

constexpr size_t kTextSize = 256;

// A changed depth restarts the picture; the abort comes first so a running batch ends soon.
void depthField(const char* label, int& value, uint32_t key, RenderExchange& exchange, ZvrContext context) {
  if (!ImGui::InputInt(label, &value, 1, 100)) return;
  value = clampDepth(value);
  exchange.restart = 1;
  zvrContextAbortRender(context);
  zvrContextSetParameterByKey1u(context, key, static_cast<uint32_t>(value));
}

void visibilityList(PanelState& panel, RenderExchange& exchange, ZvrContext context) {
  ImGui::BeginChild("shapes", ImVec2(0.0f, 100.0f), false, 0);
  ImGui::Text("shape visibility");
  for (size_t i = 0; i < panel.shapes.size(); ++i) {
    const uint8_t before = panel.shapeVisible[i];
    bool visible = before != 0;
    const bool pressed = ImGui::Checkbox(panel.shapeLabels[i].c_str(), &visible);
    panel.shapeVisible[i] = visible ? 1 : 0;
    if (pressed && panel.shapeVisible[i] != before) {
      zvrShapeSetVisibility(panel.shapes[i], panel.shapeVisible[i]);
      exchange.restart = 1;
      zvrContextAbortRender(context);
    }
  }
  ImGui::EndChild();
}

}  // namespace

std::string shapeLabel(size_t index, const char* name) { return std::to_string(index) + "_" + name; }

int clampDepth(int value) { return value < 1 ? 1 : value; }

void listShapes(PanelState& panel) {
  uint32_t count = 0;
  zvrsListImportedShapes(nullptr, 0, &count);
  panel.shapes.assign(count, nullptr);
  if (count > 0) zvrsListImportedShapes(panel.shapes.data(), count * sizeof(ZvrShape), nullptr);
  std::printf("shapes: %d\n", static_cast<int>(count));
  panel.shapeLabels.clear();
  for (size_t i = 0; i < panel.shapes.size(); ++i) {
    char name[256] = {0};
    zvrShapeGetInfo(panel.shapes[i], ZVR_OBJECT_NAME, sizeof name, name, nullptr);
    name[sizeof name - 1] = '\0';
    panel.shapeLabels.push_back(shapeLabel(i, name));
  }
  panel.shapeVisible.assign(count, 1);
}

bool drawPanel(PanelState& panel, const PanelFigures& figures, ViewerState& viewer, RenderExchange& exchange,
               ZvrContext context) {
  // The toolkit stops the process on an empty window name; "##" keeps the title empty all the same.
  ImGui::Begin("##ZvrsRenderPanel", nullptr, 0);
  char text[kTextSize];
  std::snprintf(text, sizeof text, "batchSize: %d", static_cast<int>(figures.batchIterations));
  ImGui::TextUnformatted(text);
  std::snprintf(text, sizeof text, "time per frame: %3.2fms (%d)", static_cast<double>(figures.frameTimeMs),
                static_cast<int>(figures.frameCount));
  ImGui::TextUnformatted(text);
  ImGui::Separator();
  depthField("maxdepth", panel.guiMaxDepth, ZVR_CONTEXT_MAX_DEPTH, exchange, context);
  depthField("maxdepth.diffuse", panel.guiMaxDepthDiffuse, ZVR_CONTEXT_MAX_DEPTH_DIFFUSE, exchange, context);
  depthField("maxdepth.reflection", panel.guiMaxDepthReflection, ZVR_CONTEXT_MAX_DEPTH_GLOSSY, exchange, context);
  depthField("maxdepth.refraction", panel.guiMaxDepthRefraction, ZVR_CONTEXT_MAX_DEPTH_REFRACTION, exchange,
             context);
  ImGui::Separator();
  visibilityList(panel, exchange, context);
  ImGui::Separator();

  bool cameraMoved = moveCameraByKeys(viewer);
  DragInput drag;
  drag.dragging = ImGui::IsMouseDragging(ImGuiMouseButton_Left, -1.0f);
  const ImVec2 delta = ImGui::GetMouseDragDelta(ImGuiMouseButton_Left, -1.0f);
  drag.deltaX = delta.x;
  drag.deltaY = delta.y;
  if (turnCameraByDrag(viewer, drag)) cameraMoved = true;
  // A typed eye keeps the old look-at point, so the camera turns toward it.
  if (ImGui::InputFloat3("cam.translation", viewer.position, "%f", 0)) cameraMoved = true;
  ImGui::End();
  return cameraMoved;
}

}  // namespace zvrs
