#include <cmath>

#include "core/failure.h"
#include "core/info_reply.h"
#include "core/scene_objects.h"

namespace zvr::core {
namespace {

struct Vec3 {
  float x, y, z;
};
Vec3 sub(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
float length(Vec3 a) { return std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z); }
Vec3 scale(Vec3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }

}  // namespace

void Camera::lookAt(const float position[3], const float target[3], const float up[3]) {
  Vec3 eye{position[0], position[1], position[2]};
  Vec3 at{target[0], target[1], target[2]};
  Vec3 upHint{up[0], up[1], up[2]};
  for (int i = 0; i < 3; ++i)
    if (!std::isfinite(position[i]) || !std::isfinite(target[i]) || !std::isfinite(up[i]))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "the arguments must be finite numbers");
  Vec3 back = sub(eye, at);
  float distance = length(back);
  if (distance <= 0) fail(ZVR_ERROR_INVALID_ARGUMENT, "the position and the look-at point are the same");
  Vec3 z = scale(back, 1 / distance);
  Vec3 x = cross(upHint, z);
  float xLength = length(x);
  if (xLength <= 1e-12f) fail(ZVR_ERROR_INVALID_ARGUMENT, "the up vector is parallel to the view direction");
  x = scale(x, 1 / xLength);
  Vec3 y = cross(z, x);
  const float m[16] = {x.x, x.y, x.z, 0, y.x, y.y, y.z, 0, z.x, z.y, z.z, 0, eye.x, eye.y, eye.z, 1};
  for (int i = 0; i < 16; ++i) data.transform.m[i] = m[i];
  focusDistance = distance;
}

void Camera::setTransform(const zvr::Matrix4& transform) { data.transform = transform; }

void Camera::getInfo(uint32_t key, size_t size, void* out, size_t* outSize) const {
  const float* m = data.transform.m;
  switch (key) {
    case ZVR_CAMERA_TRANSFORM: replyBytes("camera transform", m, 16 * sizeof(float), size, out, outSize); return;
    case ZVR_CAMERA_TYPE: replyValue("camera type", data.type, size, out, outSize); return;
    case ZVR_CAMERA_FOVY: replyValue("camera fov y", data.fovY, size, out, outSize); return;
    case ZVR_CAMERA_ORTHO_HEIGHT: replyValue("camera ortho height", data.orthoHeight, size, out, outSize); return;
    case ZVR_CAMERA_MODE: replyValue("camera mode", data.mode, size, out, outSize); return;
    case ZVR_CAMERA_POST_SCALE: replyValue("camera post scale", data.postScale, size, out, outSize); return;
    case ZVR_CAMERA_CLIP: {
      const float clip[2] = {data.nearPlane, data.farPlane};
      replyBytes("camera clip", clip, sizeof clip, size, out, outSize);
      return;
    }
    case ZVR_CAMERA_POSITION: {
      const float position[4] = {m[12], m[13], m[14], 1};
      replyBytes("camera position", position, sizeof position, size, out, outSize);
      return;
    }
    case ZVR_CAMERA_LOOKAT: {
      // The camera looks along its -z axis; the point lies at the last look-at distance.
      const float at[4] = {m[12] - m[8] * focusDistance, m[13] - m[9] * focusDistance, m[14] - m[10] * focusDistance, 1};
      replyBytes("camera look-at point", at, sizeof at, size, out, outSize);
      return;
    }
    case ZVR_CAMERA_UP: {
      const float up[4] = {m[4], m[5], m[6], 0};
      replyBytes("camera up vector", up, sizeof up, size, out, outSize);
      return;
    }
  }
  fail(ZVR_ERROR_UNKNOWN_KEY, "camera has no info key " + std::to_string(key));
}

}  // namespace zvr::core
