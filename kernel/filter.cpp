#include "kernel/filter.h"

#include <algorithm>

namespace zvr::kernel {
namespace {

float sinc(float x) {
  x = std::fabs(x);
  if (x < 1e-5f) return 1;
  return std::sin(kPi * x) / (kPi * x);
}

float mitchell1D(float x) {
  constexpr float B = 1.0f / 3, C = 1.0f / 3;
  x = std::fabs(2 * x);  // support [-2, 2] mapped onto [-1, 1] by the caller
  if (x > 1)
    return ((-B - 6 * C) * x * x * x + (6 * B + 30 * C) * x * x + (-12 * B - 48 * C) * x + (8 * B + 24 * C)) / 6;
  return ((12 - 9 * B - 6 * C) * x * x * x + (-18 + 12 * B + 6 * C) * x * x + (6 - 2 * B)) / 6;
}

}  // namespace

float filterProfile(FilterType type, float radius, float x) {
  float ax = std::fabs(x);
  if (ax > radius) return 0;
  switch (type) {
    case FilterType::None:
    case FilterType::Box:
      return 1;
    case FilterType::Triangle:
      return std::max(0.0f, 1 - ax / radius);
    case FilterType::Gaussian: {
      float sigma = radius / 3;
      return std::exp(-x * x / (2 * sigma * sigma));
    }
    case FilterType::Mitchell:
      return mitchell1D(x / radius);
    case FilterType::Lanczos:
      return sinc(x) * sinc(x / radius);
    case FilterType::Blackman:
      return 0.42f + 0.5f * std::cos(kPi * x / radius) + 0.08f * std::cos(2 * kPi * x / radius);
  }
  return 0;
}

FilterSampler::FilterSampler(uint32_t type, float radius) : type_(FilterType(type)), radius_(radius) {
  if (type > uint32_t(FilterType::Blackman) || !(radius > 0) || type == uint32_t(FilterType::None)) {
    // No reconstruction filter: uniform jitter over the pixel's own area.
    type_ = FilterType::Box;
    radius_ = 0.5f;
  }
  float weights[kBins];
  double cdf[kBins + 1] = {0};
  for (int i = 0; i < kBins; ++i) {
    // Midpoint plus two inner points per bin keep narrow lobes from vanishing.
    float sum = 0;
    for (int k = 0; k < 4; ++k) sum += filterProfile(type_, radius_, (i + (k + 0.5f) / 4) * radius_ / kBins);
    weights[i] = std::isfinite(sum) ? std::fabs(sum) : 0;
    signs_[i] = sum < 0 ? -1.0f : 1.0f;
    cdf[i + 1] = cdf[i] + weights[i];
  }
  // Every profile has weight next to the centre, so the total is positive.
  const double total = cdf[kBins];
  int bin = 0;
  for (int j = 0; j <= kInverseNodes; ++j) {
    const double target = total * j / kInverseNodes;
    while (bin + 1 < kBins && cdf[bin + 1] < target) ++bin;
    const double inBin = weights[bin] > 0 ? std::clamp((target - cdf[bin]) / weights[bin], 0.0, 1.0) : 0.0;
    inverse_[j] = float((bin + inBin) / kBins) * radius_;
  }
}

float FilterSampler::sampleAxis(float u, float& sign) const {
  bool negative = u < 0.5f;
  u = negative ? 2 * u : 2 * u - 1;
  const float t = std::clamp(u, 0.0f, 1.0f) * kInverseNodes;
  const int j = std::min(int(t), kInverseNodes - 1);
  const float x = inverse_[j] + (inverse_[j + 1] - inverse_[j]) * (t - float(j));
  sign = signs_[std::min(kBins - 1, int(x / radius_ * kBins))];
  return negative ? -x : x;
}

FilterSampler::Sample FilterSampler::sample(float u1, float u2) const {
  float sx = 1, sy = 1;
  Sample s;
  s.dx = sampleAxis(u1, sx);
  s.dy = sampleAxis(u2, sy);
  s.weight = sx * sy;
  return s;
}

}  // namespace zvr::kernel
