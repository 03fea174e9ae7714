// The vector instruction sets the wide kernels are built for, chosen once per process by what
// the processor runs, so one binary serves old and new machines.
#pragma once

namespace zvr::kernel {

// In order of width: a request above what the processor has falls back with std::min.
enum class VectorIsa { Baseline, Avx2, Avx512 };

// The widest set this processor supports; Baseline everywhere else.
VectorIsa bestVectorIsa();
const char* vectorIsaName(VectorIsa isa);

}  // namespace zvr::kernel
