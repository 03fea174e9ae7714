// Sampler::drawAhead: the samplers of a packet draw their next dimensions together, one vector
// lane per sampler, on the widest instruction set the processor has.
#include <algorithm>

#include "kernel/sampling.h"

namespace zvr::kernel {
namespace {

using sampling_detail::kScrambledDimensions;
constexpr int kLanes = 16;

// The rank tables as 32-bit entries, which vector gathers load (they cannot load single bytes).
struct WordRankTables {
  uint32_t permutedRank[256 * 16];
  uint32_t rankOffset[4096];
  WordRankTables() {
    for (uint32_t p = 0; p < 256; ++p)
      for (uint32_t r = 0; r < 16; ++r) permutedRank[p * 16 + r] = sampling_detail::kRankPermutations.of[p][r];
    for (uint32_t i = 0; i < 4096; ++i) rankOffset[i] = sampling_detail::kRankOffset.of[i];
  }
  uint32_t permuted(uint32_t permutation, uint32_t rank) const { return permutedRank[(permutation & 255) * 16 + rank]; }
  uint32_t offset(uint32_t slot) const { return rankOffset[slot]; }
};
const WordRankTables kWordRankTables;

// The state of up to 16 samplers in structure-of-arrays form, and the pair each draws.
struct Lanes {
  uint32_t blockSeed[kLanes], pixelSeed[kLanes], dimension[kLanes], reversedSample[kLanes], firstPermutation[kLanes],
      rank[kLanes];
  uint64_t pair[kLanes];
};

// Compiled once per instruction set and width below; written so the compiler turns the loop into
// vector code. Half a packet takes half the work: rounds after the first often have few paths left.
template <int kCount>
[[gnu::always_inline]] inline void drawLanes(Lanes& lanes, uint32_t slot) {
  for (int k = 0; k < kCount; ++k) {
    const uint32_t d = lanes.dimension[k] + slot;
    const uint32_t dimSeed = sampling_detail::dimensionSeed(lanes.blockSeed[k], lanes.pixelSeed[k], d);
    lanes.pair[k] = sampling_detail::scrambledPair(kWordRankTables, dimSeed, lanes.reversedSample[k],
                                                   lanes.firstPermutation[k] + d, lanes.rank[k]);
  }
}

using DrawLanes = void (*)(Lanes&, uint32_t);
#if defined(__x86_64__)
template <int kCount>
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq")]] void drawLanesAvx512(Lanes& lanes, uint32_t slot) {
  drawLanes<kCount>(lanes, slot);
}
template <int kCount>
[[gnu::target("avx2,fma")]] void drawLanesAvx2(Lanes& lanes, uint32_t slot) {
  drawLanes<kCount>(lanes, slot);
}

DrawLanes chooseDraw(VectorIsa isa, int count) {
  const bool half = count <= kLanes / 2;
  if (isa == VectorIsa::Avx512) return half ? drawLanesAvx512<kLanes / 2> : drawLanesAvx512<kLanes>;
  return half ? drawLanesAvx2<kLanes / 2> : drawLanesAvx2<kLanes>;
}
#else
// Elsewhere bestVectorIsa() is Baseline, which never gets here.
DrawLanes chooseDraw(VectorIsa, int) { return nullptr; }
#endif

}  // namespace

void Sampler::drawAhead(Sampler* const* samplers, int count, uint32_t offsets, VectorIsa isa) {
  count = std::clamp(count, 0, kLanes);
  offsets &= (1u << kAheadDimensions) - 1;
  for (int k = 0; k < count; ++k) {
    samplers[k]->aheadFrom_ = samplers[k]->dimension_;
    samplers[k]->aheadMask_ = 0;
  }
  // A processor without the instruction set asked for runs the next one down. Without AVX2 each
  // value is drawn when it is read: there the vector loop was slower than the scalar one (84
  // against 75 ns per lane for four pairs), lacking a 32-bit vector multiply.
  isa = std::min(isa, bestVectorIsa());
  if (count == 0 || isa == VectorIsa::Baseline) return;
  const DrawLanes draw = chooseDraw(isa, count);
  Lanes lanes;
  // Lanes past the count are drawn too, as the loop is of fixed width: give them defined values.
  for (int k = count; k < kLanes; ++k)
    lanes.blockSeed[k] = lanes.pixelSeed[k] = lanes.dimension[k] = lanes.reversedSample[k] = lanes.firstPermutation[k] =
        lanes.rank[k] = 0;
  for (int k = 0; k < count; ++k) {
    const Sampler& s = *samplers[k];
    lanes.blockSeed[k] = s.seed_;
    lanes.pixelSeed[k] = s.pixelSeed_;
    lanes.dimension[k] = s.dimension_;
    lanes.reversedSample[k] = s.reversedSample_;
    lanes.firstPermutation[k] = s.firstPermutation_;
    lanes.rank[k] = s.rank_;
  }
  for (uint32_t slot = 0; slot < kAheadDimensions; ++slot) {
    if (!(offsets >> slot & 1)) continue;
    draw(lanes, slot);
    for (int k = 0; k < count; ++k) samplers[k]->ahead_[slot] = lanes.pair[k];
  }
  // Hashed dimensions are cheap already: those stay with the sampler (which would not look them
  // up anyway).
  for (int k = 0; k < count; ++k) {
    const uint32_t from = samplers[k]->aheadFrom_;
    const uint32_t scrambled = from >= kScrambledDimensions ? 0 : kScrambledDimensions - from;
    samplers[k]->aheadMask_ = scrambled >= kAheadDimensions ? offsets : offsets & ((1u << scrambled) - 1);
  }
}

}  // namespace zvr::kernel
