// What a user is told when the library says its precompiled kernels are missing.
#pragma once

namespace zvrs {

// Prints the advice banner on standard output; rendering is not stopped by it.
void printShaderCompilationAdvice();

}  // namespace zvrs
