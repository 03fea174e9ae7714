#include "kernel/vector_math.h"

namespace zvr::kernel {

bool invert3x3(const Matrix4& m, float out[9]) {
  const float* a = m.m;
  float a00 = a[0], a01 = a[1], a02 = a[2], a10 = a[4], a11 = a[5], a12 = a[6], a20 = a[8], a21 = a[9], a22 = a[10];
  float c00 = a11 * a22 - a12 * a21, c01 = a12 * a20 - a10 * a22, c02 = a10 * a21 - a11 * a20;
  float det = a00 * c00 + a01 * c01 + a02 * c02;
  if (!(std::fabs(det) > 1e-30f)) return false;
  float inv = 1.0f / det;
  out[0] = c00 * inv;
  out[1] = (a02 * a21 - a01 * a22) * inv;
  out[2] = (a01 * a12 - a02 * a11) * inv;
  out[3] = c01 * inv;
  out[4] = (a00 * a22 - a02 * a20) * inv;
  out[5] = (a02 * a10 - a00 * a12) * inv;
  out[6] = c02 * inv;
  out[7] = (a01 * a20 - a00 * a21) * inv;
  out[8] = (a00 * a11 - a01 * a10) * inv;
  return true;
}

}  // namespace zvr::kernel
