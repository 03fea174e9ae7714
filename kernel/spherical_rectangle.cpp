#include "kernel/spherical_rectangle.h"

#include <algorithm>

namespace zvr::kernel {

// The rectangle's corner angles g are the dihedral angles between the planes through ref and its
// edges: at corner (x, y), cos g = +-x y / (rx ry) and sin g = |z0| d / (rx ry), with d the
// corner's distance and rx, ry positive. Their sum, 2 pi plus the solid angle, is therefore the
// argument of a product of four complex numbers (+-x y, |z0| d): one atan2, no inverse cosines.
SphericalRectangle::SphericalRectangle(Vec3 corner, Vec3 x, Vec3 y, float width, float height, Vec3 ref)
    : ref_(ref), x_(x), y_(y), z_(cross(x, y)) {
  if (!(width > 0) || !(height > 0)) return;
  const Vec3 d = corner - ref;
  x0_ = dot(d, x_);
  y0_ = dot(d, y_);
  z0_ = dot(d, z_);
  if (z0_ > 0) {
    z0_ = -z0_;
    z_ = -z_;
  }
  if (!(z0_ < 0)) return;
  x1_ = x0_ + width;
  y1_ = y0_ + height;
  const float z2 = z0_ * z0_, az = -z0_;
  d00_ = std::sqrt(x0_ * x0_ + y0_ * y0_ + z2);
  d01_ = std::sqrt(x0_ * x0_ + y1_ * y1_ + z2);
  const float d10 = std::sqrt(x1_ * x1_ + y0_ * y0_ + z2), d11 = std::sqrt(x1_ * x1_ + y1_ * y1_ + z2);
  // Corners in order (x1, y0), (x1, y1), (x0, y1), (x0, y0).
  const float re[4] = {x1_ * y0_, -x1_ * y1_, x0_ * y1_, -x0_ * y0_};
  const float im[4] = {az * d10, az * d11, az * d01_, az * d00_};
  double pr = 1, pi = 0;  // the product's scale grows as distance^8: double keeps it in range
  for (int i = 0; i < 4; ++i) {
    const double r = pr * re[i] - pi * im[i];
    pi = pr * im[i] + pi * re[i];
    pr = r;
  }
  float omega = float(std::atan2(pi, pr));
  if (omega < 0) omega += 2 * kPi;
  if (omega > 0 && std::isfinite(omega)) solidAngle_ = omega;
}

Vec3 SphericalRectangle::sample(float u1, float u2) const {
  // u1 sweeps the sub-rectangle [x0, xu] over u1 times the solid angle: the angle au at its far
  // edge, k + u1 * solidAngle, where k is 2 pi less the angles at the (x0, y0) and (x0, y1) corners.
  const float z2 = z0_ * z0_, az = -z0_;
  const float ry0 = std::sqrt(z2 + y0_ * y0_), ry1 = std::sqrt(z2 + y1_ * y1_);
  const float rx0 = std::sqrt(z2 + x0_ * x0_);
  // e^{i (g2 + g3)} from the two corners' unit (cos, sin), then e^{ik} is its conjugate. Each
  // factor is normalised on its own: their product unscaled is a fourth power of the distance.
  const float i2 = 1 / (rx0 * ry1), i3 = 1 / (rx0 * ry0);
  const float c2 = x0_ * y1_ * i2, s2 = az * d01_ * i2, c3 = -x0_ * y0_ * i3, s3 = az * d00_ * i3;
  const float cosK = c2 * c3 - s2 * s3, sinK = -(c2 * s3 + s2 * c3);
  float sinU, cosU;
  sinCos2Pi(u1 * solidAngle_ * (0.5f / kPi), sinU, cosU);
  const float cosA = cosU * cosK - sinU * sinK, sinA = sinU * cosK + cosU * sinK;
  // The far edge's plane has normal z component cu; b0 and b1 are those of the y0 and y1 edges.
  const float b0 = -y0_ / ry0, b1 = y1_ / ry1;
  const float n = cosA * b0 - b1;
  const float q = n * n - (1 - b0 * b0) * sinA * sinA;
  float xu = q > 0 ? -z0_ * std::copysign(1.0f, n) * sinA / std::sqrt(q) : (n * sinA > 0 ? x1_ : x0_);
  xu = std::isfinite(xu) ? std::clamp(xu, x0_, x1_) : x1_;
  const float dd = xu * xu + z2;
  const float h0 = y0_ / std::sqrt(dd + y0_ * y0_), h1 = y1_ / std::sqrt(dd + y1_ * y1_);
  const float hv = h0 + u2 * (h1 - h0), hv2 = hv * hv;
  const float yv = hv2 < 1 - 1e-6f ? std::clamp(hv * std::sqrt(dd / (1 - hv2)), y0_, y1_) : (hv < 0 ? y0_ : y1_);
  return ref_ + x_ * xu + y_ * yv + z_ * z0_;
}

}  // namespace zvr::kernel
