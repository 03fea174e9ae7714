// The one exception type of the readers and writers: a file, the place in it and what was wrong.
#pragma once

#include <string>

#include "core/failure.h"

namespace zvr::loadstore {

// A file that cannot be read or parsed, reported as ZVR_ERROR_IO.
class LoadError : public zvr::core::Failure {
 public:
  LoadError(const std::string& file, const std::string& problem)
      : zvr::core::Failure(ZVR_ERROR_IO, fileLabel(file) + ": " + problem) {}

  static std::string fileLabel(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
  }
};

}  // namespace zvr::loadstore
