// The libraries' one 4x4 matrix, shared by the core, the load/store library and the plug-ins.
//
// Layout: 16 floats, the translation in elements 12, 13, 14, as the C API takes a matrix without
// its transpose flag. Read as rows it is the row-vector convention (a point p maps to p * M); read
// as columns, element [column * 4 + row], it is the column-vector convention of glTF. The program's
// side of engine/ has its own matrix (animation/matrix4.h, the transposed layout); the two meet only
// through the C API's transpose flag.
#pragma once

#include <cstddef>

namespace zvr {

struct Matrix4 {
  float m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

  float& operator[](size_t i) { return m[i]; }
  float operator[](size_t i) const { return m[i]; }
  float* begin() { return m; }
  float* end() { return m + 16; }
  const float* begin() const { return m; }
  const float* end() const { return m + 16; }
  float* data() { return m; }
  const float* data() const { return m; }
};

}  // namespace zvr
