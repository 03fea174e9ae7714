#include <gtest/gtest.h>

#include <cmath>

#include "loadstore/mesh_processing.h"

namespace zvr::loadstore {
namespace {

TEST(MeshProcessing, StripsAndFansBecomeTrianglesOfOneWinding) {
  struct Case {
    const char* name;
    int mode;
    std::vector<uint32_t> source;
    bool ok;
    std::vector<uint32_t> triangles;
  };
  const Case cases[] = {
      {"list", 4, {0, 1, 2, 2, 1, 3}, true, {0, 1, 2, 2, 1, 3}},
      {"list with a loose index", 4, {0, 1, 2, 3}, false, {}},
      {"strip flips every other triangle", 5, {0, 1, 2, 3, 4}, true, {0, 1, 2, 1, 3, 2, 2, 3, 4}},
      {"strip drops degenerate joins, keeps parity", 5, {0, 1, 2, 2, 3, 4}, true, {0, 1, 2, 2, 4, 3}},
      {"fan around the first vertex", 6, {0, 1, 2, 3, 4}, true, {0, 1, 2, 0, 2, 3, 0, 3, 4}},
      {"too short to make a triangle", 5, {0, 1}, true, {}},
      {"lines are not triangles", 1, {0, 1}, false, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<uint32_t> out;
    EXPECT_EQ(toTriangleList(c.mode, c.source, &out), c.ok);
    if (c.ok) {
      EXPECT_EQ(out, c.triangles);
    }
  }
}

Primitive quadInXzPlane() {
  Primitive p;
  p.positions = {0, 0, 0, 1, 0, 0, 1, 0, -1, 0, 0, -1};
  p.indices = {0, 1, 2, 0, 2, 3};
  p.texcoords0 = {0, 0, 1, 0, 1, 1, 0, 1};
  return p;
}

TEST(MeshProcessing, GeneratedNormalsAndTangentsFollowWindingAreaAndUv) {
  Primitive p = quadInXzPlane();
  generateNormals(&p);
  generateTangents(&p);
  ASSERT_EQ(p.tangents.size(), 16u);
  for (size_t v = 0; v < 4; ++v) {
    SCOPED_TRACE(v);
    // Counter-clockwise seen from +y faces +y; u grows along +x.
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(p.normals[v * 3 + k], k == 1 ? 1.f : 0.f, 1e-6f);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(p.tangents[v * 4 + k], k == 0 ? 1.f : 0.f, 1e-5f);
    // v grows along -z; normal x tangent = (0,1,0) x (1,0,0) = (0,0,-1): same side, so w = +1.
    EXPECT_EQ(p.tangents[v * 4 + 3], 1.f);
  }
  Primitive mirrored = quadInXzPlane();
  for (size_t v = 0; v < 4; ++v) mirrored.texcoords0[v * 2 + 1] = 1.f - mirrored.texcoords0[v * 2 + 1];
  generateTangents(&mirrored);
  EXPECT_EQ(mirrored.tangents[3], -1.f) << "mirrored UVs flip the handedness";
  // A vertex shared by a large triangle facing +y and a small one facing +x leans towards +y.
  Primitive bent;
  bent.positions = {0, 0, 0, 4, 0, 0, 0, 0, -4, 0, 1, 0, 0, 0, 1};
  bent.indices = {0, 1, 2, 0, 4, 3};
  generateNormals(&bent);
  EXPECT_GT(bent.normals[1], bent.normals[0]) << bent.normals[0] << " " << bent.normals[1];
  EXPECT_NEAR(std::hypot(bent.normals[0], bent.normals[1], bent.normals[2]), 1.f, 1e-5f);
}

}  // namespace
}  // namespace zvr::loadstore
