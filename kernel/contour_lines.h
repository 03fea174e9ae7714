// Contour lines from one iteration's camera samples: where neighbouring pixels differ in object
// id, material id, shading normal or UV, a line of the feature's width covers the pixels around.
#pragma once

#include <cstdint>
#include <vector>

#include "kernel/vector_math.h"

namespace zvr::kernel {

enum ContourFeature : int { kContourObject = 0, kContourMaterial, kContourNormal, kContourUv, kContourFeatures };

// What the camera sample of one pixel saw.
struct ContourSample {
  bool hit = false;
  uint32_t objectId = 0, materialId = 0;
  Vec3 normal;
  float uv[2] = {0, 0};
  float depth = 1e30f;  // distance along the camera ray; the nearer pixel of a pair carries the line
};

// The contour keys, turned into what the line drawing needs.
struct ContourStyle {
  bool enabled[kContourFeatures] = {true, true, true, true};
  float width[kContourFeatures] = {1, 1, 1, 1};  // pixels
  float cosCrease = 0.70710678f;                 // normals further apart than this angle make a line
  float uvDistance = 1;
  uint32_t uvSet = 0;
  bool antialiased = true;  // soft line edges; otherwise a pixel is covered or not
  float jitterRadius = 0.5f;  // of the camera samples around the pixel centre, in pixels
  bool debug = false;

  static ContourStyle fromParams(const RenderParams& params);
  bool anyFeature() const;
};

// The colour a feature's lines take in debug mode; distinct per feature.
Vec3 contourDebugColor(int feature);

// How much of a pixel lines cover (0 to 1), and the feature of the strongest line there.
struct ContourCoverage {
  float amount = 0;
  int feature = -1;
};

// `samples` holds width * height pixels, rows top to bottom; the result has the same layout.
std::vector<ContourCoverage> drawContours(const std::vector<ContourSample>& samples, uint32_t width, uint32_t height,
                                          const ContourStyle& style);

}  // namespace zvr::kernel
