#include "sampling.h"

namespace zvr::kernel {
namespace {

uint32_t reverseBits(uint32_t x) {
  x = ((x >> 1) & 0x55555555u) | ((x & 0x55555555u) << 1);
  x = ((x >> 2) & 0x33333333u) | ((x & 0x33333333u) << 2);
  x = ((x >> 4) & 0x0f0f0f0fu) | ((x & 0x0f0f0f0fu) << 4);
  x = ((x >> 8) & 0x00ff00ffu) | ((x & 0x00ff00ffu) << 8);
  return (x >> 16) | (x << 16);
}

uint32_t laineKarrasPermutation(uint32_t x, uint32_t seed) {
  x += seed;
  x ^= x * 0x6c50b47cu;
  x ^= x * 0xb82f1e52u;
  x ^= x * 0xc7afe638u;
  x ^= x * 0x8d22f6e6u;
  return x;
}

uint32_t nestedUniformScramble(uint32_t x, uint32_t seed) {
  return reverseBits(laineKarrasPermutation(reverseBits(x), seed));
}

// The first two Sobol dimensions: van der Corput, and the Pascal-matrix dimension.
uint32_t sobol0(uint32_t index) { return reverseBits(index); }
// The generator matrix applied a byte at a time: scrambled indices use all 32 bits.
struct Sobol1Tables {
  uint32_t byByte[4][256];
  Sobol1Tables() {
    uint32_t v[32];
    v[0] = 1u << 31;
    for (int i = 1; i < 32; ++i) v[i] = v[i - 1] ^ (v[i - 1] >> 1);
    for (int b = 0; b < 4; ++b)
      for (uint32_t x = 0; x < 256; ++x) {
        uint32_t r = 0;
        for (int bit = 0; bit < 8; ++bit)
          if (x & (1u << bit)) r ^= v[8 * b + bit];
        byByte[b][x] = r;
      }
  }
};
const Sobol1Tables kSobol1;

uint32_t sobol1(uint32_t index) {
  return kSobol1.byByte[0][index & 0xff] ^ kSobol1.byByte[1][(index >> 8) & 0xff] ^
         kSobol1.byByte[2][(index >> 16) & 0xff] ^ kSobol1.byByte[3][index >> 24];
}

float toUnit(uint32_t x) { return std::min(float(x) * 0x1p-32f, 0x1.fffffep-1f); }

}  // namespace

// Beyond the first few bounces stratification no longer pays for its cost: later dimensions
// use a plain hash of pixel, sample and dimension.
constexpr uint32_t kScrambledDimensions = 12;

float Sampler::get1D() {
  if (dimension_ >= kScrambledDimensions) return toUnit(hashCombine(hashCombine(seed_, index_), dimension_++));
  uint32_t dimSeed = hashCombine(seed_, dimension_++);
  uint32_t shuffled = nestedUniformScramble(index_, dimSeed);
  return toUnit(nestedUniformScramble(sobol0(shuffled), hashCombine(dimSeed, 0x68bc21ebu)));
}

Sampler::Pair Sampler::get2D() {
  if (dimension_ >= kScrambledDimensions) {
    uint32_t h = hashCombine(hashCombine(seed_, index_), dimension_++);
    return {toUnit(h), toUnit(hashCombine(h, 0x2c1b3c6du))};
  }
  uint32_t dimSeed = hashCombine(seed_, dimension_++);
  uint32_t shuffled = nestedUniformScramble(index_, dimSeed);
  uint32_t x = nestedUniformScramble(sobol0(shuffled), hashCombine(dimSeed, 0x68bc21ebu));
  uint32_t y = nestedUniformScramble(sobol1(shuffled), hashCombine(dimSeed, 0x02e5be93u));
  return {toUnit(x), toUnit(y)};
}

Distribution1D::Distribution1D(std::vector<float> weights) : pdf_(std::move(weights)) {
  cdf_.resize(pdf_.size() + 1);
  cdf_[0] = 0;
  double sum = 0;
  for (size_t i = 0; i < pdf_.size(); ++i) {
    if (!(pdf_[i] > 0) || !std::isfinite(pdf_[i])) pdf_[i] = 0;
    sum += pdf_[i];
    cdf_[i + 1] = float(sum);
  }
  total_ = float(sum);
  if (sum > 0)
    for (auto& c : cdf_) c = float(c / sum);
}

size_t Distribution1D::sampleDiscrete(float u, float* pmfOut, float* remapped) const {
  size_t n = pdf_.size();
  size_t lo = 0, hi = n;
  // Largest i with cdf_[i] <= u, skipping empty bins.
  while (lo + 1 < hi) {
    size_t mid = (lo + hi) / 2;
    if (cdf_[mid] <= u) lo = mid;
    else hi = mid;
  }
  while (lo + 1 < n && pdf_[lo] <= 0) ++lo;
  if (pmfOut) *pmfOut = pmf(lo);
  if (remapped) {
    float w = cdf_[lo + 1] - cdf_[lo];
    *remapped = w > 0 ? std::min((u - cdf_[lo]) / w, 0x1.fffffep-1f) : 0;
  }
  return lo;
}

float Distribution1D::sampleContinuous(float u, float* pdfOut, size_t* bin) const {
  float r = 0;
  size_t i = sampleDiscrete(u, nullptr, &r);
  if (pdfOut) *pdfOut = density(i);
  if (bin) *bin = i;
  return (float(i) + std::max(0.0f, r)) / float(pdf_.size());
}

Distribution2D::Distribution2D(const std::vector<float>& weights, uint32_t width, uint32_t height)
    : width_(width), height_(height) {
  std::vector<float> marginal(height);
  rows_.reserve(height);
  for (uint32_t y = 0; y < height; ++y) {
    rows_.emplace_back(std::vector<float>(weights.begin() + size_t(y) * width, weights.begin() + size_t(y + 1) * width));
    marginal[y] = rows_.back().total();
  }
  marginal_ = Distribution1D(std::move(marginal));
}

void Distribution2D::sample(float u1, float u2, float& u, float& v, float& pdf) const {
  float pdfV = 0, pdfU = 0;
  size_t row = 0;
  v = marginal_.sampleContinuous(u2, &pdfV, &row);
  u = rows_[row].sampleContinuous(u1, &pdfU, nullptr);
  pdf = pdfV * pdfU;
}

float Distribution2D::density(float u, float v) const {
  if (rows_.empty()) return 0;
  size_t x = std::min<size_t>(size_t(std::max(0.0f, u) * width_), width_ - 1);
  size_t y = std::min<size_t>(size_t(std::max(0.0f, v) * height_), height_ - 1);
  return marginal_.density(y) * rows_[y].density(x);
}

}  // namespace zvr::kernel
