// Primary rays: perspective and orthographic projections and the panoramic modes.
#pragma once

#include "kernel/vector_math.h"

namespace zvr::kernel {

enum CameraMode : uint32_t { kModePlain = 0, kModeLatLong = 3, kModeStereoLatLong = 4, kModeFisheye = 7 };
constexpr float kStereoEyeOffset = 0.032f;

struct Ray {
  Vec3 origin, direction;
  float tMin = 0, tMax = 1e30f;
};

// A ray leaving surface point p: its origin is offset along the geometric normal towards the side
// it leaves by, so that it cannot hit the surface it starts on.
inline Ray spawnRay(Vec3 p, Vec3 ng, Vec3 dir, float epsilon, float distance = 1e30f) {
  Ray r;
  r.origin = p + ng * (dot(dir, ng) >= 0 ? epsilon : -epsilon);
  r.direction = dir;
  r.tMax = distance;
  return r;
}

// A shadow ray from surface point p towards the light point `distance` along `dir`, or towards an
// infinitely far light from 1e29 on. It leaves as spawnRay does but aims from there at the light
// point itself and stops `2 epsilon` short of it, so its end stays in front of the light's surface
// at any angle. Along `dir` from the offset origin, the end could pass behind a light lying nearly
// parallel to the surface (a ceiling lamp seen from far across the floor), which then shadowed
// itself: light sampling came out darker than BSDF sampling there.
inline Ray shadowRay(Vec3 p, Vec3 ng, Vec3 dir, float distance, float epsilon) {
  Ray r = spawnRay(p, ng, dir, epsilon, distance);
  if (!(distance < 1e29f)) return r;
  const Vec3 toLight = p + dir * distance - r.origin;
  const float length = std::sqrt(dot(toLight, toLight));
  if (!(length > 0)) {
    r.tMax = 0;
    return r;
  }
  r.direction = toLight * (1.0f / length);
  r.tMax = std::max(0.0f, length - 2 * epsilon);
  return r;
}

class Camera {
 public:
  Camera(const CameraData& data, uint32_t width, uint32_t height);
  // Ray through film position (x, y) in pixels, (0, 0) the top-left corner. False where the
  // projection has no ray (outside a fisheye's circle).
  bool generateRay(float x, float y, Ray& ray) const;
  // World-to-camera rotation of a direction (for camera-space normals).
  Vec3 toCameraSpace(Vec3 worldDir) const;
  Vec3 position() const { return position_; }
  // False when the transform collapses an axis, so no ray direction can be made.
  bool hasBasis() const { return hasBasis_; }
  // The largest coordinate magnitude a ray of this camera can start from.
  float originReach() const;
  // Angle one pixel spans at the image centre, for texture footprints.
  float pixelSpread() const { return pixelSpread_; }
  // World-space width of a pixel where rays start (orthographic cameras), else 0.
  float pixelWidth() const { return pixelWidth_; }

 private:
  CameraData data_;
  float width_, height_;
  Vec3 position_, right_, up_, back_;
  float tanHalfY_, aspect_, pixelSpread_, pixelWidth_ = 0;
  bool hasBasis_ = true;
};

}  // namespace zvr::kernel
