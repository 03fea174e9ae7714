// Puts skinned geometry into its bind pose, in the space of the node that holds the mesh.
#pragma once

#include <cstdint>
#include <vector>

#include "loadstore/scene_description.h"
#include "loadstore/transform_math.h"

namespace zvr::loadstore {

// Inverse of an affine matrix; false when its 3x3 part is singular.
bool invertAffine(const Matrix4& m, Matrix4* out);

// Moves every vertex by the weighted sum of its joints' matrices (4 joints and weights a vertex);
// normals by the cofactors of that sum, tangents by the sum itself. Weights that do not add up
// to one are normalized; a vertex without weight stays where it is.
void applySkinning(const std::vector<uint32_t>& joints, const std::vector<float>& weights,
                   const std::vector<Matrix4>& jointMatrices, Primitive* primitive);

}  // namespace zvr::loadstore
