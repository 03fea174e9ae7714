#include "kernel/contour_lines.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include "engine/ZvrCore.h"

namespace zvr::kernel {
namespace {

bool differs(int feature, const ContourSample& a, const ContourSample& b, const ContourStyle& style) {
  // A silhouette against the background is the object's outline; the other features compare
  // two surfaces.
  if (feature == kContourObject) return a.hit != b.hit || (a.hit && a.objectId != b.objectId);
  if (!a.hit || !b.hit) return false;
  switch (feature) {
    case kContourMaterial: return a.materialId != b.materialId;
    case kContourNormal: return dot(a.normal, b.normal) < style.cosCrease;
    case kContourUv: {
      float du = a.uv[0] - b.uv[0], dv = a.uv[1] - b.uv[1];
      return du * du + dv * dv > style.uvDistance * style.uvDistance;
    }
  }
  return false;
}

// Bit f of a pixel is set when it carries a line of feature f: it differs from a neighbour in f
// and is the nearer of the two (the lower index on a tie), so a line stays on the front surface.
std::vector<uint8_t> markEdges(const std::vector<ContourSample>& s, uint32_t w, uint32_t h, const ContourStyle& style) {
  std::vector<uint8_t> edges(size_t(w) * h, 0);
  tbb::parallel_for(tbb::blocked_range<uint32_t>(0, h), [&](const tbb::blocked_range<uint32_t>& rows) {
    for (uint32_t y = rows.begin(); y < rows.end(); ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const size_t i = size_t(y) * w + x;
        const int64_t neighbours[4] = {x > 0 ? int64_t(i) - 1 : -1, x + 1 < w ? int64_t(i) + 1 : -1,
                                       y > 0 ? int64_t(i) - w : -1, y + 1 < h ? int64_t(i) + w : -1};
        uint8_t bits = 0;
        for (int64_t n : neighbours) {
          if (n < 0) continue;
          const ContourSample& a = s[i];
          const ContourSample& b = s[size_t(n)];
          const bool owns = a.depth < b.depth || (a.depth == b.depth && int64_t(i) < n);
          if (!owns) continue;
          for (int f = 0; f < kContourFeatures; ++f)
            if (style.enabled[f] && differs(f, a, b, style)) bits |= uint8_t(1u << f);
        }
        edges[i] = bits;
      }
  });
  return edges;
}

// Part of a pixel a line covers, from the distance between the pixel's centre and the nearest
// pixel on the line.
float coverage(float distance, float width, bool antialiased) {
  if (antialiased) return std::clamp(width * 0.5f + 0.5f - distance, 0.0f, std::min(width, 1.0f));
  return distance < width * 0.5f ? 1.0f : 0.0f;
}

// The distance to the nearest line pixel within `reach`: first along each row, then the exact
// Euclidean minimum over the rows around (a separable search, linear in the reach).
void addFeature(int feature, const std::vector<uint8_t>& edges, uint32_t w, uint32_t h, const ContourStyle& style,
                std::vector<ContourCoverage>& out) {
  const float width = style.width[feature];
  const int reach = int(std::ceil(width * 0.5f + (style.antialiased ? 0.5f : 0.0f)));
  const int none = reach + 1;
  const uint8_t bit = uint8_t(1u << feature);
  std::vector<int> rowDistance(size_t(w) * h);
  tbb::parallel_for(tbb::blocked_range<uint32_t>(0, h), [&](const tbb::blocked_range<uint32_t>& rows) {
    for (uint32_t y = rows.begin(); y < rows.end(); ++y) {
      int* d = &rowDistance[size_t(y) * w];
      const uint8_t* e = &edges[size_t(y) * w];
      int last = -none;
      for (int x = 0; x < int(w); ++x) {
        if (e[x] & bit) last = x;
        d[x] = std::min(none, x - last);
      }
      last = int(w) + none;
      for (int x = int(w) - 1; x >= 0; --x) {
        if (e[x] & bit) last = x;
        d[x] = std::min(d[x], std::min(none, last - x));
      }
    }
  });
  tbb::parallel_for(tbb::blocked_range<uint32_t>(0, h), [&](const tbb::blocked_range<uint32_t>& rows) {
    for (uint32_t y = rows.begin(); y < rows.end(); ++y) {
      const int y0 = std::max(0, int(y) - reach), y1 = std::min(int(h) - 1, int(y) + reach);
      for (uint32_t x = 0; x < w; ++x) {
        int best = none * none * 2;
        for (int yy = y0; yy <= y1; ++yy) {
          const int dx = rowDistance[size_t(yy) * w + x];
          if (dx > reach) continue;
          const int dy = yy - int(y);
          best = std::min(best, dx * dx + dy * dy);
        }
        if (best > reach * reach) continue;
        const float c = coverage(std::sqrt(float(best)), width, style.antialiased);
        ContourCoverage& o = out[size_t(y) * w + x];
        if (c > o.amount) o = {c, feature};
      }
    }
  });
}

}  // namespace

ContourStyle ContourStyle::fromParams(const RenderParams& p) {
  ContourStyle s;
  const uint32_t on[kContourFeatures] = {p.contourObjectId, p.contourMaterialId, p.contourNormal, p.contourUv};
  const float widths[kContourFeatures] = {p.contourLineWidthObjectId, p.contourLineWidthMaterialId,
                                          p.contourLineWidthNormal, p.contourLineWidthUv};
  for (int f = 0; f < kContourFeatures; ++f) {
    // The core refuses wider lines; the clamp keeps a direct caller's value from growing the search.
    s.width[f] = std::isfinite(widths[f]) ? std::clamp(widths[f], 0.0f, float(ZVR_CONTOUR_LINEWIDTH_MAX)) : 0.0f;
    s.enabled[f] = on[f] != 0 && s.width[f] > 0;
  }
  s.cosCrease = std::cos(std::clamp(p.contourThresholdNormal, 0.0f, 180.0f) * kPi / 180);
  s.uvDistance = std::max(0.0f, p.contourThresholdUv);
  s.uvSet = p.contourUvSecondary != 0 ? 1 : 0;
  const float aa = p.contourAntialiasing;
  s.antialiased = aa >= 1;
  s.jitterRadius = aa >= 1 ? 0.5f : (aa >= 0 ? 1.0f : 0.0f);
  s.debug = p.contourDebug != 0;
  return s;
}

bool ContourStyle::anyFeature() const {
  for (bool e : enabled)
    if (e) return true;
  return false;
}

Vec3 contourDebugColor(int feature) {
  switch (feature) {
    case kContourObject: return {1, 0, 0};
    case kContourMaterial: return {0, 1, 0};
    case kContourNormal: return {0, 0, 1};
    case kContourUv: return {1, 1, 0};
  }
  return Vec3(0);
}

std::vector<ContourCoverage> drawContours(const std::vector<ContourSample>& samples, uint32_t width, uint32_t height,
                                          const ContourStyle& style) {
  std::vector<ContourCoverage> out(size_t(width) * height);
  if (samples.size() != out.size() || out.empty()) return out;
  const std::vector<uint8_t> edges = markEdges(samples, width, height, style);
  for (int f = 0; f < kContourFeatures; ++f)
    if (style.enabled[f]) addFeature(f, edges, width, height, style, out);
  return out;
}

}  // namespace zvr::kernel
