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

TEST(MeshProcessing, GeneratedNormalsFollowTheWindingAndWeighByArea) {
  Primitive p = quadInXzPlane();
  generateNormals(&p);
  for (size_t v = 0; v < 4; ++v) {
    EXPECT_NEAR(p.normals[v * 3 + 0], 0.f, 1e-6f);
    EXPECT_NEAR(p.normals[v * 3 + 1], 1.f, 1e-6f) << "counter-clockwise seen from +y faces +y";
    EXPECT_NEAR(p.normals[v * 3 + 2], 0.f, 1e-6f);
  }
  // A vertex shared by a large triangle facing +y and a small one facing +x leans towards +y.
  Primitive bent;
  bent.positions = {0, 0, 0, 4, 0, 0, 0, 0, -4, 0, 1, 0, 0, 0, 1};
  bent.indices = {0, 1, 2, 0, 4, 3};
  generateNormals(&bent);
  EXPECT_GT(bent.normals[1], bent.normals[0]) << bent.normals[0] << " " << bent.normals[1];
  EXPECT_NEAR(bent.normals[0] * bent.normals[0] + bent.normals[1] * bent.normals[1] + bent.normals[2] * bent.normals[2], 1.f, 1e-5f);
}

TEST(MeshProcessing, GeneratedTangentsPointAlongIncreasingU) {
  Primitive p = quadInXzPlane();
  generateTangents(&p);
  ASSERT_EQ(p.tangents.size(), 16u);
  for (size_t v = 0; v < 4; ++v) {
    EXPECT_NEAR(p.tangents[v * 4 + 0], 1.f, 1e-5f) << "u grows along +x";
    EXPECT_NEAR(p.tangents[v * 4 + 1], 0.f, 1e-5f);
    EXPECT_NEAR(p.tangents[v * 4 + 2], 0.f, 1e-5f);
    // v grows along -z; normal x tangent = (0,1,0) x (1,0,0) = (0,0,-1): same side, so w = +1.
    EXPECT_EQ(p.tangents[v * 4 + 3], 1.f);
  }
  Primitive mirrored = quadInXzPlane();
  for (size_t v = 0; v < 4; ++v) mirrored.texcoords0[v * 2 + 1] = 1.f - mirrored.texcoords0[v * 2 + 1];
  generateTangents(&mirrored);
  EXPECT_EQ(mirrored.tangents[3], -1.f) << "mirrored UVs flip the handedness";
}

}  // namespace
}  // namespace zvr::loadstore
