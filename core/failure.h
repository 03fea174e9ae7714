// The one exception type of the library: a status with the text that becomes the last error.
#pragma once

#include <stdexcept>
#include <string>

#include "engine/ZvrCore.h"

namespace zvr::core {

class Failure : public std::runtime_error {
 public:
  Failure(ZvrStatus status, const std::string& text) : std::runtime_error(text), status_(status) {}
  ZvrStatus status() const { return status_; }

 private:
  ZvrStatus status_;
};

[[noreturn]] inline void fail(ZvrStatus status, const std::string& text) { throw Failure(status, text); }

}  // namespace zvr::core
