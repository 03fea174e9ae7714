// Small helpers on the libraries' matrix (core/matrix4.h: translation in 12, 13, 14).
#pragma once

#include <array>

#include "core/matrix4.h"
#include "loadstore/scene_description.h"

namespace zvr::loadstore {

using zvr::Matrix4;

Matrix4 identityMatrix();
Matrix4 matrixFromTrs(const Trs& trs);
Matrix4 multiply(const Matrix4& a, const Matrix4& b);  // a * b: b is applied first
std::array<float, 3> transformPoint(const Matrix4& m, const std::array<float, 3>& p);
// Splits an affine matrix into translation, rotation and scale; shear is lost. False when the
// upper 3x3 block is singular or not finite.
bool decomposeMatrix(const Matrix4& m, Trs* out);
void normalizeQuaternion(float* q);

}  // namespace zvr::loadstore
