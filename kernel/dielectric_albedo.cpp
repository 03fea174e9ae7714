#include "kernel/dielectric_albedo.h"

#include "kernel/albedo_integrals.h"

namespace zvr::kernel {
namespace {

using albedo::kIorMax;
using albedo::kIorNodes;
using albedo::kNodes;

float lookup(int iorNode, int side, float x, float y) {
  int x0 = std::min(kNodes - 2, int(x)), y0 = std::min(kNodes - 2, int(y));
  float fx = x - float(x0), fy = y - float(y0);
  const float* row0 = &albedo::kDielectric[((iorNode * 2 + side) * kNodes + y0) * kNodes];
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
  float a = lookup(z0, side, x, y);
  if (fz <= 1e-4f || z0 + 1 >= kIorNodes) return a;
  float b = lookup(z0 + 1, side, x, y);
  return a + (b - a) * fz;
}

}  // namespace zvr::kernel
