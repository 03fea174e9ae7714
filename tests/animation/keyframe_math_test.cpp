// Keyframe search, quaternion interpolation, decomposition and the merge with a group's base,
// against matrices and values computed independently.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <tuple>

#include "animation/keyframe_math.h"
#include "animation/matrix4.h"
#include "tests/animation/reference_matrices.h"

using namespace zvrs;

namespace {

const double kPi = 3.14159265358979323846;
using Quaternion = std::array<float, 4>;

void expectMatrixNear(const Matrix4& actual, const reference::M4& expected, double tolerance, const std::string& label) {
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << label << " element " << i;
}

Matrix4 toMatrix4(const reference::M4& m) { return {float(m[0]), float(m[1]), float(m[2]), float(m[3]), float(m[4]), float(m[5]),
                                                     float(m[6]), float(m[7]), float(m[8]), float(m[9]), float(m[10]), float(m[11]),
                                                     float(m[12]), float(m[13]), float(m[14]), float(m[15])}; }

Quaternion aboutZ(double angle) { return {0, 0, float(std::sin(angle / 2)), float(std::cos(angle / 2))}; }

TEST(KeySearch, BeforeOnBetweenAndAfterKeys) {
  const std::vector<float> times = {0, 1, 2}, repeated = {0, 1, 1, 2}, single = {3};
  // Label, key times, time; the expected previous and next key and the blend factor, never NaN.
  const std::tuple<const char*, const std::vector<float>&, float, uint32_t, uint32_t, float> cases[] = {
      {"before the first key holds it", times, -1, 0, 0, 0}, {"on the first key", times, 0, 0, 1, 0},
      {"between keys", times, 0.25f, 0, 1, 0.25f},           {"on an inner key", times, 1, 1, 2, 0},
      {"between inner and last", times, 1.5f, 1, 2, 0.5f},  {"on the last key", times, 2, 2, 2, 0},
      {"after the last key holds it", times, 7, 2, 2, 0},    {"equal times passed by the strict search", repeated, 1, 2, 3, 0},
      {"before equal times", repeated, 0.5f, 0, 1, 0.5f},    {"a single key", single, 5, 0, 0, 0},
  };
  for (const auto& [label, keyTimes, time, prev, next, factor] : cases) {
    const KeyInterval keys = locateKeys(keyTimes, time);
    EXPECT_EQ(std::make_tuple(keys.prev, keys.next, keys.factor), std::make_tuple(prev, next, factor)) << label;
  }
}

TEST(Slerp, InterpolatesTheShortWayRound) {
  const Quaternion identity = {0, 0, 0, 1}, quarter = aboutZ(kPi / 2), eighth = aboutZ(kPi / 4);
  const Quaternion negated = {-quarter[0], -quarter[1], -quarter[2], -quarter[3]}, doubled = {0, 0, 2 * quarter[2], 2 * quarter[3]};
  const std::tuple<const char*, Quaternion, Quaternion, float, Quaternion> cases[] = {
      {"start", identity, quarter, 0, identity}, {"end", identity, quarter, 1, quarter},
      {"quarter way", identity, quarter, 0.25f, aboutZ(kPi / 8)}, {"negative dot takes the short way", identity, negated, 0.5f, eighth},
      {"inputs are normalised", identity, doubled, 0.5f, eighth},
      {"nearly parallel keys blend linearly", identity, aboutZ(0.01), 0.5f, aboutZ(0.005)},
  };
  for (const auto& [label, a, b, t, expected] : cases) {
    Quaternion out;
    slerp(a.data(), b.data(), t, out.data());
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(out[i], expected[i], 1e-5f) << label << " component " << i;
  }
}

TEST(Decompose, RecoversTranslationScaleAndAnglesOrRecomposesAMirror) {
  const struct {
    const char* label;
    double t[3], e[3], s[3];
  } cases[] = {
      {"plain", {1, 2, 3}, {0.3, -0.4, 0.5}, {2, 3, 4}}, {"no rotation", {-5, 0, 7}, {0, 0, 0}, {1, 1, 1}},
      {"large angles", {0, 0, 0}, {-1.2, 0.7, 2.5}, {0.5, 0.25, 2}}, {"mirrored", {1, 2, 3}, {0.2, 0.1, -0.3}, {-2, 3, 4}},
  };
  for (const auto& c : cases) {
    const reference::M4 m = reference::mul(reference::translation(c.t[0], c.t[1], c.t[2]),
                                           reference::mul(reference::euler(c.e[0], c.e[1], c.e[2]), reference::scale(c.s[0], c.s[1], c.s[2])));
    Decomposition d;
    ASSERT_TRUE(decompose(transpose(toMatrix4(m)), d)) << c.label;
    // Euler angles back to a quaternion and a matrix; a mirror negates all three scales and the
    // axes, and still recomposes to the same matrix.
    Quaternion q;
    eulerToQuaternion(d.euler, q.data());
    expectMatrixNear(composeTrs(d.translation, q.data(), d.scale), m, 1e-5, std::string(c.label) + " recomposed");
    if (c.s[0] < 0) continue;
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(d.scale[i], c.s[i], 1e-5) << c.label;
      EXPECT_NEAR(d.euler[i], c.e[i], 1e-5) << c.label;
      EXPECT_NEAR(d.skew[i] + d.perspective[i], 0.0, 1e-5) << c.label;
    }
  }
  // All-zero scale: determinant 0, yet success with the translation alone.
  const Matrix4 flat{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 6, 1};
  Decomposition d;
  ASSERT_TRUE(decompose(flat, d));
  EXPECT_EQ((std::array<float, 9>{d.translation[0], d.translation[2], d.scale[0], d.scale[1], d.scale[2], d.euler[0], d.euler[1],
                                  d.euler[2], 0}),
            (std::array<float, 9>{4, 6}));
  // A quaternion of length 2 gives the factor 1, not 0.5: the result is no rotation.
  const Matrix4 m = quaternionMatrix(Quaternion{0, 0, 2, 0}.data());
  EXPECT_EQ((std::array<float, 3>{at(m, 0, 0), at(m, 1, 1), at(m, 2, 2)}), (std::array<float, 3>{-3, -3, 1}));
  // A projective weight of 0 cannot be normalised.
  EXPECT_FALSE(decompose(Matrix4{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}, d));
}

TEST(MergeWithBase, EveryCombinationOfAnimatedPartsAndBaseShearDropped) {
  const reference::M4 baseT = reference::translation(1, -2, 3), baseR = reference::euler(0.2, -0.3, 0.4), baseS = reference::scale(2, 0.5, 3);
  const reference::M4 animT = reference::translation(-4, 5, 0.5), animR = reference::euler(-0.6, 0.25, 1.1);
  const reference::M4 animS = reference::scale(0.75, 1.5, 2.5), one = reference::identity();
  const Matrix4 base = toMatrix4(reference::mul(baseT, reference::mul(baseR, baseS)));
  for (int flags = 0; flags < 8; ++flags) {
    const bool t = flags & 1, r = flags & 2, s = flags & 4;
    // The evaluation leaves unanimated parts as the identity in the animated matrix.
    const reference::M4 animated = reference::mul(t ? animT : one, reference::mul(r ? animR : one, s ? animS : one));
    const reference::M4 expected = reference::mul(t ? animT : baseT, reference::mul(r ? animR : baseR, s ? animS : baseS));
    expectMatrixNear(mergeWithBase(toMatrix4(animated), base, t, r, s), expected, 2e-5, "T R S animated: " + std::to_string(flags));
  }
  reference::M4 shear = one;
  shear[1] = 0.5;  // x += 0.5 y; the sheared basis keeps scale 1, orthogonalised.
  const Matrix4 sheared = toMatrix4(reference::mul(reference::translation(1, 2, 3), shear));
  expectMatrixNear(mergeWithBase(toMatrix4(reference::rotationZ(0.5)), sheared, false, true, false),
                   reference::mul(reference::translation(1, 2, 3), reference::rotationZ(0.5)), 1e-5, "shear dropped");
}

}  // namespace
