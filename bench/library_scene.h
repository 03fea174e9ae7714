// A glTF scene imported through the public libraries and posed as the program poses it: the
// benchmarks' way of rendering what a user renders.
#pragma once

#include <cstdint>
#include <string>

#include "engine/ZvrCore.h"

namespace zvr::bench {

struct LibraryScene {
  ZvrContext context = nullptr;
  ZvrMaterialSystem materials = nullptr;
  ZvrScene scene = nullptr;
};

// Registers Velder64, creates a CPU context of `threads` workers and imports `path` with every
// shape and camera composed into world space. False with `error`; what was made is still in `out`.
bool openLibraryScene(const std::string& path, uint32_t threads, LibraryScene& out, std::string* error);
// Deletes the imported objects and the context.
void closeLibraryScene(LibraryScene& scene);
// The context's last error text after `call` returned `status`, for messages.
std::string libraryFailure(const LibraryScene& scene, const char* call, ZvrStatus status);

}  // namespace zvr::bench
