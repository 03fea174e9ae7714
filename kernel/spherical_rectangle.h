// A rectangle as seen from a point: its solid angle and directions to it uniform in solid angle
// (Urena, Fajardo and King 2013, "An area-preserving parametrization for spherical rectangles").
// One rectangular emitter sampled so stratifies its light samples over the whole rectangle, where
// its two triangles chosen at random would not.
#pragma once

#include "kernel/vector_math.h"

namespace zvr::kernel {

class SphericalRectangle {
 public:
  SphericalRectangle() = default;  // no rectangle: a solid angle of 0
  // The rectangle `corner + a x + b y`, a in [0, width], b in [0, height], with `x` and `y`
  // orthogonal unit vectors, seen from `ref`.
  SphericalRectangle(Vec3 corner, Vec3 x, Vec3 y, float width, float height, Vec3 ref);
  // 0 when `ref` lies in the rectangle's plane or the rectangle is degenerate.
  float solidAngle() const { return solidAngle_; }
  // The point of the rectangle met by a direction uniform in its solid angle; requires
  // solidAngle() > 0.
  Vec3 sample(float u1, float u2) const;

 private:
  Vec3 ref_, x_, y_, z_;  // z_ points from the rectangle's plane towards ref
  float x0_ = 0, x1_ = 0, y0_ = 0, y1_ = 0, z0_ = 0;  // the rectangle in that frame, z0_ < 0
  float d00_ = 0, d01_ = 0;  // distances to the corners (x0, y0) and (x0, y1)
  float solidAngle_ = 0;
};

}  // namespace zvr::kernel
