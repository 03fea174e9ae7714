#include "kernel/ray_packet.h"

#include <algorithm>
#include <cstddef>

#include "kernel/scene.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace zvr::kernel {
namespace {

constexpr int kLanes = 16;

bool packRaysScalar(const Ray* rays, const bool* active, int* valid, RTCRay16& p) {
  bool any = false;
  for (int k = 0; k < kLanes; ++k) {
    const bool traced = active[k] && isTraceable(rays[k]);
    const Ray r = traced ? rays[k] : Ray{};
    valid[k] = traced ? -1 : 0;
    any |= traced;
    p.org_x[k] = r.origin.x;
    p.org_y[k] = r.origin.y;
    p.org_z[k] = r.origin.z;
    p.dir_x[k] = r.direction.x;
    p.dir_y[k] = r.direction.y;
    p.dir_z[k] = r.direction.z;
    p.tnear[k] = r.tMin;
    p.tfar[k] = traced ? r.tMax : -1.0f;
    p.mask[k] = 0xffffffffu;
    p.flags[k] = 0;
    p.time[k] = 0;
  }
  return any;
}

#if defined(__x86_64__)
static_assert(sizeof(Ray) == 8 * sizeof(float) && offsetof(Ray, direction) == 12 && offsetof(Ray, tMin) == 24 &&
                  offsetof(Ray, tMax) == 28,
              "a ray is eight floats: origin, direction, tMin, tMax");

// Index vectors of the transposition below, each picking from two registers (0-15, 16-31).
struct TransposeIndices {
  alignas(64) int32_t rows4[2][kLanes];    // 4 rays x 8 fields -> 4 fields x 4 rays, fields 0-3 and 4-7
  alignas(64) int32_t rows8[2][kLanes];    // two of those -> 2 fields x 8 rays, local fields 0-1 and 2-3
  alignas(64) int32_t rows16[2][kLanes];   // two of those -> 1 field x 16 rays, local field 0 and 1
  TransposeIndices() {
    for (int half = 0; half < 2; ++half)
      for (int p = 0; p < kLanes; ++p) {
        int f = p / 4 + 4 * half, q = p % 4;
        rows4[half][p] = (q < 2 ? 0 : 16) + (q % 2) * 8 + f;
        int g = p / 8 + 2 * half, q8 = p % 8;
        rows8[half][p] = (q8 < 4 ? 0 : 16) + g * 4 + q8 % 4;
        rows16[half][p] = (p < 8 ? 0 : 16) + half * 8 + p % 8;
      }
  }
};
const TransposeIndices kTranspose;

[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq")]] bool packRaysAvx512(const Ray* rays, const bool* active, int* valid, RTCRay16& p) {
  const float* f = reinterpret_cast<const float*>(rays);
  const __m512i rows4Low = _mm512_load_si512(kTranspose.rows4[0]), rows4High = _mm512_load_si512(kTranspose.rows4[1]);
  const __m512i rows8Low = _mm512_load_si512(kTranspose.rows8[0]), rows8High = _mm512_load_si512(kTranspose.rows8[1]);
  const __m512i rows16Low = _mm512_load_si512(kTranspose.rows16[0]), rows16High = _mm512_load_si512(kTranspose.rows16[1]);
  // Sixteen rays of eight fields, two rays per register, turned into one field per register in
  // three rounds of two-register permutes: groups of 4 rays, then 8, then 16.
  __m512 by4[2][4];
  for (int g = 0; g < 4; ++g) {
    const __m512 a = _mm512_loadu_ps(f + 32 * g), b = _mm512_loadu_ps(f + 32 * g + 16);
    by4[0][g] = _mm512_permutex2var_ps(a, rows4Low, b);
    by4[1][g] = _mm512_permutex2var_ps(a, rows4High, b);
  }
  __m512 field[8];
  for (int half = 0; half < 2; ++half) {
    __m512 by8[2][2];
    for (int h = 0; h < 2; ++h) {
      by8[0][h] = _mm512_permutex2var_ps(by4[half][2 * h], rows8Low, by4[half][2 * h + 1]);
      by8[1][h] = _mm512_permutex2var_ps(by4[half][2 * h], rows8High, by4[half][2 * h + 1]);
    }
    for (int pair = 0; pair < 2; ++pair) {
      field[4 * half + 2 * pair] = _mm512_permutex2var_ps(by8[pair][0], rows16Low, by8[pair][1]);
      field[4 * half + 2 * pair + 1] = _mm512_permutex2var_ps(by8[pair][0], rows16High, by8[pair][1]);
    }
  }
  // isTraceable, with the sums in the same order.
  __m512 absSum[2];
  for (int v = 0; v < 2; ++v)
    absSum[v] = _mm512_add_ps(_mm512_add_ps(_mm512_abs_ps(field[3 * v]), _mm512_abs_ps(field[3 * v + 1])),
                              _mm512_abs_ps(field[3 * v + 2]));
  const __m512 bound = _mm512_set1_ps(3 * kMaxTraceableCoordinate);
  const __m128i activeBytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(active));
  __mmask16 traced = _mm_test_epi8_mask(activeBytes, activeBytes);
  traced &= _mm512_cmp_ps_mask(absSum[0], bound, _CMP_LE_OQ) & _mm512_cmp_ps_mask(absSum[1], bound, _CMP_LE_OQ);
  traced &= _mm512_cmp_ps_mask(field[6], _mm512_setzero_ps(), _CMP_GE_OQ) & _mm512_cmp_ps_mask(field[6], field[7], _CMP_LE_OQ);
  float* out[7] = {p.org_x, p.org_y, p.org_z, p.dir_x, p.dir_y, p.dir_z, p.tnear};
  for (int i = 0; i < 7; ++i) _mm512_storeu_ps(out[i], _mm512_maskz_mov_ps(traced, field[i]));
  _mm512_storeu_ps(p.tfar, _mm512_mask_mov_ps(_mm512_set1_ps(-1.0f), traced, field[7]));
  _mm512_storeu_si512(p.mask, _mm512_set1_epi32(-1));
  _mm512_storeu_si512(p.flags, _mm512_setzero_si512());
  _mm512_storeu_ps(p.time, _mm512_setzero_ps());
  _mm512_storeu_si512(valid, _mm512_maskz_set1_epi32(traced, -1));
  return traced != 0;
}
#endif

}  // namespace

bool packRays(const Ray* rays, const bool* active, int* valid, RTCRay16& packet, VectorIsa isa) {
#if defined(__x86_64__)
  if (std::min(isa, bestVectorIsa()) == VectorIsa::Avx512) return packRaysAvx512(rays, active, valid, packet);
#endif
  (void)isa;
  return packRaysScalar(rays, active, valid, packet);
}

}  // namespace zvr::kernel
