#include "kernel/camera.h"

namespace zvr::kernel {

Camera::Camera(const CameraData& data, uint32_t width, uint32_t height)
    : data_(data), width_(float(std::max(1u, width))), height_(float(std::max(1u, height))) {
  position_ = transformPoint(data.transform, Vec3(0, 0, 0));
  Vec3 axes[3] = {transformVector(data.transform, Vec3(1, 0, 0)), transformVector(data.transform, Vec3(0, 1, 0)),
                  transformVector(data.transform, Vec3(0, 0, 1))};
  for (const Vec3& a : axes) hasBasis_ = hasBasis_ && length(a) > 0 && isFinite(a);
  right_ = normalize(axes[0]);
  up_ = normalize(axes[1]);
  back_ = normalize(axes[2]);
  float scale = data.postScale > 0 ? data.postScale : 1;
  float fov = std::min(std::max(data.fovY, 1e-4f), kPi - 1e-3f);
  tanHalfY_ = std::tan(fov / 2) * scale;
  aspect_ = width_ / height_;
  if (data.mode == kModeLatLong || data.mode == kModeStereoLatLong)
    pixelSpread_ = 2 * kPi / width_;
  else if (data.mode == kModeFisheye)
    pixelSpread_ = kPi * scale / std::min(width_, height_);
  else if (data.type == 1) {
    pixelSpread_ = 0;
    pixelWidth_ = data.orthoHeight * scale / height_;
  }
  else
    pixelSpread_ = 2 * tanHalfY_ / height_;
}

bool Camera::generateRay(float x, float y, Ray& ray) const {
  Vec3 local;  // camera-space direction
  Vec3 origin = position_;
  switch (data_.mode) {
    case kModeLatLong:
    case kModeStereoLatLong: {
      float v = y / height_;
      if (data_.mode == kModeStereoLatLong) {
        // Left eye on the top half, right eye below.
        bool left = v < 0.5f;
        v = left ? 2 * v : 2 * v - 1;
        origin = origin + right_ * (left ? -kStereoEyeOffset : kStereoEyeOffset);
      }
      float phi = (x / width_ - 0.5f) * 2 * kPi;  // azimuth, 0 at -z, positive towards +x
      float theta = v * kPi;                       // polar angle from +y
      local = Vec3(std::sin(theta) * std::sin(phi), std::cos(theta), -std::sin(theta) * std::cos(phi));
      break;
    }
    case kModeFisheye: {
      float half = std::min(width_, height_) / 2;
      float scale = data_.postScale > 0 ? data_.postScale : 1;
      float dx = (x - width_ / 2) / half, dy = (height_ / 2 - y) / half;
      float r = std::sqrt(dx * dx + dy * dy) * scale;
      if (r > 1) return false;
      float theta = r * kPi / 2;  // equidistant: 180 degrees across the shorter side
      float phi = std::atan2(dy, dx);
      local = Vec3(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), -std::cos(theta));
      break;
    }
    default: {
      float px = (2 * x / width_ - 1) * aspect_, py = 1 - 2 * y / height_;
      if (data_.type == 1) {
        float half = 0.5f * data_.orthoHeight * (data_.postScale > 0 ? data_.postScale : 1);
        origin = origin + right_ * (px * half) + up_ * (py * half);
        local = Vec3(0, 0, -1);
      } else {
        local = Vec3(px * tanHalfY_, py * tanHalfY_, -1);
      }
      break;
    }
  }
  Vec3 dir = normalize(right_ * local.x + up_ * local.y + back_ * local.z);
  ray.origin = origin;
  ray.direction = dir;
  ray.tMin = std::max(0.0f, data_.nearPlane);
  if (ray.tMin > 0 && data_.type != 1 && data_.mode == kModePlain) ray.tMin /= std::max(1e-6f, -local.z / length(local));
  ray.tMax = data_.farPlane > ray.tMin ? data_.farPlane : 1e30f;
  return true;
}

float Camera::originReach() const {
  float reach = maxAbsComponent(position_);
  if (data_.mode == kModeStereoLatLong) reach += kStereoEyeOffset;
  // Orthographic rays start anywhere on the film rectangle.
  if (data_.type == 1 && data_.mode == kModePlain)
    reach += 0.5f * data_.orthoHeight * (data_.postScale > 0 ? data_.postScale : 1) * std::max(1.0f, aspect_);
  return reach;
}

Vec3 Camera::toCameraSpace(Vec3 d) const { return {dot(d, right_), dot(d, up_), dot(d, back_)}; }

}  // namespace zvr::kernel
