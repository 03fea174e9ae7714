#include "kernel/contour_pass.h"

#include <tbb/blocked_range2d.h>
#include <tbb/parallel_for.h>

#include "kernel/material.h"
#include "kernel/sampling.h"

namespace zvr::kernel {
namespace {

constexpr int kMaxAlphaPasses = 64;
constexpr uint32_t kBlock = 4;
static_assert(kBlock * kBlock == kPacketSize, "a block fills one packet");

// Its own stream, apart from the path tracer's, so lines do not change the colour's samples.
constexpr uint32_t kContourSeed = 0x7c0a7e11u;

// Follows a camera ray past surfaces that are mostly transparent (masked or blended), as the
// eye sees them; false when nothing solid is hit.
bool firstSolidHit(const Scene& scene, const RenderParams& params, Ray ray, SurfaceHit& hit, float& distance) {
  distance = 0;
  for (int pass = 0; pass < kMaxAlphaPasses; ++pass) {
    if (pass > 0 && !scene.intersect(ray, hit)) return false;
    if (scene.allOpaque() || evaluateOpacity(scene, hit, params.mipLodOffset) >= 0.5f) {
      distance += hit.t;
      return true;
    }
    distance += hit.t;
    ray = spawnRay(hit.p, hit.ng, ray.direction, scene.rayEpsilon());
  }
  return false;
}

}  // namespace

std::vector<ContourSample> traceContourSamples(const Scene& scene, const Camera& camera, const RenderParams& params,
                                               const ContourStyle& style, uint32_t width, uint32_t height,
                                               uint64_t sampleIndex) {
  std::vector<ContourSample> samples(size_t(width) * height);
  const uint32_t sampleLow = uint32_t(sampleIndex), sampleHigh = uint32_t(sampleIndex >> 32);
  const uint32_t blocksX = (width + kBlock - 1) / kBlock, blocksY = (height + kBlock - 1) / kBlock;
  auto body = [&](const tbb::blocked_range2d<uint32_t>& range) {
    Ray rays[kPacketSize];
    SurfaceHit hits[kPacketSize];
    bool active[kPacketSize], found[kPacketSize];
    size_t index[kPacketSize];
    for (uint32_t by = range.rows().begin(); by < range.rows().end(); ++by)
      for (uint32_t bx = range.cols().begin(); bx < range.cols().end(); ++bx) {
        int count = 0;
        for (uint32_t y = by * kBlock; y < std::min(height, (by + 1) * kBlock); ++y)
          for (uint32_t x = bx * kBlock; x < std::min(width, (bx + 1) * kBlock); ++x, ++count) {
            Sampler sampler(hashCombine(hashCombine(hashCombine(kContourSeed, x), y), sampleHigh), sampleLow);
            auto u = sampler.get2D();
            const float jx = (2 * u.first - 1) * style.jitterRadius, jy = (2 * u.second - 1) * style.jitterRadius;
            index[count] = size_t(y) * width + x;
            active[count] = camera.generateRay(float(x) + 0.5f + jx, float(y) + 0.5f + jy, rays[count]);
            found[count] = false;
          }
        for (int k = count; k < kPacketSize; ++k) active[k] = found[k] = false;
        scene.intersect16(rays, active, hits, found, true);
        for (int k = 0; k < count; ++k) {
          if (!active[k] || !found[k]) continue;
          SurfaceHit& hit = hits[k];
          float distance = 0;
          if (!firstSolidHit(scene, params, rays[k], hit, distance)) continue;
          hit.footprint = camera.pixelWidth() + camera.pixelSpread() * distance;
          ShadedPoint sp;
          evaluateMaterial(scene, hit, params.mipLodOffset, sp);
          ContourSample& s = samples[index[k]];
          s.hit = true;
          s.objectId = scene.shapes()[hit.shape].objectId;
          s.materialId = sp.data ? sp.data->materialId : 0;
          s.normal = sp.shading.n;
          s.uv[0] = hit.uv[style.uvSet][0];
          s.uv[1] = hit.uv[style.uvSet][1];
          s.depth = distance;
        }
      }
  };
  tbb::parallel_for(tbb::blocked_range2d<uint32_t>(0, blocksY, 0, blocksX), body);
  return samples;
}

void drawContourPass(const Scene& scene, const Camera& camera, const RenderParams& params, uint64_t sampleIndex,
                     Film& film) {
  const ContourStyle style = ContourStyle::fromParams(params);
  if (!style.anyFeature()) return;
  const uint32_t w = film.width(), h = film.height();
  const std::vector<ContourSample> samples = traceContourSamples(scene, camera, params, style, w, h, sampleIndex);
  const std::vector<ContourCoverage> lines = drawContours(samples, w, h, style);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const ContourCoverage& c = lines[size_t(y) * w + x];
      if (c.amount > 0) film.drawOverColor(x, y, c.amount, style.debug ? contourDebugColor(c.feature) : Vec3(0));
    }
}

}  // namespace zvr::kernel
