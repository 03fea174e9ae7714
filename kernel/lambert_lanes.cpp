#include "kernel/lambert_lanes.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "kernel/lights.h"
#include "kernel/sampling.h"

namespace zvr::kernel {
namespace {

inline float dot3(float ax, float ay, float az, float bx, float by, float bz) { return ax * bx + ay * by + az * bz; }
inline bool finite(float v) { return std::fabs(v) <= FLT_MAX; }

// LightSet::sample for a rectangle, by area where it does not look large: sampleRectangle with
// towardsEmitterPoint. Branch-free, as is shade() below.
[[gnu::always_inline]] inline void sampleRectangles(LambertLanes& l, float, float) {
  for (int k = 0; k < kLambertLanes; ++k) {
    const float px = l.p.x[k], py = l.p.y[k], pz = l.p.z[k];
    const Vec3 normal(l.lightNormal.x[k], l.lightNormal.y[k], l.lightNormal.z[k]);
    const Vec3 toCenter(l.center.x[k] - px, l.center.y[k] - py, l.center.z[k] - pz);
    const bool large = looksLarge(l.area[k], normal, toCenter, kSphericalRectangleEstimate);
    const float a = l.lightU1[k] * l.width[k], b = l.lightU2[k] * l.height[k];
    const float dx = l.corner.x[k] + l.edgeX.x[k] * a + l.edgeY.x[k] * b - px;
    const float dy = l.corner.y[k] + l.edgeX.y[k] * a + l.edgeY.y[k] * b - py;
    const float dz = l.corner.z[k] + l.edgeX.z[k] * a + l.edgeY.z[k] * b - pz;
    const float dist2 = dot3(dx, dy, dz, dx, dy, dz);
    const float dist = std::sqrt(dist2), inverse = 1.0f / dist;
    const float wx = dx * inverse, wy = dy * inverse, wz = dz * inverse;
    const float facing = -dot3(normal.x, normal.y, normal.z, wx, wy, wz);
    const float cosL = std::fabs(facing);
    const bool ok = (dist2 > 0) & finite(dist2) & ((l.doubleSided[k] != 0) | !(facing <= 0)) & (cosL > 1e-7f);
    const float pdf = l.pmf[k] * dist2 / (l.area[k] * cosL);
    // Loaded before choosing: a load in one arm of a choice is a branch, which no vector can take.
    const int32_t kind = l.lightKind[k];
    const float takenX = l.lightWi.x[k], takenY = l.lightWi.y[k], takenZ = l.lightWi.z[k];
    const float takenDistance = l.lightDistance[k], takenPdf = l.lightPdf[k];
    const bool rectangle = kind == kLightRectangle;
    l.lightKind[k] = !rectangle ? kind : large ? kLightByScalar : ok ? kLightTaken : kNoLight;
    l.lightWi.x[k] = rectangle ? wx : takenX;
    l.lightWi.y[k] = rectangle ? wy : takenY;
    l.lightWi.z[k] = rectangle ? wz : takenZ;
    l.lightDistance[k] = rectangle ? dist : takenDistance;
    l.lightPdf[k] = rectangle ? pdf : takenPdf;
  }
}

// One loop of fixed width, branch-free so that the compiler puts all lanes in vector registers.
// Every expression mirrors its scalar counterpart operation for operation, comparisons included
// (a test that fails on NaN is written as one), and this file is built without fused multiply-adds,
// as the scalar kernel is.
[[gnu::always_inline]] inline void shade(LambertLanes& l, float epsilon, float minSurvival) {
  for (int k = 0; k < kLambertLanes; ++k) {
    const float px = l.p.x[k], py = l.p.y[k], pz = l.p.z[k];
    const float gx = l.ng.x[k], gy = l.ng.y[k], gz = l.ng.z[k];
    const float ox = l.wo.x[k], oy = l.wo.y[k], oz = l.wo.z[k];
    // lambert_lobe::facing
    const bool flip = dot3(ox, oy, oz, l.n.x[k], l.n.y[k], l.n.z[k]) < 0;
    const float nx = flip ? -l.n.x[k] : l.n.x[k], ny = flip ? -l.n.y[k] : l.n.y[k], nz = flip ? -l.n.z[k] : l.n.z[k];
    const float tx = flip ? -l.t.x[k] : l.t.x[k], ty = flip ? -l.t.y[k] : l.t.y[k], tz = flip ? -l.t.z[k] : l.t.z[k];
    const float sx = l.s.x[k], sy = l.s.y[k], sz = l.s.z[k];
    const float woDotNg = dot3(ox, oy, oz, gx, gy, gz);
    const float cr = l.color.x[k], cg = l.color.y[k], cb = l.color.z[k];

    const float wx = l.lightWi.x[k], wy = l.lightWi.y[k], wz = l.lightWi.z[k];
    const float distance = l.lightDistance[k], lightPdf = l.lightPdf[k];
    const float lr = l.radiance.x[k], lg = l.radiance.y[k], lb = l.radiance.z[k];
    const bool usable = (l.lightKind[k] == kLightTaken) & (lightPdf > 0) & !((lr <= 0) & (lg <= 0) & (lb <= 0));

    // lambert_lobe::eval, then the MIS weight and the shadow ray.
    const float wiDotNg = dot3(wx, wy, wz, gx, gy, gz);
    const float cosI = dot3(wx, wy, wz, nx, ny, nz);
    const bool lit = !(wiDotNg * woDotNg <= 0) & !(cosI <= 0);
    const float bsdfPdf = lit ? cosI * kInvPi : 0.0f;
    const float cosScale = kInvPi * cosI;
    const float vr = lit ? cr * cosScale : 0.0f, vg = lit ? cg * cosScale : 0.0f, vb = lit ? cb * cosScale : 0.0f;
    const bool contributes = usable & !((vr <= 0) & (vg <= 0) & (vb <= 0));
    const float a2 = lightPdf * lightPdf, b2 = bsdfPdf * bsdfPdf;
    const bool delta = l.lightDelta[k] != 0;
    const float mis = delta ? 1.0f : (a2 + b2 > 0 ? a2 / (a2 + b2) : 0.0f);
    const float share = mis / lightPdf;
    l.lightHit[k] = contributes;
    // The scalar product has the shadow ray's visibility in it, 1 in an opaque scene.
    l.lightScale.x[k] = l.beta.x[k] * lr * 1.0f * share;
    l.lightScale.y[k] = l.beta.y[k] * lg * 1.0f * share;
    l.lightScale.z[k] = l.beta.z[k] * lb * 1.0f * share;
    l.lightValue.x[k] = vr;
    l.lightValue.y[k] = vg;
    l.lightValue.z[k] = vb;
    // shadowRay (camera.h): from the offset origin at the light point itself.
    const float shadowOffset = wiDotNg >= 0 ? epsilon : -epsilon;
    const float sox = px + gx * shadowOffset, soy = py + gy * shadowOffset, soz = pz + gz * shadowOffset;
    const float tox = px + wx * distance - sox, toy = py + wy * distance - soy, toz = pz + wz * distance - soz;
    const float toLength = std::sqrt(dot3(tox, toy, toz, tox, toy, toz)), toInverse = 1.0f / toLength;
    const bool finiteLight = distance < 1e29f, aimed = finiteLight & (toLength > 0);
    l.shadowOrigin.x[k] = sox;
    l.shadowOrigin.y[k] = soy;
    l.shadowOrigin.z[k] = soz;
    l.shadowDir.x[k] = aimed ? tox * toInverse : wx;
    l.shadowDir.y[k] = aimed ? toy * toInverse : wy;
    l.shadowDir.z[k] = aimed ? toz * toInverse : wz;
    l.shadowTMax[k] = !finiteLight ? distance : aimed ? std::max(0.0f, toLength - 2 * epsilon) : 0.0f;

    // lambert_lobe::sample: squareToCosineHemisphere, then the frame's toWorld.
    const float u1 = l.bsdfU1[k];
    const float r = std::sqrt(u1);
    float sinPhi, cosPhi;
    sinCos2Pi(l.bsdfU2[k], sinPhi, cosPhi);
    const float lx = r * cosPhi, ly = r * sinPhi, lz = std::sqrt(std::max(0.0f, 1 - u1));
    const float ix = sx * lx + tx * ly + nx * lz, iy = sy * lx + ty * ly + ny * lz, iz = sz * lx + tz * ly + nz * lz;
    const float weightScale = kInvPi * kPi;
    const float weightR = cr * weightScale, weightG = cg * weightScale, weightB = cb * weightScale;
    const bool scattered = !(lz <= 0) & !(dot3(ix, iy, iz, gx, gy, gz) * woDotNg <= 0) &
                           !((weightR <= 0) & (weightG <= 0) & (weightB <= 0));
    l.scattered[k] = scattered;
    l.wi.x[k] = ix;
    l.wi.y[k] = iy;
    l.wi.z[k] = iz;
    l.pdf[k] = lz * kInvPi;

    // The throughput, then the roulette on what a light found next would be weighted by.
    const float lbr = l.beta.x[k] * weightR, lbg = l.beta.y[k] * weightG, lbb = l.beta.z[k] * weightB;
    const float occlusion = l.occlusion[k];
    const bool occluded = occlusion < 1;
    const float br = occluded ? lbr * occlusion : lbr, bg = occluded ? lbg * occlusion : lbg, bb = occluded ? lbb * occlusion : lbb;
    l.alive[k] = finite(lbr) & finite(lbg) & finite(lbb) & !((lbr <= 0) & (lbg <= 0) & (lbb <= 0));
    const float q = std::max(minSurvival, 1 - std::sqrt(std::max(lbr, std::max(lbg, lbb))));
    const bool boosted = l.roulette[k] != 0;
    const float boost = 1 / (1 - q);
    l.endProbability[k] = q;
    l.nextBeta.x[k] = boosted ? br * boost : br;
    l.nextBeta.y[k] = boosted ? bg * boost : bg;
    l.nextBeta.z[k] = boosted ? bb * boost : bb;
    l.nextLightBeta.x[k] = boosted ? lbr * boost : lbr;
    l.nextLightBeta.y[k] = boosted ? lbg * boost : lbg;
    l.nextLightBeta.z[k] = boosted ? lbb * boost : lbb;
    const float rayOffset = dot3(ix, iy, iz, gx, gy, gz) >= 0 ? epsilon : -epsilon;
    l.rayOrigin.x[k] = px + gx * rayOffset;
    l.rayOrigin.y[k] = py + gy * rayOffset;
    l.rayOrigin.z[k] = pz + gz * rayOffset;
  }
}

// Each stage once per instruction set, chosen at run time; a stage takes the epsilon and the
// survival floor whether it needs them or not, so that all share one signature.
using Stage = void (*)(LambertLanes&, float, float);
template <Stage stage>
void baseline(LambertLanes& l, float epsilon, float minSurvival) {
  stage(l, epsilon, minSurvival);
}
#if defined(__x86_64__)
template <Stage stage>
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq")]] void avx512(LambertLanes& l, float epsilon, float minSurvival) {
  stage(l, epsilon, minSurvival);
}
template <Stage stage>
[[gnu::target("avx2")]] void avx2(LambertLanes& l, float epsilon, float minSurvival) {
  stage(l, epsilon, minSurvival);
}
#endif

template <Stage stage>
void run(VectorIsa isa, LambertLanes& l, float epsilon, float minSurvival) {
#if defined(__x86_64__)
  isa = std::min(isa, bestVectorIsa());
  if (isa == VectorIsa::Avx512) return avx512<stage>(l, epsilon, minSurvival);
  if (isa == VectorIsa::Avx2) return avx2<stage>(l, epsilon, minSurvival);
#endif
  baseline<stage>(l, epsilon, minSurvival);
}

}  // namespace

void sampleRectangleLanes(LambertLanes& lanes, int count, VectorIsa isa) {
  if (count > 0) run<sampleRectangles>(isa, lanes, 0, 0);
}

void shadeLambertLanes(LambertLanes& lanes, int count, float epsilon, float minSurvival, VectorIsa isa) {
  if (count > 0) run<shade>(isa, lanes, epsilon, minSurvival);
}

}  // namespace zvr::kernel
