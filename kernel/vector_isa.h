// The vector instruction sets the wide kernels are built for, chosen once per process by what
// the processor runs, so one binary serves old and new machines.
#pragma once

namespace zvr::kernel {

enum class VectorIsa { Baseline, Avx2, Avx512 };

// The widest set this processor supports; Baseline everywhere else.
VectorIsa bestVectorIsa();
const char* vectorIsaName(VectorIsa isa);

}  // namespace zvr::kernel
