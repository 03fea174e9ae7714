#include "program/shader_advice.h"

#include <cstdio>

namespace zvrs {

void printShaderCompilationAdvice() {
  std::printf("\n\n============= ZVR_ERROR_SHADER_COMPILATION =============\n");
  std::printf("ERROR: render can't run because precompiled kernels are not found.\n");
  std::printf("Please check the readme of the ZVR SDK for more information about precompiled kernels.\n");
  std::printf("The precompiled kernels path can be set with  \"precompiled.binary\" in the config JSON file.\n");
  std::printf("Example:\n");
  std::printf("   \"precompiled.binary\":\"kelbin\",  \n");
  std::printf("Then use this path structure:\n");
  std::printf("<working directory>/kelbin/****.kelbin\n");
  std::printf("<working directory>/kelbin/****.cudabin\n");
  std::printf("<working directory>/kelbin/AllPreCompilations.json\n");
  std::printf("===========================================================\n");
  std::printf("\n\n");
  std::fflush(stdout);
}

}  // namespace zvrs
