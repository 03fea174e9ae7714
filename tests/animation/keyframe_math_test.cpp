// Keyframe search, quaternion interpolation, decomposition and the merge with a group's base,
// against matrices and values computed independently.
#include <gtest/gtest.h>

#include <cmath>

#include "animation/keyframe_math.h"
#include "animation/matrix4.h"
#include "tests/animation/reference_matrices.h"

using namespace zvrs;

namespace {

const double kPi = 3.14159265358979323846;

void expectMatrixNear(const Matrix4& actual, const reference::M4& expected, double tolerance, const char* label) {
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << label << " element " << i;
}

TEST(QuaternionMatrix, RotationAndTheLengthRule) {
  const float s = static_cast<float>(std::sin(kPi / 4));
  const float quarterZ[4] = {0, 0, s, s};
  expectMatrixNear(quaternionMatrix(quarterZ), reference::rotationZ(kPi / 2), 1e-6, "quarter turn about z");

  // Length 2 gives the factor 1, not 0.5: the result is no rotation.
  const float long_[4] = {0, 0, 2, 0};
  const Matrix4 m = quaternionMatrix(long_);
  EXPECT_FLOAT_EQ(at(m, 0, 0), -3.0f);
  EXPECT_FLOAT_EQ(at(m, 1, 1), -3.0f);
  EXPECT_FLOAT_EQ(at(m, 2, 2), 1.0f);
}

TEST(KeySearch, BeforeOnBetweenAndAfterKeys) {
  const std::vector<float> times = {0.0f, 1.0f, 2.0f};
  const std::vector<float> repeated = {0.0f, 1.0f, 1.0f, 2.0f};
  const std::vector<float> single = {3.0f};
  const struct {
    const char* label;
    const std::vector<float>* times;
    float time;
    uint32_t prev, next;
    float factor;
  } cases[] = {
      {"before the first key holds it", &times, -1.0f, 0, 0, 0.0f},
      {"on the first key", &times, 0.0f, 0, 1, 0.0f},
      {"between keys", &times, 0.25f, 0, 1, 0.25f},
      {"on an inner key", &times, 1.0f, 1, 2, 0.0f},
      {"between inner and last", &times, 1.5f, 1, 2, 0.5f},
      {"on the last key", &times, 2.0f, 2, 2, 0.0f},
      {"after the last key holds it", &times, 7.0f, 2, 2, 0.0f},
      {"equal times passed by the strict search", &repeated, 1.0f, 2, 3, 0.0f},
      {"before equal times", &repeated, 0.5f, 0, 1, 0.5f},
      {"a single key", &single, 5.0f, 0, 0, 0.0f},
  };
  for (const auto& c : cases) {
    const KeyInterval keys = locateKeys(*c.times, c.time);
    EXPECT_EQ(keys.prev, c.prev) << c.label;
    EXPECT_EQ(keys.next, c.next) << c.label;
    EXPECT_FLOAT_EQ(keys.factor, c.factor) << c.label;
    EXPECT_FALSE(std::isnan(keys.factor)) << c.label;
  }
}

void quaternionAboutZ(double angle, float q[4]) {
  q[0] = 0.0f;
  q[1] = 0.0f;
  q[2] = static_cast<float>(std::sin(angle / 2));
  q[3] = static_cast<float>(std::cos(angle / 2));
}

TEST(Slerp, InterpolatesTheShortWayRound) {
  float identity[4] = {0, 0, 0, 1};
  float quarter[4];
  quaternionAboutZ(kPi / 2, quarter);
  float negatedQuarter[4] = {-quarter[0], -quarter[1], -quarter[2], -quarter[3]};
  float unnormalisedQuarter[4] = {0, 0, 2 * quarter[2], 2 * quarter[3]};
  float tiny[4];
  quaternionAboutZ(0.01, tiny);
  float eighth[4], sixteenth[4], half_tiny[4];
  quaternionAboutZ(kPi / 4, eighth);
  quaternionAboutZ(kPi / 8, sixteenth);
  quaternionAboutZ(0.005, half_tiny);
  const struct {
    const char* label;
    const float* a;
    const float* b;
    float t;
    const float* expected;
  } cases[] = {
      {"start", identity, quarter, 0.0f, identity},
      {"end", identity, quarter, 1.0f, quarter},
      {"half way", identity, quarter, 0.5f, eighth},
      {"quarter way", identity, quarter, 0.25f, sixteenth},
      {"negative dot takes the short way", identity, negatedQuarter, 0.5f, eighth},
      {"inputs are normalised", identity, unnormalisedQuarter, 0.5f, eighth},
      {"nearly parallel keys blend linearly", identity, tiny, 0.5f, half_tiny},
  };
  for (const auto& c : cases) {
    float out[4];
    slerp(c.a, c.b, c.t, out);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(out[i], c.expected[i], 1e-5f) << c.label << " component " << i;
  }
}

TEST(EulerToQuaternion, MatchesAxisRotationsInZyxOrder) {
  const float angles[][3] = {{0.0f, 0.0f, 1.5707964f}, {0.3f, -0.4f, 0.5f}, {-1.2f, 0.7f, 2.5f}};
  for (const auto& e : angles) {
    float q[4];
    eulerToQuaternion(e, q);
    expectMatrixNear(quaternionMatrix(q), reference::euler(e[0], e[1], e[2]), 1e-5, "euler");
  }
}

Matrix4 toMatrix4(const reference::M4& m) {
  Matrix4 out;
  for (int i = 0; i < 16; ++i) out[i] = static_cast<float>(m[i]);
  return out;
}

TEST(Decompose, RecoversTranslationScaleAndAngles) {
  const struct {
    const char* label;
    double t[3], e[3], s[3];
  } cases[] = {
      {"plain", {1, 2, 3}, {0.3, -0.4, 0.5}, {2, 3, 4}},
      {"no rotation", {-5, 0, 7}, {0, 0, 0}, {1, 1, 1}},
      {"large angles", {0, 0, 0}, {-1.2, 0.7, 2.5}, {0.5, 0.25, 2}},
  };
  for (const auto& c : cases) {
    const reference::M4 m = reference::mul(reference::translation(c.t[0], c.t[1], c.t[2]),
                                           reference::mul(reference::euler(c.e[0], c.e[1], c.e[2]),
                                                          reference::scale(c.s[0], c.s[1], c.s[2])));
    Decomposition d;
    ASSERT_TRUE(decompose(transpose(toMatrix4(m)), d)) << c.label;
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(d.translation[i], c.t[i], 1e-5) << c.label;
      EXPECT_NEAR(d.scale[i], c.s[i], 1e-5) << c.label;
      EXPECT_NEAR(d.euler[i], c.e[i], 1e-5) << c.label;
      EXPECT_NEAR(d.skew[i], 0.0, 1e-5) << c.label;
      EXPECT_EQ(d.perspective[i], 0.0f) << c.label;
    }
  }
}

TEST(Decompose, MirroredAndDegenerateMatrices) {
  // A mirror negates all three scales and the axes, and still recomposes to the same matrix.
  const reference::M4 mirrored =
      reference::mul(reference::translation(1, 2, 3),
                     reference::mul(reference::euler(0.2, 0.1, -0.3), reference::scale(-2, 3, 4)));
  Decomposition d;
  ASSERT_TRUE(decompose(transpose(toMatrix4(mirrored)), d));
  EXPECT_LT(d.scale[0] * d.scale[1] * d.scale[2], 0.0f);
  float q[4];
  eulerToQuaternion(d.euler, q);
  expectMatrixNear(composeTrs(d.translation, q, d.scale), mirrored, 1e-5, "mirror recomposed");

  // All-zero scale: determinant 0, yet success with the translation alone.
  Matrix4 flat{};
  at(flat, 3, 0) = 4.0f;
  at(flat, 3, 1) = 5.0f;
  at(flat, 3, 2) = 6.0f;
  at(flat, 3, 3) = 1.0f;
  ASSERT_TRUE(decompose(flat, d));
  EXPECT_EQ(d.translation[0], 4.0f);
  EXPECT_EQ(d.translation[2], 6.0f);
  for (float s : d.scale) EXPECT_EQ(s, 0.0f);
  for (float e : d.euler) EXPECT_EQ(e, 0.0f);

  // A projective weight of 0 cannot be normalised.
  Matrix4 noWeight = identityMatrix();
  at(noWeight, 3, 3) = 0.0f;
  EXPECT_FALSE(decompose(noWeight, d));
}

TEST(MergeWithBase, EveryCombinationOfAnimatedParts) {
  const reference::M4 baseT = reference::translation(1, -2, 3);
  const reference::M4 baseR = reference::euler(0.2, -0.3, 0.4);
  const reference::M4 baseS = reference::scale(2, 0.5, 3);
  const reference::M4 animT = reference::translation(-4, 5, 0.5);
  const reference::M4 animR = reference::euler(-0.6, 0.25, 1.1);
  const reference::M4 animS = reference::scale(0.75, 1.5, 2.5);
  const Matrix4 base = toMatrix4(reference::mul(baseT, reference::mul(baseR, baseS)));
  for (int flags = 0; flags < 8; ++flags) {
    const bool t = flags & 1, r = flags & 2, s = flags & 4;
    // The evaluation leaves unanimated parts as the identity in the animated matrix.
    const reference::M4 animated = reference::mul(t ? animT : reference::identity(),
                                                  reference::mul(r ? animR : reference::identity(),
                                                                 s ? animS : reference::identity()));
    const reference::M4 expected =
        reference::mul(t ? animT : baseT, reference::mul(r ? animR : baseR, s ? animS : baseS));
    const std::string label = std::string("T") + (t ? "1" : "0") + " R" + (r ? "1" : "0") + " S" + (s ? "1" : "0");
    expectMatrixNear(mergeWithBase(toMatrix4(animated), base, t, r, s), expected, 2e-5, label.c_str());
  }
}

TEST(MergeWithBase, RecompositionDropsBaseShear) {
  reference::M4 shear = reference::identity();
  shear[1] = 0.5;  // x += 0.5 y
  const Matrix4 base = toMatrix4(reference::mul(reference::translation(1, 2, 3), shear));
  const reference::M4 rotation = reference::rotationZ(0.5);
  const Matrix4 merged = mergeWithBase(toMatrix4(rotation), base, false, true, false);
  // Base scale of the sheared basis: |(1,0,0)| = 1 and the orthogonalised y axis has length 1.
  expectMatrixNear(merged, reference::mul(reference::translation(1, 2, 3), rotation), 1e-5, "shear dropped");
}

}  // namespace
