#include "kernel/bounce_lanes.h"

#include <algorithm>
#include <cmath>

#include "kernel/bsdf.h"
#include "kernel/lane_stage.h"
#include "kernel/lights.h"
#include "kernel/sampling.h"

namespace zvr::kernel {
namespace {

using namespace lane_stage;

inline float dot3(float ax, float ay, float az, float bx, float by, float bz) { return ax * bx + ay * by + az * bz; }

// LightSet::sample for a rectangle, by area where it does not look large: sampleRectangle with
// towardsEmitterPoint. Branch-free, as are the stages.
[[gnu::always_inline]] inline void sampleRectangles(BounceLanes& l, float, float) {
  for (int k = 0; k < kBounceLanes; ++k) {
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

// Lambert's eval and sample (lambert_lobe), then what every stage does with them. One loop of
// fixed width, branch-free so that the compiler puts all lanes in vector registers.
[[gnu::always_inline]] inline void shade(BounceLanes& l, float epsilon, float minSurvival) {
  for (int k = 0; k < kBounceLanes; ++k) {
    const float gx = l.ng.x[k], gy = l.ng.y[k], gz = l.ng.z[k];
    const float ox = l.wo.x[k], oy = l.wo.y[k], oz = l.wo.z[k];
    // lambert_lobe::facing
    const bool flip = dot3(ox, oy, oz, l.n.x[k], l.n.y[k], l.n.z[k]) < 0;
    const float nx = flip ? -l.n.x[k] : l.n.x[k], ny = flip ? -l.n.y[k] : l.n.y[k], nz = flip ? -l.n.z[k] : l.n.z[k];
    const float tx = flip ? -l.t.x[k] : l.t.x[k], ty = flip ? -l.t.y[k] : l.t.y[k], tz = flip ? -l.t.z[k] : l.t.z[k];
    const float sx = l.s.x[k], sy = l.s.y[k], sz = l.s.z[k];
    const float woDotNg = dot3(ox, oy, oz, gx, gy, gz);
    const float cr = l.color.x[k], cg = l.color.y[k], cb = l.color.z[k];

    // lambert_lobe::eval towards the light.
    const float wx = l.lightWi.x[k], wy = l.lightWi.y[k], wz = l.lightWi.z[k];
    const float wiDotNg = dot3(wx, wy, wz, gx, gy, gz);
    const float cosI = dot3(wx, wy, wz, nx, ny, nz);
    const bool lit = !(wiDotNg * woDotNg <= 0) & !(cosI <= 0);
    const float cosScale = kInvPi * cosI;
    const Vec3 litValue(cr * cosScale, cg * cosScale, cb * cosScale);
    const Vec3 value = select(lit, litValue, Vec3(0));
    // Whether the value is above black, tested before the choice: a choice between truth values
    // would keep the loop from becoming vector code.
    weighLightSample(l, k, lit & !black(litValue), lit ? cosI * kInvPi : 0.0f, epsilon);
    put(l.lightValue, k, value);
    put(l.lightReflectValue, k, Vec3(0));

    // lambert_lobe::sample: squareToCosineHemisphere, then the frame's toWorld.
    const float u1 = l.bsdfU1[k];
    const float r = std::sqrt(u1);
    float sinPhi, cosPhi;
    sinCos2Pi(l.bsdfU2[k], sinPhi, cosPhi);
    const float lx = r * cosPhi, ly = r * sinPhi, lz = std::sqrt(std::max(0.0f, 1 - u1));
    const float ix = sx * lx + tx * ly + nx * lz, iy = sy * lx + ty * ly + ny * lz, iz = sz * lx + tz * ly + nz * lz;
    const float weightScale = kInvPi * kPi;
    const Vec3 weight(cr * weightScale, cg * weightScale, cb * weightScale);
    const bool scattered = !(lz <= 0) & !(dot3(ix, iy, iz, gx, gy, gz) * woDotNg <= 0) & !black(weight);
    l.category[k] = kLobeDiffuse;
    continuePath(l, k, scattered, Vec3(ix, iy, iz), lz * kInvPi, weight, epsilon, minSurvival);
  }
}

}  // namespace

void sampleRectangleLanes(BounceLanes& lanes, int count, VectorIsa isa) {
  if (count > 0) run<sampleRectangles>(isa, lanes, 0, 0);
}

void shadeLambertLanes(BounceLanes& lanes, int count, float epsilon, float minSurvival, VectorIsa isa) {
  if (count > 0) run<shade>(isa, lanes, epsilon, minSurvival);
}

}  // namespace zvr::kernel
