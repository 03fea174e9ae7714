// Geometry fix-ups applied while a primitive enters the description.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "loadstore/scene_description.h"

namespace zvr::loadstore {

// glTF primitive modes 4 (triangles), 5 (strip) and 6 (fan) to a triangle list; degenerate
// triangles of strips and fans are dropped. False for any other mode or a truncated list.
bool toTriangleList(int mode, const std::vector<uint32_t>& source, std::vector<uint32_t>* triangles);
// Empty string when every index is below the vertex count and every position is finite.
std::string checkGeometry(const Primitive& primitive);
// Area-weighted vertex normals: each triangle adds its unnormalized cross product.
void generateNormals(Primitive* primitive);
// Per-triangle tangents from UV set 0, accumulated per vertex and orthogonalized to the normal.
void generateTangents(Primitive* primitive);

}  // namespace zvr::loadstore
