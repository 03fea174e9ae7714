// Pixel reconstruction filters applied by filter importance sampling: each sample lands in its own
// pixel at an offset drawn from |f|, carrying the sign of f as its weight, so no splatting is needed.
#pragma once

#include <cstdint>

#include "kernel/sampling.h"

namespace zvr::kernel {

enum class FilterType : uint32_t { None = 0, Box, Triangle, Gaussian, Mitchell, Lanczos, Blackman };

// The 1D filter profile at x with half-width `radius` (all filters are separable).
float filterProfile(FilterType type, float radius, float x);

class FilterSampler {
 public:
  // Unknown types and non-positive radii fall back to the pixel box; callers check ranges first.
  FilterSampler(uint32_t type, float radius);
  struct Sample {
    float dx, dy;    // offset from the pixel centre, pixels
    float weight;    // +1 or -1
  };
  Sample sample(float u1, float u2) const;
  float radius() const { return radius_; }

 private:
  float sampleAxis(float u, float& sign) const;
  FilterType type_;
  float radius_;
  static constexpr int kBins = 64;
  float signs_[kBins] = {};
  // |f| over [0, radius] as 64 constant bins, sampled through its inverse CDF tabulated at evenly
  // spaced u: a lookup and a lerp per axis instead of a search, once per camera ray.
  static constexpr int kInverseNodes = 1024;
  float inverse_[kInverseNodes + 1] = {};
};

}  // namespace zvr::kernel
