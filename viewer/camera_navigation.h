// Turning held keys and left-button drags into a new eye, look-at point and up vector, once per
// frame, in fixed steps: nothing is smoothed or scaled to the scene.
#pragma once

#include <array>

#include "viewer/viewer_state.h"

struct GLFWwindow;

namespace zvrs {

using Quaternion = std::array<float, 4>;
using Vector4 = std::array<float, 4>;

// The drag as the panel's toolkit reports it this frame: held past its threshold, and the delta
// from where the press began, in pixels.
struct DragInput {
  bool dragging = false;
  float deltaX = 0.0f;
  float deltaY = 0.0f;
};

// The state the GLFW key callback reaches; set by the viewer's initialisation.
void setNavigationTarget(ViewerState* state);
void keyCallback(GLFWwindow* window, int key, int scancode, int action, int mods);
// Stores press (1) or release (0) of a navigation key; repeats and other keys change nothing.
void applyKeyAction(ViewerState& state, int key, int action);

bool moveCameraByKeys(ViewerState& state);
bool turnCameraByDrag(ViewerState& state, const DragInput& drag);

Quaternion rotationQuaternion(const Vector4& axis, float angle);
Vector4 rotateVector(const Vector4& vector, const Quaternion& q);

}  // namespace zvrs
