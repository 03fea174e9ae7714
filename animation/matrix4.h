// 4x4 float matrices, row-major, column-vector convention: the translation is the last column.
#pragma once

#include <array>

namespace zvrs {

using Matrix4 = std::array<float, 16>;

inline float& at(Matrix4& m, int row, int column) { return m[row * 4 + column]; }
inline float at(const Matrix4& m, int row, int column) { return m[row * 4 + column]; }

Matrix4 identityMatrix();
Matrix4 multiply(const Matrix4& a, const Matrix4& b);
Matrix4 transpose(const Matrix4& m);
float determinant(const Matrix4& m);
// False (and `out` untouched) for a singular matrix.
bool invert(const Matrix4& m, Matrix4& out);

Matrix4 translationMatrix(const float t[3]);
Matrix4 scaleMatrix(const float s[3]);
// The rotation of the quaternion (x, y, z, w). The factor is 2 / length, not 2 / length^2: right
// for unit quaternions only, and kept so because imported scenes were posed with this rule.
Matrix4 quaternionMatrix(const float q[4]);
// T x R x S.
Matrix4 composeTrs(const float translation[3], const float quaternion[4], const float scale[3]);

}  // namespace zvrs
