#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "loadstore/animation_records.h"
#include "tests/loadstore/scene_catalog.h"
#include "loadstore/scene_file.h"

namespace zvr::loadstore {
namespace {

// Linear sampling the way the program evaluates records: hold outside, interpolate inside.
std::vector<float> sampleLinear(const AnimationChannel& ch, float t) {
  const uint32_t c = ch.componentCount();
  size_t i = 0;
  while (i < ch.times.size() && ch.times[i] <= t) ++i;
  if (i == 0 || i == ch.times.size()) {
    const size_t k = i == 0 ? 0 : ch.times.size() - 1;
    return std::vector<float>(ch.values.begin() + k * c, ch.values.begin() + (k + 1) * c);
  }
  const float f = (t - ch.times[i - 1]) / (ch.times[i] - ch.times[i - 1]);
  std::vector<float> out(c);
  for (uint32_t j = 0; j < c; ++j) out[j] = ch.values[(i - 1) * c + j] * (1 - f) + ch.values[i * c + j] * f;
  return out;
}

TEST(AnimationRecords, ConvertedKeysReproduceTheSourceCurve) {
  struct Case {
    const char* name;
    uint32_t interpolation;
    uint32_t components;
    std::vector<float> times, values;
    float at;                     // a time to sample the converted keys at
    std::vector<float> expected;  // what the source curve gives there
  };
  // Hermite curve from 0 to 1 over [0, 2] with tangents 0 and 0: 0.5 in the middle.
  // With out-tangent 1 at key 0 (per second, over dt 2): p(0.25) = h10 * 2 * 1 + h01 * 1.
  const float u = 0.25f, h10 = u * u * u - 2 * u * u + u, h01 = -2 * u * u * u + 3 * u * u;
  const Case cases[] = {
      {"linear midway", 0, 3, {0, 1}, {0, 0, 0, 2, 4, 6}, 0.5f, {1, 2, 3}},
      {"step holds the first value", 1, 3, {0, 1, 2}, {1, 1, 1, 5, 5, 5, 9, 9, 9}, 0.999f, {1, 1, 1}},
      {"step on a key", 1, 3, {0, 1, 2}, {1, 1, 1, 5, 5, 5, 9, 9, 9}, 1.f, {5, 5, 5}},
      {"step after the last key", 1, 3, {0, 1}, {1, 2, 3, 4, 5, 6}, 7.f, {4, 5, 6}},
      {"cubic on the first key", 2, 3, {0, 2}, {9, 9, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 9, 9, 9}, 0.f, {0, 0, 0}},
      {"cubic on the last key", 2, 3, {0, 2}, {9, 9, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 9, 9, 9}, 2.f, {1, 1, 1}},
      {"cubic midway", 2, 3, {0, 2}, {9, 9, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 9, 9, 9}, 1.f, {0.5f, 0.5f, 0.5f}},
      {"cubic with a tangent", 2, 3, {0, 2}, {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0}, 0.5f,
       {h10 * 2 + h01, h01, h01}},
      {"rotation normalized", 0, 4, {0}, {0, 0, 0, 2}, 0.f, {0, 0, 0, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AnimationChannel ch;
    ch.kind = c.components == 4 ? 2 : 1;
    std::string problem;
    ASSERT_TRUE(convertToLinearKeys(c.interpolation, c.components, c.times, c.values, &ch, &problem)) << problem;
    EXPECT_EQ(ch.sourceInterpolation, c.interpolation);
    ASSERT_EQ(ch.values.size(), ch.times.size() * c.components);
    for (size_t i = 1; i < ch.times.size(); ++i) EXPECT_LE(ch.times[i - 1], ch.times[i]);
    const std::vector<float> got = sampleLinear(ch, c.at);
    for (uint32_t j = 0; j < c.components; ++j) EXPECT_NEAR(got[j], c.expected[j], 1e-4f) << "component " << j;
  }
}

TEST(AnimationRecords, MalformedSamplersAreRefused) {
  struct Case {
    const char* name;
    uint32_t interpolation;
    std::vector<float> times, values;
    const char* words;
  };
  const float nan = std::nanf("");
  const Case cases[] = {
      {"no keys", 0, {}, {}, "has no keys"},
      {"too few values", 0, {0, 1}, {1, 2, 3}, "has 3 output values where 6 were expected"},
      {"cubic without tangents", 2, {0, 1}, {1, 2, 3, 4, 5, 6}, "where 18 were expected"},
      {"descending times", 0, {1, 0}, {1, 2, 3, 4, 5, 6}, "not finite and ascending"},
      {"NaN value", 0, {0}, {nan, 0, 0}, "not finite"},
      {"unknown interpolation", 5, {0}, {0, 0, 0}, "unknown interpolation"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AnimationChannel ch;
    std::string problem;
    EXPECT_FALSE(convertToLinearKeys(c.interpolation, 3, c.times, c.values, &ch, &problem));
    EXPECT_NE(problem.find(c.words), std::string::npos) << problem;
  }
}

}  // namespace
}  // namespace zvr::loadstore
