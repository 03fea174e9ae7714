// The per-pixel sample streams: fixed values (renders must not change when the sampler gets
// faster) and the stratification an Owen-scrambled Sobol sequence promises.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kernel/sampling.h"

namespace zvr::kernel {
namespace {

struct Expected {
  uint32_t index, rank;
  float first2D[2], next1D, second2D[2], hashed1D;
};

// Values of the block-shared sampler as first written, kept so that speed-ups cannot change renders.
const Expected kExpected[] = {
    {0u, 0u, {0x1.f970aap-2f, 0x1.0ba408p-2f}, 0x1.cf209ap-2f, {0x1.ba2c56p-1f, 0x1.745d44p-1f}, 0x1.1bb98ap-2f},
    {1u, 0u, {0x1.88a434p-1f, 0x1.97d836p-1f}, 0x1.94842ep-1f, {0x1.71c9f4p-2f, 0x1.c9c064p-3f}, 0x1.43181cp-1f},
    {7u, 5u, {0x1.d32eaap-3f, 0x1.31eebep-1f}, 0x1.c56718p-4f, {0x1.819cfp-1f, 0x1.540c9ap-2f}, 0x1.0aef18p-3f},
    {1000u, 15u, {0x1.78f822p-2f, 0x1.b3e6ap-1f}, 0x1.c5932p-3f, {0x1.33bd78p-1f, 0x1.31d3f4p-4f}, 0x1.878986p-2f},
};

TEST(Sampler, StreamsKeepTheirValues) {
  for (const Expected& e : kExpected) {
    SCOPED_TRACE(e.index);
    // A skipped dimension (a lobe or light choice nobody reads) leaves the later ones in place.
    for (bool skipping : {false, true}) {
      Sampler s(0x9e3779b9u, e.index, e.rank);
      auto a = s.get2D();
      if (skipping) s.skip();
      float b = skipping ? 0 : s.get1D();
      auto c = s.get2D();
      using sampling_detail::kScrambledDimensions;
      if (skipping) s.skip(kScrambledDimensions);
      for (uint32_t k = 0; k < kScrambledDimensions && !skipping; ++k) s.get1D();
      // The last value lies past the scrambled dimensions: the plain hash.
      const float actual[] = {a.first, a.second, b, c.first, c.second, s.get1D()};
      const float expected[] = {e.first2D[0], e.first2D[1], e.next1D, e.second2D[0], e.second2D[1], e.hashed1D};
      for (int k = 0; k < 6; ++k) {
        if (skipping && k == 2) continue;
        EXPECT_EQ(actual[k], expected[k]) << "value " << k << (skipping ? " skipping" : "");
      }
    }
  }
}

// Values drawn ahead for a packet on the vector unit are the ones each sampler computes alone,
// whatever the lane count, the dimensions (across the shared, scrambled and hashed ranges), the
// sample index (past 2^28 a block restarts its sequence), the order the path reads them in, and
// the draws ahead that follow on the same samplers, as each round of a packet makes one.
TEST(Sampler, DrawnAheadValuesAreTheSamplersOwn) {
  if (bestVectorIsa() == VectorIsa::Baseline) GTEST_SKIP() << "no vector unit: values are drawn as they are read";
  struct Case {
    int lanes;
    uint32_t skipped, offsets, nextOffsets, sampleIndex;
  };
  const Case cases[] = {{16, 0, 0x1f, 0x0a, 5},         {8, 1, 0x0a, 0x1f, 77},  {9, 3, 0x1b, 0x04, (3u << 28) + 1},
                        {1, 60, 0x1f, 0x1f, 9},         {16, 62, 0x11, 0x02, 1u << 20}, {5, 200, 0x1f, 0x1f, 3}};
  for (VectorIsa isa : {VectorIsa::Avx2, VectorIsa::Avx512}) {
    if (isa > bestVectorIsa()) continue;
    for (const Case& c : cases) {
      SCOPED_TRACE(::testing::Message() << vectorIsaName(isa) << ", " << c.lanes << " lanes from dimension " << c.skipped);
      std::vector<Sampler> drawn, alone;
      for (int k = 0; k < c.lanes; ++k) {
        // Lanes of two blocks, each sampler a dimension further on than the one before.
        drawn.emplace_back(0x51ed270bu + uint32_t(k / 4), c.sampleIndex, uint32_t(k * 7) % 16);
        drawn.back().skip(c.skipped + uint32_t(k % 3));
        alone.push_back(drawn.back());
      }
      std::vector<Sampler*> lanes;
      for (Sampler& s : drawn) lanes.push_back(&s);
      // The first round reads three dimensions, inside its window, so the next round's window
      // overlaps the first one's.
      for (int round = 0; round < 2; ++round) {
        Sampler::drawAhead(lanes.data(), c.lanes, round == 0 ? c.offsets : c.nextOffsets, isa);
        for (int k = 0; k < c.lanes; ++k) {
          for (int read = 0; read <= round; ++read) {
            // A pair, a single value, then a skip over one dimension.
            auto a = drawn[k].get2D(), b = alone[k].get2D();
            EXPECT_EQ(a.first, b.first) << "lane " << k;
            EXPECT_EQ(a.second, b.second) << "lane " << k;
            EXPECT_EQ(drawn[k].get1D(), alone[k].get1D()) << "lane " << k;
            drawn[k].skip();
            alone[k].skip();
          }
        }
      }
    }
  }
}

// 256 samples of one pixel, or 16 samples of each pixel of a 4x4 block: each 1D dimension puts
// one point in each 1/256 interval, and each 2D pair one point in every elementary box of area
// 1/256 (a (0,8,2)-net). The block holds for the dimensions it shares, the pixel for all.
TEST(Sampler, PixelAndBlockSamplesAreStratified) {
  constexpr uint32_t kCount = 256;
  struct Case {
    uint32_t seed, firstSample, rank;  // rank 16: the whole block
    uint32_t skipped;                  // dimensions passed over first
  };
  const Case cases[] = {{1, 0, 0, 0}, {0xdeadbeefu, 0, 7, 0}, {123456789u, 5u << 20, 15, 40}, {1, 0, 16, 0},
                        {0xdeadbeefu, 256, 16, 2}, {42, 3u << 24, 16, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "seed " << c.seed << " first " << c.firstSample << " rank " << c.rank);
    std::vector<float> x, y, z, w;
    for (uint32_t i = 0; i < kCount; ++i) {
      const bool block = c.rank == 16;
      Sampler s(c.seed, c.firstSample + (block ? i / 16 : i), block ? i % 16 : c.rank);
      s.skip(c.skipped);
      auto p = s.get2D();
      x.push_back(p.first);
      y.push_back(p.second);
      z.push_back(s.get1D());
      w.push_back(s.get2D().second);
    }
    for (const auto* dim : {&x, &y, &z, &w}) {
      std::vector<int> bins(kCount, 0);
      for (float v : *dim) ++bins[std::min<uint32_t>(kCount - 1, uint32_t(v * kCount))];
      for (int b : bins) ASSERT_EQ(b, 1);
    }
    for (uint32_t a = 0; a <= 8; ++a) {
      uint32_t nx = 1u << a, ny = kCount >> a;
      std::vector<int> cells(kCount, 0);
      for (uint32_t i = 0; i < kCount; ++i) ++cells[uint32_t(y[i] * ny) * nx + uint32_t(x[i] * nx)];
      for (int n : cells) ASSERT_EQ(n, 1) << nx << "x" << ny << " boxes";
    }
  }
}

// Alias tables pick each entry with its share of the weight, zero weights never, and report the
// pmf the pick was made with. The inverse-CDF search is monotonic in u (so stratified u stay
// stratified), never picks an empty bin, and remaps u inside [0, 1).
TEST(DiscreteSampling, PicksEntriesInProportionToWeight) {
  std::vector<float> skewed(1000, 1e-4f);
  skewed[3] = 50;
  skewed[997] = 20;
  const std::vector<std::vector<float>> cases = {
      {1}, {1, 1}, {3, 1}, {0, 2, 0, 6}, {1e-6f, 1, 1000, 0.5f}, {5, -1, NAN, INFINITY, 5},
      {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f}, {0, 0, 3, 0, 1, 0}, {1e-7f, 1, 1e-7f}, skewed, {1, 1, 1, 1},
      {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11},
  };
  constexpr int kSteps = 1 << 16;
  for (const auto& weights : cases) {
    SCOPED_TRACE(::testing::PrintToString(weights.size() < 20 ? weights : std::vector<float>{}));
    double total = 0;
    bool usable = true;  // the inverse CDF takes finite non-negative weights only
    for (float w : weights) {
      if (w > 0 && std::isfinite(w)) total += w;
      usable = usable && w >= 0 && std::isfinite(w);
    }
    auto share = [&](size_t k) { return weights[k] > 0 && std::isfinite(weights[k]) ? weights[k] / total : 0; };
    AliasTable table(weights);
    ASSERT_EQ(table.size(), weights.size());
    EXPECT_FLOAT_EQ(table.total(), float(total));
    Distribution1D cdf(usable ? weights : std::vector<float>{1});
    std::vector<int> aliasHits(weights.size(), 0), cdfHits(weights.size(), 0);
    size_t previous = 0;
    for (int i = 0; i < kSteps; ++i) {
      float u = (i + 0.5f) / kSteps, pmf = -1, remapped = -1;
      size_t pick = table.sample(u, &pmf);
      ASSERT_LT(pick, weights.size());
      ASSERT_EQ(pmf, table.pmf(pick));
      ++aliasHits[pick];
      if (!usable) continue;
      size_t bin = cdf.sampleDiscrete(u, &pmf, &remapped);
      ASSERT_LT(bin, weights.size());
      ASSERT_GT(weights[bin], 0.0f) << "u " << u;
      ASSERT_GE(bin, previous) << "u " << u;
      ASSERT_TRUE(remapped >= 0 && remapped < 1) << remapped;
      previous = bin;
      ++cdfHits[bin];
    }
    float lastPmf = 0;
    EXPECT_LT(table.sample(0x1.fffffep-1f, &lastPmf), weights.size());
    EXPECT_GT(lastPmf, 0.0f);
    for (float u : {0.0f, 0x1.fffffep-1f}) EXPECT_LT(cdf.sampleDiscrete(u, nullptr), cdf.size());
    for (size_t k = 0; k < weights.size(); ++k) {
      EXPECT_NEAR(table.pmf(k), share(k), 1e-6);
      // Stratified u: the share of picks matches the pmf to within the grid's resolution.
      EXPECT_NEAR(double(aliasHits[k]) / kSteps, share(k), 2.0 * weights.size() / kSteps) << k;
      if (share(k) == 0) {
        EXPECT_EQ(aliasHits[k], 0) << k;
      }
      if (usable) {
        EXPECT_NEAR(double(cdfHits[k]) / kSteps, share(k), 2.0 / kSteps) << k;
      }
    }
  }
  EXPECT_EQ(AliasTable(std::vector<float>{0, 0}).total(), 0.0f);
}

// The azimuth warps' sine and cosine stay within float noise of libm over the whole turn.
TEST(SinCos2Pi, MatchesLibmOverTheTurn) {
  float worst = 0;
  for (int i = 0; i <= 1 << 20; ++i) {
    const float u = float(i) / float(1 << 20);
    float s = 0, c = 0;
    sinCos2Pi(u, s, c);
    const double phi = 2 * M_PI * double(u);
    worst = std::max({worst, float(std::fabs(s - std::sin(phi))), float(std::fabs(c - std::cos(phi)))});
  }
  EXPECT_LT(worst, 5e-7f);
}

}  // namespace
}  // namespace zvr::kernel
