// Deterministic per-pixel sample streams and the warps and discrete distributions built on them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kernel/vector_isa.h"
#include "kernel/vector_math.h"

namespace zvr::kernel {

inline uint32_t hashCombine(uint32_t seed, uint32_t v) {
  // A 32-bit integer mix (lowbias32 by Chris Wellons) folded with the seed.
  uint32_t x = seed ^ (v + 0x9e3779b9u + (seed << 6) + (seed >> 2));
  x ^= x >> 16;
  x *= 0x7feb352du;
  x ^= x >> 15;
  x *= 0x846ca68bu;
  x ^= x >> 16;
  return x;
}

inline uint32_t reverseBits(uint32_t x) {
  // Byte swap first, then reverse the bits inside each byte: three mask steps instead of five.
  x = __builtin_bswap32(x);
  x = ((x >> 4) & 0x0f0f0f0fu) | ((x & 0x0f0f0f0fu) << 4);
  x = ((x >> 2) & 0x33333333u) | ((x & 0x33333333u) << 2);
  return ((x >> 1) & 0x55555555u) | ((x & 0x55555555u) << 1);
}

// Both halves reversed at once: rev64((a << 32) | b) == (rev(b) << 32) | rev(a).
inline uint64_t reverseBits64(uint64_t x) {
  x = __builtin_bswap64(x);
  x = ((x >> 4) & 0x0f0f0f0f0f0f0f0full) | ((x & 0x0f0f0f0f0f0f0f0full) << 4);
  x = ((x >> 2) & 0x3333333333333333ull) | ((x & 0x3333333333333333ull) << 2);
  return ((x >> 1) & 0x5555555555555555ull) | ((x & 0x5555555555555555ull) << 1);
}

namespace sampling_detail {

inline uint32_t laineKarrasPermutation(uint32_t x, uint32_t seed) {
  x += seed;
  x ^= x * 0x6c50b47cu;
  x ^= x * 0xb82f1e52u;
  x ^= x * 0xc7afe638u;
  x ^= x * 0x8d22f6e6u;
  return x;
}

// The Pascal-matrix Sobol dimension of `index`, bit-reversed (as the scrambles work on reversed
// bits). By Lucas's theorem bit p of the result is the XOR of the index bits at every position
// whose binary digits include p's: a superset sum, five shift steps and no table.
inline uint32_t reversedSobol1(uint32_t index) {
  index ^= (index >> 1) & 0x55555555u;
  index ^= (index >> 2) & 0x33333333u;
  index ^= (index >> 4) & 0x0f0f0f0fu;
  index ^= (index >> 8) & 0x00ff00ffu;
  return index ^ (index >> 16);
}

inline float toUnit(uint32_t x) { return std::min(float(x) * 0x1p-32f, 0x1.fffffep-1f); }

// Every bounce of a depth-8 path keeps its stratification (indirect light is most of the noise in
// interiors); only dimensions past these use a plain hash of pixel, sample and dimension.
constexpr uint32_t kScrambledDimensions = 64;

// The pixels of a 4x4 block share one sequence: the pixel of rank r takes its sample s from index
// 16 s + (r ^ L(s)). Each sample round of the block is then one aligned run of 16 points, so the
// block's samples together are as stratified as 16 times as many in one pixel, and its error
// averages out (blue noise). L is a GF(2)-linear map of s, found by search, under which every
// pixel's own samples stay a (0,2)-sequence in each dimension pair of the padded Sobol sequence.
// Its columns repeat every 12 bits of s, so one table of L over 12 bits serves all 28.
constexpr uint32_t kBlockRankBits = 4;
constexpr uint32_t kBlockSampleBits = 32 - kBlockRankBits;
// The table holds L reversed, indexed by the reversed fold, as the sampler keeps s reversed.
struct RankOffsetTable {
  uint8_t of[4096];
  RankOffsetTable() {
    constexpr uint8_t kColumns[12] = {3, 1, 12, 4, 2, 3, 8, 12, 1, 2, 4, 8};
    for (uint32_t v = 0; v < 4096; ++v) {
      uint8_t l = 0;
      for (int bit = 0; bit < 12; ++bit)
        if (v & (1u << (11 - bit))) l ^= kColumns[bit];
      of[v] = uint8_t(reverseBits(l) >> 28);
    }
  }
};
inline const RankOffsetTable kRankOffset;

// Where L(s), reversed, sits in the table, from rev28(s) in the low 28 bits of `reversed`.
inline uint32_t rankOffsetSlot(uint32_t reversed) { return ((reversed >> 16) ^ (reversed >> 4) ^ (reversed << 8)) & 0xfff; }

// Only the first six draws are shared by the block: the camera sample, the first vertex's light and
// BSDF samples, and the draw after them (the next vertex's light choice); the dimensions after
// draw per pixel. That is where the gain is: sharing every dimension lowered the block error of the
// Cornell box and the helmet no further, while a product of values from two shared pairs (light
// that bounced twice) gains nothing over independent pixels.
constexpr uint32_t kBlockSharedDimensions = 6;

// The seed of dimension `d`: the block's for the shared dimensions, the pixel's after them.
inline uint32_t dimensionSeed(uint32_t blockSeed, uint32_t pixelSeed, uint32_t d) {
  return hashCombine(d < kBlockSharedDimensions ? blockSeed : pixelSeed, d);
}

// Each dimension pair deals the block's ranks out by its own permutation, consecutive ones from
// these so that no two shared pairs of a block draw the same. With the ranks as they stand, the
// pairs' strata would be tied by one XOR for all pixels of a round, and a product over two pairs
// would see the same value in every pixel.
struct RankPermutations {
  uint8_t of[256][16];
  RankPermutations() {
    for (uint32_t p = 0; p < 256; ++p) {
      for (uint8_t r = 0; r < 16; ++r) of[p][r] = r;
      for (uint32_t i = 15; i > 0; --i) std::swap(of[p][i], of[p][hashCombine(0x3c6ef372u + p, i) % (i + 1)]);
    }
  }
};
inline const RankPermutations kRankPermutations;

// The two rank tables as the scalar sampler reads them; the packet draw keeps wider copies, which
// vector gathers can load.
struct ByteRankTables {
  uint32_t permuted(uint32_t permutation, uint32_t rank) const { return kRankPermutations.of[permutation & 255][rank]; }
  uint32_t offset(uint32_t slot) const { return kRankOffset.of[slot]; }
};

// The block sequence index, bit-reversed, of a pixel's sample in the pair seeded by `dimSeed`.
// The index shuffle is a nested scramble of the sample number (LK on its reversed bits), which
// maps every aligned run of samples onto an aligned run, so each pixel and each block keep their
// stratification.
template <class RankTables>
[[gnu::always_inline]] inline uint32_t reversedBlockIndex(const RankTables& tables, uint32_t dimSeed, uint32_t reversedSample,
                                                          uint32_t permutation, uint32_t rank) {
  uint32_t reversed = laineKarrasPermutation(reversedSample, dimSeed) & ((1u << kBlockSampleBits) - 1);
  return reversed | (tables.permuted(permutation, rank) ^ tables.offset(rankOffsetSlot(reversed))) << kBlockSampleBits;
}

// Dimension pair `d` of one sample, as 32-bit fractions: the core of Sampler::get2D, shared with
// the packet draw so the two agree bit for bit. The value scramble is rev(LK(rev(x))), and the
// first Sobol dimension is rev(index): the scramble of that dimension reverses twice, which cancels.
template <class RankTables>
[[gnu::always_inline]] inline uint64_t scrambledPair(const RankTables& tables, uint32_t dimSeed, uint32_t reversedSample,
                                                     uint32_t permutation, uint32_t rank) {
  const uint32_t index = reverseBits(reversedBlockIndex(tables, dimSeed, reversedSample, permutation, rank));
  uint32_t scrambledX = laineKarrasPermutation(index, hashCombine(dimSeed, 0x68bc21ebu));
  uint32_t scrambledY = laineKarrasPermutation(reversedSobol1(index), hashCombine(dimSeed, 0x02e5be93u));
  return reverseBits64(uint64_t(scrambledY) << 32 | scrambledX);
}

}  // namespace sampling_detail

// Owen-scrambled Sobol in padded 2D pairs (Burley 2020): every pair of dimensions gets its own
// shuffle of the sample index and its own scramble, all seeded by the pixel block (or the pixel,
// past the shared dimensions), so a pixel's samples depend only on (block, rank in the block,
// sample index) and never on thread scheduling.
class Sampler {
 public:
  // `blockRank` (0 to 15) tells apart the pixels that share `blockSeed`.
  Sampler(uint32_t blockSeed, uint32_t sampleIndex, uint32_t blockRank = 0);
  float get1D();
  struct Pair {
    float first, second;
  };
  Pair get2D();
  // Passes over dimensions whose values would not be read, so the ones after keep their place
  // (and their stratification) whatever the material or light count was.
  void skip(uint32_t dimensions = 1) { dimension_ += dimensions; }
  // An independent stream for the same pixel and sample, so optional work (an AO ray bound only
  // when its AOV is) does not shift the dimensions the main path uses.
  Sampler fork(uint32_t stream) const { return Sampler(hashCombine(seed_, 0xa511e9b3u + stream), index_, rank_); }

  // How far ahead drawAhead() reaches from a sampler's current dimension.
  static constexpr uint32_t kAheadDimensions = 5;
  // Draws, for `count` samplers at once on the vector unit, the pairs at their current dimension
  // plus each offset whose bit is set in `offsets`; each sampler then answers those dimensions from
  // what was drawn, bit for bit what it would compute itself. Any earlier draw ahead is dropped.
  static void drawAhead(Sampler* const* samplers, int count, uint32_t offsets, VectorIsa isa = bestVectorIsa());

 private:
  uint32_t seedOf(uint32_t d) const { return sampling_detail::dimensionSeed(seed_, pixelSeed_, d); }
  // The pair drawn ahead for dimension `d`, if there is one.
  const uint64_t* drawnAhead(uint32_t d) const {
    uint32_t slot = d - aheadFrom_;
    return slot < kAheadDimensions && (aheadMask_ >> slot & 1) ? &ahead_[slot] : nullptr;
  }
  uint32_t seed_, index_, rank_, reversedSample_, firstPermutation_;
  uint32_t pixelSeed_, pixelHash_;  // the seed of the unshared dimensions, and of the hashed ones
  uint32_t dimension_ = 0;
  uint32_t aheadFrom_ = 0, aheadMask_ = 0;
  uint64_t ahead_[kAheadDimensions];  // as scrambledPair() returns them
};

inline Sampler::Sampler(uint32_t blockSeed, uint32_t sampleIndex, uint32_t blockRank)
    : seed_(blockSeed), index_(sampleIndex), rank_(blockRank & 15u) {
  using namespace sampling_detail;
  // Past 2^28 samples a block starts a fresh sequence.
  if (sampleIndex >> kBlockSampleBits) seed_ = hashCombine(seed_, sampleIndex >> kBlockSampleBits);
  reversedSample_ = reverseBits(sampleIndex << kBlockRankBits);
  pixelSeed_ = hashCombine(seed_, 0x1b873593u + rank_);
  firstPermutation_ = hashCombine(seed_, 0x85ebca6bu);
  pixelHash_ = hashCombine(pixelSeed_, index_);
}

// Inline: a path draws a dozen values per bounce, and the calls cost as much as the hashing.
// The first value of a pair is the pair's first dimension alone, so one drawn-ahead pair serves
// either call.
[[gnu::always_inline]] inline float Sampler::get1D() {
  using namespace sampling_detail;
  const uint32_t d = dimension_++;
  if (d >= kScrambledDimensions) return toUnit(hashCombine(pixelHash_, d));
  if (const uint64_t* drawn = drawnAhead(d)) return toUnit(uint32_t(*drawn >> 32));
  const uint32_t dimSeed = seedOf(d);
  uint32_t index = reverseBits(reversedBlockIndex(ByteRankTables{}, dimSeed, reversedSample_, firstPermutation_ + d, rank_));
  return toUnit(reverseBits(laineKarrasPermutation(index, hashCombine(dimSeed, 0x68bc21ebu))));
}

[[gnu::always_inline]] inline Sampler::Pair Sampler::get2D() {
  using namespace sampling_detail;
  const uint32_t d = dimension_++;
  if (d >= kScrambledDimensions) {
    uint32_t h = hashCombine(pixelHash_, d);
    return {toUnit(h), toUnit(hashCombine(h, 0x2c1b3c6du))};
  }
  const uint64_t* drawn = drawnAhead(d);
  uint64_t xy = drawn ? *drawn : scrambledPair(ByteRankTables{}, seedOf(d), reversedSample_, firstPermutation_ + d, rank_);
  return {toUnit(uint32_t(xy >> 32)), toUnit(uint32_t(xy))};
}

inline Vec3 squareToCosineHemisphere(float u1, float u2) {
  float r = std::sqrt(u1), sinPhi, cosPhi;
  sinCos2Pi(u2, sinPhi, cosPhi);
  return {r * cosPhi, r * sinPhi, std::sqrt(std::max(0.0f, 1 - u1))};
}
inline Vec3 squareToUniformSphere(float u1, float u2) {
  float z = 1 - 2 * u1, r = std::sqrt(std::max(0.0f, 1 - z * z)), sinPhi, cosPhi;
  sinCos2Pi(u2, sinPhi, cosPhi);
  return {r * cosPhi, r * sinPhi, z};
}
inline Vec3 squareToUniformCone(float u1, float u2, float cosMax) {
  float z = 1 - u1 * (1 - cosMax), r = std::sqrt(std::max(0.0f, 1 - z * z)), sinPhi, cosPhi;
  sinCos2Pi(u2, sinPhi, cosPhi);
  return {r * cosPhi, r * sinPhi, z};
}
// Uniform point on a triangle as barycentrics (b1, b2).
inline void squareToTriangle(float u1, float u2, float& b1, float& b2) {
  float su = std::sqrt(u1);
  b1 = 1 - su;
  b2 = u2 * su;
}
inline float powerHeuristic(float a, float b) {
  float a2 = a * a, b2 = b * b;
  return a2 + b2 > 0 ? a2 / (a2 + b2) : 0;
}

// Piecewise-constant 1D distribution over n bins on [0, 1).
class Distribution1D {
 public:
  Distribution1D() = default;
  explicit Distribution1D(std::vector<float> weights);
  size_t size() const { return pdf_.size(); }
  float total() const { return total_; }
  // Picks a bin; `remapped` is u rescaled into the bin, for reuse.
  size_t sampleDiscrete(float u, float* pmf, float* remapped = nullptr) const;
  float pmf(size_t i) const { return total_ > 0 ? pdf_[i] / (total_) : 0; }
  // Continuous sample on [0,1) with its density.
  float sampleContinuous(float u, float* pdf, size_t* bin) const;
  float density(size_t i) const { return total_ > 0 ? pdf_[i] * float(pdf_.size()) / total_ : 0; }

 private:
  std::vector<float> pdf_, cdf_;
  // guide_[k]: the last bin starting at or below k / size(), so a search starts next to its answer.
  std::vector<uint32_t> guide_;
  float total_ = 0;
};

// Discrete distribution sampled in constant time (Walker's alias method, Vose's construction): one
// table read per pick however many entries there are. Unlike Distribution1D the map from u to an
// entry is not monotonic, so it suits choices (which light) rather than stratified continuous warps.
class AliasTable {
 public:
  AliasTable() = default;
  // Non-finite and negative weights count as zero.
  explicit AliasTable(const std::vector<float>& weights);
  size_t size() const { return bins_.size(); }
  float total() const { return total_; }
  float pmf(size_t i) const { return bins_[i].pmf; }
  // Picks an entry with probability pmf(entry); never one of weight zero while total() > 0.
  size_t sample(float u, float* pmfOut) const {
    float scaled = u * float(bins_.size());
    size_t i = std::min(size_t(scaled), bins_.size() - 1);
    const Bin& b = bins_[i];
    size_t pick = scaled - float(i) < b.threshold ? i : b.alias;
    *pmfOut = bins_[pick].pmf;
    return pick;
  }

 private:
  struct Bin {
    float threshold = 0;  // keep the bin itself below this fraction of its width, else take alias
    uint32_t alias = 0;
    float pmf = 0;
  };
  std::vector<Bin> bins_;
  float total_ = 0;
};

// Piecewise-constant 2D distribution on [0,1)^2: rows (v) marginal, then columns (u).
class Distribution2D {
 public:
  Distribution2D() = default;
  Distribution2D(const std::vector<float>& weights, uint32_t width, uint32_t height);
  // Rows built by the caller, each of `width` bins.
  Distribution2D(std::vector<Distribution1D> rows, uint32_t width);
  bool empty() const { return rows_.empty(); }
  void sample(float u1, float u2, float& u, float& v, float& pdf) const;
  float density(float u, float v) const;

 private:
  std::vector<Distribution1D> rows_;
  Distribution1D marginal_;
  uint32_t width_ = 0, height_ = 0;
};

}  // namespace zvr::kernel
