#include "kernel/sampling.h"

#include <tbb/parallel_for.h>

namespace zvr::kernel {
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
  if (sum > 0) {
    double scale = 1 / sum;
    for (auto& c : cdf_) c = float(c * scale);
  }
  size_t n = pdf_.size();
  guide_.resize(n);
  size_t bin = 0;
  // A multiply instead of a division per bin: the guide only says where a search starts.
  const float invN = n > 0 ? 1 / float(n) : 0;
  for (size_t k = 0; k < n; ++k) {
    float start = float(k) * invN;
    while (bin + 1 < n && cdf_[bin + 1] <= start) ++bin;
    guide_[k] = uint32_t(bin);
  }
}

size_t Distribution1D::sampleDiscrete(float u, float* pmfOut, float* remapped) const {
  size_t n = pdf_.size();
  // Largest i < n with cdf_[i] <= u (cdf_ never decreases), then past empty bins. The guide puts
  // the start at most a bin or two away for smooth weights; the walks keep the answer exact
  // whatever rounding did to u * n.
  if (n == 0) {
    if (pmfOut) *pmfOut = 0;
    if (remapped) *remapped = 0;
    return 0;
  }
  const float* cdf = cdf_.data();
  size_t lo = guide_[std::min(size_t(std::max(0.0f, u) * float(n)), n - 1)];
  while (lo > 0 && cdf[lo] > u) --lo;
  while (lo + 1 < n && cdf[lo + 1] <= u) ++lo;
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

AliasTable::AliasTable(const std::vector<float>& weights) : bins_(weights.size()) {
  double sum = 0;
  for (float w : weights)
    if (w > 0 && std::isfinite(w)) sum += w;
  total_ = float(sum);
  if (!(sum > 0)) return;
  size_t n = weights.size();
  // Scaled weights: bins below 1 are topped up by bins above 1 (Vose), in double so rounding
  // cannot leave a sliver of probability unassigned.
  std::vector<double> scaled(n);
  std::vector<uint32_t> small, large;
  for (size_t i = 0; i < n; ++i) {
    double w = weights[i] > 0 && std::isfinite(weights[i]) ? weights[i] : 0;
    bins_[i].pmf = float(w / sum);
    scaled[i] = w / sum * double(n);
    (scaled[i] < 1 ? small : large).push_back(uint32_t(i));
  }
  while (!small.empty() && !large.empty()) {
    uint32_t s = small.back(), l = large.back();
    small.pop_back();
    bins_[s].threshold = float(scaled[s]);
    bins_[s].alias = l;
    scaled[l] -= 1 - scaled[s];
    if (scaled[l] < 1) {
      large.pop_back();
      small.push_back(l);
    }
  }
  // What is left holds (up to rounding) exactly its own share.
  for (uint32_t i : large) bins_[i] = {1, i, bins_[i].pmf};
  for (uint32_t i : small) {
    if (bins_[i].pmf > 0) {
      bins_[i] = {1, i, bins_[i].pmf};
    } else {
      // A zero-weight bin left by rounding must still point at a real entry.
      size_t target = 0;
      while (target < n && !(bins_[target].pmf > 0)) ++target;
      bins_[i] = {0, uint32_t(target), 0};
    }
  }
}

Distribution2D::Distribution2D(const std::vector<float>& weights, uint32_t width, uint32_t height)
    : width_(width), height_(height) {
  std::vector<float> marginal(height);
  rows_.resize(height);
  // Rows are independent; a large environment image builds them on all cores.
  tbb::parallel_for(uint32_t(0), height, [&](uint32_t y) {
    rows_[y] = Distribution1D(std::vector<float>(weights.begin() + size_t(y) * width, weights.begin() + size_t(y + 1) * width));
    marginal[y] = rows_[y].total();
  });
  marginal_ = Distribution1D(std::move(marginal));
}

Distribution2D::Distribution2D(std::vector<Distribution1D> rows, uint32_t width)
    : rows_(std::move(rows)), width_(width), height_(uint32_t(rows_.size())) {
  std::vector<float> marginal(height_);
  for (uint32_t y = 0; y < height_; ++y) marginal[y] = rows_[y].total();
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
