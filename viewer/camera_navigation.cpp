#include "viewer/camera_navigation.h"

#include <cmath>

namespace zvrs {

namespace {

ViewerState* navigationTarget = nullptr;

constexpr float kStep = 0.2f;
constexpr float kRadiansPerPixel = 0.01f;

constexpr int kKeyRight = 262, kKeyLeft = 263, kKeyDown = 264, kKeyUp = 265;
constexpr int kKeyA = 65, kKeyD = 68, kKeyQ = 81, kKeyS = 83, kKeyW = 87, kKeyZ = 90;

uint8_t* flagFor(ViewerState& state, int key) {
  switch (key) {
    case kKeyUp: return &state.keyUp;
    case kKeyZ: return &state.keyZ;
    case kKeyW: return &state.keyW;
    case kKeyDown: return &state.keyDown;
    case kKeyS: return &state.keyS;
    case kKeyLeft: return &state.keyLeft;
    case kKeyQ: return &state.keyQ;
    case kKeyA: return &state.keyA;
    case kKeyRight: return &state.keyRight;
    case kKeyD: return &state.keyD;
    default: return nullptr;
  }
}

struct Frame {
  Vector4 dir;
  Vector4 side;
};

// The unit view direction and the unnormalised side vector up x dir.
Frame viewFrame(const ViewerState& state) {
  const float dx = state.lookAt[0] - state.position[0];
  const float dy = state.lookAt[1] - state.position[1];
  const float dz = state.lookAt[2] - state.position[2];
  const float inverse = 1.0f / std::sqrt(dy * dy + dx * dx + dz * dz);
  Frame frame;
  frame.dir = {dx * inverse, dy * inverse, dz * inverse, 0.0f};
  const Vector4& d = frame.dir;
  const float* up = state.up;
  frame.side = {d[2] * up[1] - d[1] * up[2], d[0] * up[2] - d[2] * up[0], d[1] * up[0] - d[0] * up[1], 0.0f};
  return frame;
}

void moveBy(ViewerState& state, const Vector4& v, float amount) {
  for (int i = 0; i < 3; ++i) state.position[i] += v[i] * amount;
}

void lookAlong(ViewerState& state, const Vector4& dir) {
  for (int i = 0; i < 3; ++i) state.lookAt[i] = state.position[i] + dir[i];
  state.lookAt[3] = state.position[3];
}

Quaternion hamilton(const Quaternion& a, const Quaternion& b) {
  return {a[3] * b[0] + a[0] * b[3] + a[1] * b[2] - a[2] * b[1], a[3] * b[1] - a[0] * b[2] + a[1] * b[3] + a[2] * b[0],
          a[3] * b[2] + a[0] * b[1] - a[1] * b[0] + a[2] * b[3], a[3] * b[3] - a[0] * b[0] - a[1] * b[1] - a[2] * b[2]};
}

}  // namespace

void setNavigationTarget(ViewerState* state) { navigationTarget = state; }

void keyCallback(GLFWwindow*, int key, int, int action, int) {
  if (navigationTarget != nullptr) applyKeyAction(*navigationTarget, key, action);
}

void applyKeyAction(ViewerState& state, int key, int action) {
  if (action != 0 && action != 1) return;
  uint8_t* flag = flagFor(state, key);
  if (flag != nullptr) *flag = static_cast<uint8_t>(action);
}

bool moveCameraByKeys(ViewerState& state) {
  const Frame frame = viewFrame(state);
  const bool forward = state.keyUp || state.keyZ || state.keyW;
  const bool back = state.keyDown || state.keyS;
  const bool left = state.keyLeft || state.keyQ || state.keyA;
  const bool right = state.keyRight || state.keyD;
  // Opposite keys are not set against each other: each direction takes its own step.
  if (forward) moveBy(state, frame.dir, kStep);
  if (back) moveBy(state, frame.dir, -kStep);
  if (left) moveBy(state, frame.side, kStep);
  if (right) moveBy(state, frame.side, -kStep);
  const bool moved = forward || back || left || right;
  if (moved) lookAlong(state, frame.dir);
  return moved;
}

bool turnCameraByDrag(ViewerState& state, const DragInput& drag) {
  Frame frame = viewFrame(state);
  if (!drag.dragging) {
    state.dragging = 0;
    return false;
  }
  if (!state.dragging) {
    // The first frame of a drag only sets its origin.
    state.dragging = 1;
    state.lastDragDelta[0] = state.lastDragDelta[1] = 0.0f;
    return false;
  }
  const float dy = drag.deltaY - state.lastDragDelta[1];
  const float dx = drag.deltaX - state.lastDragDelta[0];
  Vector4& dir = frame.dir;
  const Vector4& side = frame.side;

  if (dy != 0.0f) {
    const Vector4 newDir = rotateVector(dir, rotationQuaternion(side, dy * kRadiansPerPixel));
    // The up vector follows the direction from before this rotation: a lag that is part of the feel.
    state.up[0] = -(dir[2] * side[1] - side[2] * dir[1]);
    state.up[1] = -(side[2] * dir[0] - dir[2] * side[0]);
    state.up[2] = -(dir[1] * side[0] - side[1] * dir[0]);
    state.up[3] = 0.0f;
    lookAlong(state, newDir);
    dir = newDir;
  }
  if (dx != 0.0f) {
    // A camera that has rolled over keeps turning the way the mouse goes.
    const bool upsideDown = state.up[1] < 0.0f;
    const Vector4 axis = upsideDown ? Vector4{-0.0f, -1.0f, -0.0f, 0.0f} : Vector4{0.0f, 1.0f, 0.0f, 0.0f};
    const Quaternion q = rotationQuaternion(axis, -dx * kRadiansPerPixel);
    lookAlong(state, rotateVector(dir, q));
    Vector4 newSide = rotateVector(side, q);
    const float inverse = 1.0f / std::sqrt(newSide[0] * newSide[0] + newSide[1] * newSide[1] + newSide[2] * newSide[2]);
    for (int i = 0; i < 3; ++i) newSide[i] *= inverse;
    state.up[0] = -(newSide[1] * dir[2] - newSide[2] * dir[1]);
    state.up[1] = -(newSide[2] * dir[0] - newSide[0] * dir[2]);
    state.up[2] = -(newSide[0] * dir[1] - newSide[1] * dir[0]);
    state.up[3] = 0.0f;
  }
  state.lastDragDelta[0] = drag.deltaX;
  state.lastDragDelta[1] = drag.deltaY;
  // A held drag counts as a change every frame, moved or not.
  return true;
}

Quaternion rotationQuaternion(const Vector4& axis, float angle) {
  const float n = 1.0f / std::sqrt(axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2]);
  const float s = std::sin(angle * 0.5f);
  const float c = std::cos(angle * 0.5f);
  return {axis[0] * n * s, axis[1] * n * s, axis[2] * n * s, c};
}

Vector4 rotateVector(const Vector4& vector, const Quaternion& q) {
  const float m = q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3];
  Quaternion inverse = {0.0f, 0.0f, 0.0f, 1.0f};
  if (m != 0.0f) {
    const float r = 1.0f / m;
    inverse = {-q[0] * r, -q[1] * r, -q[2] * r, q[3] * r};
  }
  const Quaternion rotated = hamilton(hamilton(q, {vector[0], vector[1], vector[2], 0.0f}), inverse);
  return {rotated[0], rotated[1], rotated[2], 0.0f};
}

}  // namespace zvrs
