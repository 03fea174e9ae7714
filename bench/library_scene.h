// A glTF scene imported through the public libraries and posed as the program poses it: the
// benchmarks' way of rendering what a user renders.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "engine/ZvrCore.h"

namespace zvr::bench {

// Closes itself (imported objects, then the context) at the end of its scope.
struct LibraryScene {
  ZvrContext context = nullptr;
  ZvrMaterialSystem materials = nullptr;
  ZvrScene scene = nullptr;
  LibraryScene() = default;
  LibraryScene(const LibraryScene&) = delete;
  LibraryScene& operator=(const LibraryScene&) = delete;
  ~LibraryScene();
};

// Registers Velder64, creates a CPU context of `threads` workers and imports `path` with every
// shape and camera composed into world space. False with `error`; what was made is still in `out`.
bool openLibraryScene(const std::string& path, uint32_t threads, LibraryScene& out, std::string* error);
// The context's last error text after `call` returned `status`, for messages.
std::string libraryFailure(const LibraryScene& scene, const char* call, ZvrStatus status);
// Poses the context as the reference renders were made (depth 8, a Gaussian pixel filter of
// standard deviation 0.375 px, a third of its radius) with a `size` x `size` float colour
// framebuffer. False with `error`.
bool prepareReferenceRender(LibraryScene& scene, uint32_t size, ZvrFrameBuffer* colour, std::string* error);

// Makes the calling function print the library's explanation and return false when `call` fails.
#define ZVR_BENCH_CHECK(scene, call)                                                             \
  do {                                                                                         \
    const ZvrStatus status_ = (call);                                                          \
    if (status_ != ZVR_SUCCESS) {                                                              \
      std::fprintf(stderr, "%s\n", zvr::bench::libraryFailure(scene, #call, status_).c_str()); \
      return false;                                                                            \
    }                                                                                          \
  } while (0)

}  // namespace zvr::bench
