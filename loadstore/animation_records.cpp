#include "loadstore/animation_records.h"

#include <cmath>
#include <limits>

#include "loadstore/transform_math.h"

namespace zvr::loadstore {

namespace {

void appendKey(AnimationChannel* channel, float time, const float* value, uint32_t components) {
  channel->times.push_back(time);
  const size_t first = channel->values.size();
  channel->values.insert(channel->values.end(), value, value + components);
  if (components == 4) normalizeQuaternion(channel->values.data() + first);
}

void convertStep(uint32_t n, uint32_t c, const std::vector<float>& times, const std::vector<float>& values,
                 AnimationChannel* channel) {
  for (uint32_t k = 0; k < n; ++k) {
    const float* v = values.data() + size_t(k) * c;
    appendKey(channel, times[k], v, c);
    if (k + 1 < n) {
      // Hold the value until just before the next key, so linear sampling reproduces the step.
      const float before = std::nextafter(times[k + 1], -std::numeric_limits<float>::infinity());
      if (before > times[k]) appendKey(channel, before, v, c);
    }
  }
}

void convertCubic(uint32_t n, uint32_t c, const std::vector<float>& times, const std::vector<float>& values,
                  AnimationChannel* channel) {
  auto element = [&](uint32_t key, uint32_t which) { return values.data() + (size_t(key) * 3 + which) * c; };
  std::vector<float> sample(c);
  for (uint32_t k = 0; k + 1 < n; ++k) {
    const float dt = times[k + 1] - times[k];
    const float* p0 = element(k, 1);
    const float* m0 = element(k, 2);
    const float* p1 = element(k + 1, 1);
    const float* m1 = element(k + 1, 0);
    for (int s = 0; s < kCubicSubsteps; ++s) {
      const float u = float(s) / kCubicSubsteps;
      const float u2 = u * u, u3 = u2 * u;
      const float h00 = 2 * u3 - 3 * u2 + 1, h10 = u3 - 2 * u2 + u, h01 = -2 * u3 + 3 * u2, h11 = u3 - u2;
      for (uint32_t i = 0; i < c; ++i) sample[i] = h00 * p0[i] + h10 * dt * m0[i] + h01 * p1[i] + h11 * dt * m1[i];
      appendKey(channel, times[k] + u * dt, sample.data(), c);
      if (dt == 0.f) break;
    }
  }
  appendKey(channel, times[n - 1], element(n - 1, 1), c);
}

}  // namespace

bool convertToLinearKeys(uint32_t interpolation, uint32_t componentCount, const std::vector<float>& times,
                         const std::vector<float>& values, AnimationChannel* channel, std::string* problem) {
  channel->times.clear();
  channel->values.clear();
  channel->sourceInterpolation = interpolation;
  const size_t n = times.size();
  if (n == 0) {
    *problem = "has no keys";
    return false;
  }
  if (interpolation > 2) {
    *problem = "has an unknown interpolation";
    return false;
  }
  const size_t perKey = componentCount * (interpolation == 2 ? 3 : 1);
  if (values.size() != n * perKey) {
    *problem = "has " + std::to_string(values.size()) + " output values where " + std::to_string(n * perKey) +
               " were expected";
    return false;
  }
  for (size_t i = 0; i < n; ++i) {
    if (!std::isfinite(times[i]) || (i > 0 && times[i] < times[i - 1])) {
      *problem = "has key times that are not finite and ascending";
      return false;
    }
  }
  for (float v : values)
    if (!std::isfinite(v)) {
      *problem = "has a key value that is not finite";
      return false;
    }
  if (interpolation == 0) {
    for (size_t k = 0; k < n; ++k) appendKey(channel, times[k], values.data() + k * componentCount, componentCount);
  } else if (interpolation == 1) {
    convertStep(uint32_t(n), componentCount, times, values, channel);
  } else {
    convertCubic(uint32_t(n), componentCount, times, values, channel);
  }
  return true;
}

}  // namespace zvr::loadstore
