// Each BSDF configuration: sampling follows its pdf (chi-square), sample weights agree with
// eval/pdf, no configuration reflects more energy than it receives, and the glossy vector stage
// gives Bsdf's numbers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "kernel/bounce_lanes.h"
#include "kernel/bsdf.h"
#include "kernel/microfacet.h"
#include "kernel/microfacet_albedo.h"
#include "kernel/sampling.h"
#include "tests/kernel/test_support.h"

namespace zvr::kernel {
namespace {

MaterialSample makeMaterial(float metallic, float roughness, float transmission = 0, bool thin = true, float clearcoat = 0,
                            float sheen = 0, float specular = 1) {
  MaterialSample m;
  m.baseColor = Vec3(0.9f, 0.8f, 0.7f);
  m.metallic = metallic;
  m.roughness = roughness;
  m.transmission = transmission;
  m.thinWalled = thin;
  m.clearcoat = clearcoat;
  m.clearcoatRoughness = 0.3f;
  m.sheenColor = Vec3(sheen);
  m.sheenRoughness = 0.5f;
  m.specular = specular;
  return m;
}

struct BsdfCase {
  const char* name;
  MaterialSample material;
  float cosThetaO;
};

std::vector<BsdfCase> cases() {
  return {
      {"lambert", makeMaterial(0, 1, 0, true, 0, 0, 0), 0.7f},
      {"plastic_rough", makeMaterial(0, 0.5f), 0.5f},
      {"plastic_grazing", makeMaterial(0, 0.3f), 0.15f},
      {"metal_rough", makeMaterial(1, 0.4f), 0.8f},
      {"metal_glossy", makeMaterial(1, 0.15f), 0.4f},
      {"metal_roughest_grazing", makeMaterial(1, 1.0f), 0.2f},
      {"plastic_roughest", makeMaterial(0, 1.0f), 0.3f},
      {"rough_glass", makeMaterial(0, 0.3f, 1, false), 0.6f},
      {"rough_glass_inside", makeMaterial(0, 0.4f, 1, false), -0.8f},
      {"thin_rough_transmission", makeMaterial(0, 0.35f, 1, true), 0.7f},
      {"clearcoat_over_diffuse", makeMaterial(0, 0.8f, 0, true, 1), 0.6f},
      {"sheen_over_diffuse", makeMaterial(0, 0.9f, 0, true, 0, 1), 0.5f},
  };
}

Vec3 directionFromAngles(float cosTheta, float phi) {
  float s = std::sqrt(std::max(0.0f, 1 - cosTheta * cosTheta));
  return {s * std::cos(phi), s * std::sin(phi), cosTheta};
}

// The surface's BSDF seen from direction (cosO, phi) in a frame whose normal is +z.
Bsdf bsdfAt(const MaterialSample& m, float cosO, float phi) {
  const Frame up(Vec3(0, 0, 1));
  return Bsdf(m, up, up, Vec3(0, 0, 1), directionFromAngles(cosO, phi));
}

// A sample's energy: refraction into a denser medium scales radiance by 1/eta^2, undone here.
float energy(const MaterialSample& m, float cosO, const BsdfSample& s) {
  const float eta = cosO > 0 ? m.ior : 1 / m.ior;
  return maxComponent(s.weight) * (s.transmitted && !m.thinWalled ? eta * eta : 1.0f);
}

// Upper tail probability of chi-square by the Wilson-Hilferty approximation.
double chiSquareTail(double x, int dof) {
  double z = (std::cbrt(x / dof) - (1 - 2.0 / (9 * dof))) / std::sqrt(2.0 / (9 * dof));
  return 0.5 * std::erfc(z / std::sqrt(2.0));
}

class BsdfTest : public ::testing::TestWithParam<BsdfCase> {};

TEST_P(BsdfTest, SamplingMatchesPdf) {
  const BsdfCase& c = GetParam();
  Bsdf bsdf = bsdfAt(c.material, c.cosThetaO, 0.3f);
  ASSERT_TRUE(bsdf.hasNonDelta());

  constexpr int kThetaBins = 16, kPhiBins = 32, kSamples = 200000;
  std::vector<double> observed(kThetaBins * kPhiBins, 0.0), expected(kThetaBins * kPhiBins, 0.0);
  test::Uniform uni(1234);
  int valid = 0;
  for (int i = 0; i < kSamples; ++i) {
    BsdfSample s;
    if (!bsdf.sample(uni(), uni(), uni(), s)) continue;
    ASSERT_FALSE(s.delta) << c.name;
    ++valid;
    float cosT = std::min(1.0f, std::max(-1.0f, s.wi.z));
    float phi = std::atan2(s.wi.y, s.wi.x);
    if (phi < 0) phi += 2 * kPi;
    int tb = std::min(kThetaBins - 1, int((1 - cosT) / 2 * kThetaBins));
    int pb = std::min(kPhiBins - 1, int(phi / (2 * kPi) * kPhiBins));
    observed[tb * kPhiBins + pb] += 1;
    if (i < 2000) {
      // The weight must be eval / pdf at the sampled direction.
      BsdfEval e = bsdf.eval(s.wi);
      ASSERT_GT(e.pdf, 0) << c.name;
      Vec3 w = e.total() / e.pdf;
      for (int k = 0; k < 3; ++k) ASSERT_NEAR(s.weight[k], w[k], 1e-3f * std::max(1.0f, w[k])) << c.name;
      ASSERT_NEAR(s.pdf, e.pdf, 1e-3f * e.pdf) << c.name;
    }
  }
  // Expected counts: integrate the pdf over each bin (uniform in cos theta and phi).
  constexpr int kSub = 8;
  double total = 0;
  for (int tb = 0; tb < kThetaBins; ++tb)
    for (int pb = 0; pb < kPhiBins; ++pb) {
      double sum = 0;
      for (int i = 0; i < kSub; ++i)
        for (int j = 0; j < kSub; ++j) {
          float cosT = 1 - 2 * (tb + (i + 0.5f) / kSub) / kThetaBins;
          float phi = 2 * kPi * (pb + (j + 0.5f) / kSub) / kPhiBins;
          sum += bsdf.pdf(directionFromAngles(cosT, phi));
        }
      double binArea = (2.0 / kThetaBins) * (2 * kPi / kPhiBins);
      expected[tb * kPhiBins + pb] = sum / (kSub * kSub) * binArea * kSamples;
      total += expected[tb * kPhiBins + pb];
    }
  // The continuous density integrates to the fraction of successful samples.
  EXPECT_NEAR(total / kSamples, double(valid) / kSamples, 0.02) << c.name;

  // Pool bins with small expectations, then test.
  double chi2 = 0, pooledObs = 0, pooledExp = 0;
  int dof = -1;
  auto add = [&](double o, double e) {
    chi2 += (o - e) * (o - e) / e;
    ++dof;
  };
  for (size_t i = 0; i < observed.size(); ++i) {
    if (expected[i] >= 5) {
      add(observed[i], expected[i]);
    } else {
      pooledObs += observed[i];
      pooledExp += expected[i];
    }
  }
  if (pooledExp >= 5) add(pooledObs, pooledExp);
  ASSERT_GT(dof, 0);
  EXPECT_GT(chiSquareTail(chi2, dof), 1e-4) << c.name << ": chi2 " << chi2 << " with " << dof << " degrees of freedom";
}

TEST_P(BsdfTest, AlbedoDoesNotExceedOne) {
  const BsdfCase& c = GetParam();
  MaterialSample white = c.material;
  white.baseColor = Vec3(1);
  test::Uniform uni(99);
  for (float cosO : {0.95f, 0.5f, 0.1f}) {
    if (c.cosThetaO < 0) cosO = -cosO;
    Bsdf bsdf = bsdfAt(white, cosO, 1.0f);
    constexpr int n = 100000;
    double sum = 0, sumSq = 0;
    for (int i = 0; i < n; ++i) {
      BsdfSample s;
      const double v = bsdf.sample(uni(), uni(), uni(), s) ? energy(white, cosO, s) : 0;
      sum += v;
      sumSq += v * v;
    }
    double mean = sum / n, sd = std::sqrt(std::max(0.0, sumSq / n - mean * mean) / n);
    EXPECT_LE(mean, 1.0 + 4 * sd + 1e-3) << c.name << " at cos " << cosO;
    EXPECT_GT(mean, 0.3) << c.name << " at cos " << cosO << " loses implausibly much energy";
  }
}

INSTANTIATE_TEST_SUITE_P(Materials, BsdfTest, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<BsdfCase>& info) { return std::string(info.param.name); });

// With multiple scattering restored, a white rough metal reflects all light from every direction.
TEST(MultipleScattering, WhiteRoughMetalReflectsEverything) {
  for (float roughness : {0.5f, 1.0f})
    for (float cosO : {0.9f, 0.3f, 0.08f}) {
      SCOPED_TRACE(::testing::Message() << "roughness " << roughness << " cos " << cosO);
      MaterialSample m = makeMaterial(1, roughness);
      m.baseColor = Vec3(1);
      Bsdf bsdf = bsdfAt(m, cosO, 0.4f);
      test::Uniform uni(17);
      constexpr int n = 200000;
      double sum = 0;
      for (int i = 0; i < n; ++i) {
        BsdfSample s;
        if (bsdf.sample(uni(), uni(), uni(), s)) {
          ASSERT_EQ(s.category, kLobeReflect);
          sum += s.weight.x;
        }
      }
      EXPECT_NEAR(sum / n, 1.0, cosO < 0.1f ? 0.015 : 0.01);
    }
}

// The albedo tables against an independent estimate: D G / (4 cos_o cos_i) integrated over a fine
// grid of cosine-weighted directions, and the average against the tabulated directional albedo.
TEST(MultipleScattering, AlbedoTablesMatchDirectQuadrature) {
  // Sharper lobes than alpha 0.2 need a finer grid than a test can afford; near zero E is one.
  for (float alpha : {1e-4f, 0.2f, 0.5f, 1.0f}) {
    for (float cosO : {0.05f, 0.3f, 0.7f, 1.0f}) {
      SCOPED_TRACE(::testing::Message() << "alpha " << alpha << " cos " << cosO);
      float expected = 1;
      if (alpha > 1e-3f) {
        Vec3 wo = directionFromAngles(cosO, 0);
        constexpr int n = 400;
        double sum = 0;
        for (int i = 0; i < n; ++i)
          for (int j = 0; j < n; ++j) {
            float u1 = (i + 0.5f) / n, u2 = (j + 0.5f) / n;
            Vec3 wi = directionFromAngles(std::sqrt(1 - u1), 2 * kPi * u2);
            Vec3 h = normalize(wo + wi);
            sum += ggxD(h, alpha) * ggxG(wo, wi, alpha) / (4 * wo.z * wi.z) * kPi;
          }
        expected = float(sum / (n * n));
      }
      EXPECT_NEAR(ggxDirectionalAlbedo(cosO, alpha), expected, 0.01f);
    }
    double average = 0;
    constexpr int m = 1000;
    for (int k = 0; k < m; ++k) {
      float mu = (k + 0.5f) / m;
      average += 2 * ggxDirectionalAlbedo(mu, alpha) * mu / m;
    }
    EXPECT_NEAR(ggxAverageAlbedo(alpha), average, 0.005) << "alpha " << alpha;
  }
  EXPECT_LT(ggxAverageAlbedo(1.0f), ggxAverageAlbedo(0.25f));
}

// Rough glass (IOR 1.5, not absorbing), thick or thin, from outside and inside, at every roughness
// and down to grazing angles: reflection and transmission together return all the light they
// receive within 0.5%, however much bounces between microfacets on the way. Light leaving thick
// glass from inside has a heavy tail: 65536 samples left 0.4% to 0.6% of noise (over 64 seeds), so
// those cases take eight times as many. Smooth glass splits the light exactly between a mirror
// reflection and a refraction, both singular.
TEST(MultipleScattering, WhiteRoughGlassKeepsEverything) {
  for (bool thin : {false, true})
    for (int r = 0; r <= 10; ++r)
      for (float cosO : {1.0f, 0.7f, 0.4f, 0.1f, 0.05f, -1.0f, -0.6f, -0.3f, -0.1f}) {
        // A thin wall is compensated by the reflection table, whose cosine nodes are uniform: at
        // cosine 0.05 and low roughness it keeps only 99.3%.
        if (thin && cosO > 0 && cosO < 0.1f) continue;
        const float roughness = r / 10.0f;
        SCOPED_TRACE(::testing::Message() << (thin ? "thin" : "thick") << " roughness " << roughness << " cos " << cosO);
        MaterialSample m = makeMaterial(0, roughness, 1, thin);
        m.baseColor = Vec3(1);
        Bsdf bsdf = bsdfAt(m, cosO, 0.4f);
        EXPECT_EQ(bsdf.hasNonDelta(), r > 0);
        const uint32_t n = thin || cosO > 0 ? 1u << 16 : 1u << 19;
        double sum = 0;
        for (uint32_t i = 0; i < n; ++i) {
          Sampler sampler(0x9e3779b9u, i);
          const float uLobe = sampler.get1D();
          const auto u = sampler.get2D();
          BsdfSample s;
          if (!bsdf.sample(uLobe, u.first, u.second, s)) continue;
          sum += energy(m, cosO, s);
          if (r > 0) continue;
          ASSERT_TRUE(s.delta);
          if (!s.transmitted) {
            ASSERT_NEAR(s.wi.z, cosO, 1e-4f);
          }
        }
        EXPECT_NEAR(sum / n, 1.0, r == 0 ? 1e-3 : 0.005);
      }
}

// The path tracer shades plain Lambert materials with LambertBsdf: it must answer exactly as
// Bsdf does, on either side of the shading and geometric normals, and stand in for nothing else.
TEST(LambertBsdfTest, AnswersAsTheLayeredBsdfBitForBit) {
  const MaterialSample lambert = makeMaterial(0, 1, 0, true, 0, 0, 0);
  MaterialSample black = lambert, nan = lambert;
  const MaterialSample metal = makeMaterial(1, 0.5f), coated = makeMaterial(0, 1, 0, true, 0.5f, 0, 0);
  black.baseColor = Vec3(0);
  nan.baseColor = Vec3(NAN, 0.5f, 0.5f);  // Bsdf's sample refuses it; LambertBsdf's would not
  EXPECT_TRUE(LambertBsdf::handles(lambert));
  for (const MaterialSample& m : {black, nan, metal, coated, makeMaterial(0, 1)}) EXPECT_FALSE(LambertBsdf::handles(m));
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> unit(0, 1);
  auto direction = [&] { return squareToUniformSphere(unit(rng), unit(rng)); };
  for (int i = 0; i < 2000; ++i) {
    // A shading normal off the geometric one, as interpolated normals are, and wo on either side.
    const Vec3 ng = direction(), ns = normalize(ng + direction() * 0.4f), wo = direction(), wi = direction();
    const Frame shading(ns);
    const Bsdf layered(lambert, shading, shading, ng, wo);
    const LambertBsdf plain(lambert.baseColor, shading, ng, wo);
    const BsdfEval a = layered.eval(wi), b = plain.eval(wi);
    ASSERT_EQ(a.pdf, b.pdf) << i;
    for (int c = 0; c < kLobeCategories; ++c) ASSERT_EQ(std::memcmp(&a.value[c], &b.value[c], sizeof(Vec3)), 0) << i;
    const float u1 = unit(rng), u2 = unit(rng);
    BsdfSample x, y;
    ASSERT_EQ(layered.sample(0, u1, u2, x), plain.sample(0, u1, u2, y)) << i;
    ASSERT_EQ(std::memcmp(&x.wi, &y.wi, sizeof(Vec3)), 0) << i;
    ASSERT_EQ(std::memcmp(&x.weight, &y.weight, sizeof(Vec3)), 0) << i;
    ASSERT_EQ(x.pdf, y.pdf) << i;
    ASSERT_EQ(layered.hasNonDelta(), plain.hasNonDelta());
    ASSERT_EQ(layered.choosesLobe(), plain.choosesLobe());
  }
}

// What the glossy vector stage may take: only materials whose lobe weights stay finite and sum
// above zero, and that Bsdf does not treat as Lambert alone or as a mirror.
TEST(GlossyLanes, AdmitOnlyMaterialsWithFinitePositiveWeights) {
  const struct {
    const char* label;
    void (*change)(MaterialSample&);
    bool admitted;
  } cases[] = {
      {"rough plastic", [](MaterialSample&) {}, true},
      {"rough metal", [](MaterialSample& m) { m.metallic = 1; }, true},
      {"infinite base colour", [](MaterialSample& m) { m.baseColor.y = std::numeric_limits<float>::infinity(); }, false},
      {"black base colour", [](MaterialSample& m) { m.baseColor = Vec3(0); }, false},
      {"negative specular colour", [](MaterialSample& m) { m.specularColor.z = -0.5f; }, false},
      {"NaN specular colour", [](MaterialSample& m) { m.specularColor.x = std::numeric_limits<float>::quiet_NaN(); }, false},
      {"half metal without specular", [](MaterialSample& m) { m.metallic = 0.5f, m.specular = 0; }, false},
      {"mirror", [](MaterialSample& m) { m.roughness = 0; }, false},
      {"transmission", [](MaterialSample& m) { m.transmission = 0.5f; }, false},
      {"clearcoat", [](MaterialSample& m) { m.clearcoat = 0.5f; }, false},
  };
  for (const auto& c : cases) {
    MaterialSample m = makeMaterial(0, 0.5f);
    c.change(m);
    EXPECT_EQ(Bsdf::isRoughReflector(m, 0), c.admitted) << c.label;
  }
  MaterialSample smooth = makeMaterial(1, 0);
  EXPECT_TRUE(Bsdf::isRoughReflector(smooth, 0.3f)) << "caustics reduction roughens a mirror into the stage";
}

// The glossy vector stage against Bsdf itself, lane by lane, on what scenes seldom give it: a lobe
// number of one (Bsdf's scan then falls back to the last lobe with weight; head-on, a smooth metal
// has no multiple-scattering lobe), a shading normal turned away from wo, a grazing view.
TEST(GlossyLanes, EqualBsdfLaneByLane) {
  const struct Case {
    const char* label;
    float metallic, roughness;
    Vec3 normal, wo, light;
    float lobeU, u1, u2;
  } cases[] = {
      {"smooth metal head-on, lobe number one", 1, 0.05f, {0, 0, 1}, {0, 0, 1}, {0.3f, 0.1f, 1}, 1, 0.3f, 0.7f},
      {"smooth plastic head-on, lobe number one", 0, 0.05f, {0, 0, 1}, {0, 0, 1}, {-0.2f, 0.4f, 1}, 1, 0.6f, 0.2f},
      {"untinted plastic head-on, lobe number one: no reflection weight, back to diffuse", 0, 0.5f, {0, 0, 1}, {0, 0, 1},
       {0.1f, 0.1f, 1}, 1, 0.4f, 0.6f},
      {"rough half metal, lobe number one", 0.5f, 0.6f, {0, 0, 1}, {0.5f, 0, 1}, {0, 0.5f, 1}, 1, 0.1f, 0.9f},
      {"shading normal turned away from wo", 0.5f, 0.4f, {0.9f, 0, 0.3f}, {-0.8f, 0, 0.2f}, {0.2f, 0.3f, 1}, 0.4f, 0.5f, 0.5f},
      {"grazing plastic", 0, 0.3f, {0, 0, 1}, {1, 0, 0.01f}, {-1, 0.2f, 0.3f}, 0.2f, 0.8f, 0.1f},
      {"rough metal, the reflection lobe", 1, 0.7f, {0.1f, 0, 1}, {0.3f, -0.2f, 1}, {-0.4f, 0, 1}, 0.5f, 0.25f, 0.75f},
  };
  const Vec3 ng(0, 0, 1);
  BounceLanes lanes{};
  std::vector<MaterialSample> materials;
  const int count = int(std::size(cases));
  for (int k = 0; k < count; ++k) {
    const Case& c = cases[k];
    MaterialSample m = makeMaterial(c.metallic, c.roughness);
    if (std::strncmp(c.label, "untinted", 8) == 0) m.specularColor = Vec3(0);
    ASSERT_TRUE(Bsdf::isRoughReflector(m, 0)) << c.label;
    materials.push_back(m);
    const Frame frame(normalize(c.normal));
    auto put = [k](BounceLanes::Vec3Lanes& lane, Vec3 v) { lane.x[k] = v.x, lane.y[k] = v.y, lane.z[k] = v.z; };
    put(lanes.ng, ng), put(lanes.wo, normalize(c.wo)), put(lanes.s, frame.s), put(lanes.t, frame.t), put(lanes.n, frame.n);
    put(lanes.color, m.baseColor), put(lanes.beta, Vec3(1)), put(lanes.lightWi, normalize(c.light)), put(lanes.radiance, Vec3(1));
    putGlossyMaterial(m, 0, lanes, k);
    lanes.occlusion[k] = 1;
    lanes.lightKind[k] = kLightTaken;
    lanes.lightDistance[k] = 1e30f;
    lanes.lightPdf[k] = 1;
    lanes.lobeU[k] = c.lobeU, lanes.bsdfU1[k] = c.u1, lanes.bsdfU2[k] = c.u2;
  }
  auto bits = [](Vec3 v) {
    uint32_t b[3];
    std::memcpy(b, &v, sizeof b);
    return std::make_tuple(b[0], b[1], b[2]);
  };
  auto lane = [](const BounceLanes::Vec3Lanes& v, int k) { return Vec3(v.x[k], v.y[k], v.z[k]); };
  for (VectorIsa isa : {VectorIsa::Baseline, VectorIsa::Avx2, VectorIsa::Avx512}) {
    BounceLanes out = lanes;
    shadeGlossyLanes(out, count, 1e-4f, 0.05f, isa);
    for (int k = 0; k < count; ++k) {
      const Case& c = cases[k];
      SCOPED_TRACE(std::string(vectorIsaName(std::min(isa, bestVectorIsa()))) + ": " + c.label);
      const Frame frame(normalize(c.normal));
      const Bsdf bsdf(materials[k], frame, frame, ng, normalize(c.wo));
      const BsdfEval e = bsdf.eval(normalize(c.light));
      EXPECT_EQ(out.lightHit[k] != 0, !isBlack(e.total()));
      EXPECT_EQ(bits(lane(out.lightValue, k)), bits(e.value[kLobeDiffuse]));
      EXPECT_EQ(bits(lane(out.lightReflectValue, k)), bits(e.value[kLobeReflect]));
      EXPECT_EQ(out.lightScale.x[k], powerHeuristic(1, e.pdf) / 1);
      BsdfSample s;
      const bool sampled = bsdf.sample(c.lobeU, c.u1, c.u2, s);
      EXPECT_EQ(out.scattered[k] != 0, sampled);
      if (!sampled || !out.scattered[k]) continue;
      EXPECT_EQ(out.category[k], s.category);
      EXPECT_EQ(bits(lane(out.wi, k)), bits(s.wi));
      EXPECT_EQ(out.pdf[k], s.pdf);
      EXPECT_EQ(bits(lane(out.nextLightBeta, k)), bits(s.weight));
    }
  }
}

}  // namespace
}  // namespace zvr::kernel
