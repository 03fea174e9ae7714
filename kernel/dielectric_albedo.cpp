#include "kernel/dielectric_albedo.h"

#include <array>
#include <mutex>

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include "kernel/microfacet.h"

namespace zvr::kernel {
namespace {

// Nodes in sqrt(cos(theta)), dense towards grazing angles where the albedo falls steeply, and in
// sqrt(alpha) (the roughness), as for the conductor tables.
constexpr int kNodes = 32;
// Strata per axis of the visible normals. Leaving the denser side, total internal reflection
// makes the integrand jump, and a coarse grid misses up to 1% there.
constexpr int kStrataEntering = 32, kStrataLeaving = 64;
// Indices of refraction 1, 1.125, ... 3: glTF materials rarely go beyond.
constexpr int kIorNodes = 17;
constexpr float kIorMax = 3.0f;

// Visible normals sampled from wo, each split deterministically into its Fresnel-weighted
// reflection and refraction, each weighted G2 / G1: the mean is the energy that leaves.
float integrate(float cosO, float alpha, float eta, int strata) {
  Vec3 wo(std::sqrt(std::max(0.0f, 1 - cosO * cosO)), 0, cosO);
  float g1 = ggxG1(wo, alpha);
  double sum = 0;
  for (int i = 0; i < strata; ++i) {
    // The steep tail of the distribution (where total internal reflection starts) lies in a thin
    // rim of the sampler's first coordinate: u1 = 1 - (1 - t)^2 spreads it over many strata.
    float t = (i + 0.5f) / strata, u1 = 1 - (1 - t) * (1 - t), jacobian = 2 * (1 - t);
    for (int j = 0; j < strata; ++j) {
      Vec3 h = ggxSampleVisible(wo, alpha, u1, (j + 0.5f) / strata);
      float f = fresnelDielectric(dot(wo, h), eta);
      Vec3 wr = reflect(wo, h);
      if (wr.z > 0) sum += jacobian * f * ggxG(wo, wr, alpha) / g1;
      Vec3 wt;
      if (f < 1 && refract(wo, h, eta, wt) && wt.z < 0) sum += jacobian * (1 - f) * ggxG(wo, wt, alpha) / g1;
    }
  }
  return std::min(1.0f, float(sum / (strata * strata)));
}

float nodeCosine(int node) {
  float t = float(node) / (kNodes - 1);
  return t * t;
}

struct Slice {
  // [side][roughness node][cosine node]; side 0 enters (eta = ior), side 1 leaves (eta = 1 / ior).
  std::array<float, 2 * kNodes * kNodes> albedo{};
};

class DielectricTables {
 public:
  const Slice& slice(int iorNode) {
    std::call_once(built_[iorNode], [&] { build(iorNode); });
    return slices_[iorNode];
  }

 private:
  void build(int iorNode) {
    float ior = 1 + (kIorMax - 1) * float(iorNode) / (kIorNodes - 1);
    Slice& s = slices_[iorNode];
    // Built on first use, inside a render: the rows of both sides on all cores. Isolated, so a
    // thread waiting here never picks up a render task that would ask for this same table.
    tbb::this_task_arena::isolate([&] {
      tbb::parallel_for(0, 2 * kNodes, [&](int row) {
        const int side = row / kNodes, ri = row % kNodes;
        const float roughness = float(ri) / (kNodes - 1);
        const float alpha = std::max(1e-4f, roughness * roughness);
        const float eta = side == 0 ? ior : 1 / ior;
        const int strata = side == 0 ? kStrataEntering : kStrataLeaving;
        for (int ci = 0; ci < kNodes; ++ci)
          s.albedo[row * kNodes + ci] = integrate(std::max(1e-3f, nodeCosine(ci)), alpha, eta, strata);
      });
    });
  }
  std::array<std::once_flag, kIorNodes> built_;
  std::array<Slice, kIorNodes> slices_;
};

DielectricTables& tables() {
  static DielectricTables t;
  return t;
}

float lookup(const Slice& s, int side, float x, float y) {
  int x0 = std::min(kNodes - 2, int(x)), y0 = std::min(kNodes - 2, int(y));
  float fx = x - float(x0), fy = y - float(y0);
  const float* row0 = &s.albedo[(side * kNodes + y0) * kNodes];
  const float* row1 = row0 + kNodes;
  float a = row0[x0] + (row0[x0 + 1] - row0[x0]) * fx;
  float b = row1[x0] + (row1[x0 + 1] - row1[x0]) * fx;
  return a + (b - a) * fy;
}

}  // namespace

float roughDielectricAlbedo(float cosTheta, float alpha, float eta) {
  if (!(eta > 0)) return 1;
  int side = eta >= 1 ? 0 : 1;
  float ior = std::min(kIorMax, side == 0 ? eta : 1 / eta);
  float x = std::sqrt(clamp01(cosTheta)) * (kNodes - 1);
  float y = clamp01(std::sqrt(std::max(0.0f, alpha))) * (kNodes - 1);
  float z = (ior - 1) / (kIorMax - 1) * (kIorNodes - 1);
  int z0 = std::min(kIorNodes - 1, int(z));
  float fz = z - float(z0);
  float a = lookup(tables().slice(z0), side, x, y);
  if (fz <= 1e-4f || z0 + 1 >= kIorNodes) return a;
  float b = lookup(tables().slice(z0 + 1), side, x, y);
  return a + (b - a) * fz;
}

}  // namespace zvr::kernel
