// The per-pixel sample streams: fixed values (renders must not change when the sampler gets
// faster) and the stratification an Owen-scrambled Sobol sequence promises.
#include <gtest/gtest.h>

#include <vector>

#include "sampling.h"

namespace zvr::kernel {
namespace {

struct Expected {
  uint32_t index;
  float first2D[2], next1D, second2D[2], hashed1D;
};

// Values the sampler produced before its bit reversals were folded together.
const Expected kExpected[] = {
    {0u, {0x1.32a532p-2f, 0x1.94a012p-5f}, 0x1.54671cp-2f, {0x1.d750d2p-2f, 0x1.ef2a52p-7f}, 0x1.6b758ap-1f},
    {1u, {0x1.79746ep-1f, 0x1.a93b2cp-1f}, 0x1.41f08ap-1f, {0x1.174dfp-1f, 0x1.bf76d8p-1f}, 0x1.464ceap-1f},
    {7u, {0x1.afdc7p-2f, 0x1.fe2fecp-1f}, 0x1.8312b6p-1f, {0x1.ba2c56p-1f, 0x1.745d44p-1f}, 0x1.2e691cp-1f},
    {1000u, {0x1.2b0926p-1f, 0x1.464c8ap-2f}, 0x1.941b7p-2f, {0x1.2635bp-1f, 0x1.0fe438p-3f}, 0x1.ec4708p-2f},
};

TEST(Sampler, StreamsKeepTheirValues) {
  for (const Expected& e : kExpected) {
    SCOPED_TRACE(e.index);
    Sampler s(0x9e3779b9u, e.index);
    auto a = s.get2D();
    float b = s.get1D();
    auto c = s.get2D();
    for (int k = 0; k < 12; ++k) s.get1D();
    float d = s.get1D();  // past the scrambled dimensions: the plain hash
    EXPECT_EQ(a.first, e.first2D[0]);
    EXPECT_EQ(a.second, e.first2D[1]);
    EXPECT_EQ(b, e.next1D);
    EXPECT_EQ(c.first, e.second2D[0]);
    EXPECT_EQ(c.second, e.second2D[1]);
    EXPECT_EQ(d, e.hashed1D);
  }
}

// 256 samples of one pixel: each 1D dimension puts one point in each 1/256 interval, and each 2D
// pair one point in every elementary box of area 1/256 (a (0,8,2)-net).
TEST(Sampler, PixelSamplesAreStratified) {
  constexpr uint32_t kCount = 256;
  for (uint32_t seed : {1u, 0xdeadbeefu, 123456789u}) {
    SCOPED_TRACE(seed);
    std::vector<float> x(kCount), y(kCount), z(kCount), w(kCount);
    for (uint32_t i = 0; i < kCount; ++i) {
      Sampler s(seed, i);
      auto p = s.get2D();
      x[i] = p.first;
      y[i] = p.second;
      z[i] = s.get1D();
      auto q = s.get2D();
      w[i] = q.second;
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
      for (int c : cells) ASSERT_EQ(c, 1) << nx << "x" << ny << " boxes";
    }
  }
}

}  // namespace
}  // namespace zvr::kernel
