#include "kernel/vector_isa.h"

namespace zvr::kernel {

namespace {
VectorIsa detect() {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512dq"))
    return VectorIsa::Avx512;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return VectorIsa::Avx2;
#endif
  return VectorIsa::Baseline;
}
}  // namespace

VectorIsa bestVectorIsa() {
  static const VectorIsa best = detect();
  return best;
}

const char* vectorIsaName(VectorIsa isa) {
  switch (isa) {
    case VectorIsa::Avx512: return "AVX-512";
    case VectorIsa::Avx2: return "AVX2";
    default: return "baseline";
  }
}

}  // namespace zvr::kernel
