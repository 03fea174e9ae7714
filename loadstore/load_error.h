// The one exception type of the readers and writers: a file, the place in it and what was wrong.
#pragma once

#include <stdexcept>
#include <string>

namespace zvr::loadstore {

class LoadError : public std::runtime_error {
 public:
  LoadError(const std::string& file, const std::string& problem)
      : std::runtime_error(fileLabel(file) + ": " + problem) {}

  static std::string fileLabel(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
  }
};

}  // namespace zvr::loadstore
