// The one exception type of the libraries, a status with the text that becomes the last error, and
// the one place where any exception becomes a status: both C boundaries run their bodies in it.
#pragma once

#include <exception>
#include <new>
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

struct Outcome {
  ZvrStatus status = ZVR_SUCCESS;
  std::string text;  // the last-error text of a failure
};

// Runs `body`; a Failure keeps its status and text, anything else is out of memory or internal.
template <class Body>
Outcome runCatching(Body&& body) noexcept {
  try {
    body();
    return {};
  } catch (const Failure& failure) {
    return {failure.status(), failure.what()};
  } catch (const std::bad_alloc&) {
    return {ZVR_ERROR_OUT_OF_MEMORY, "out of memory"};
  } catch (const std::exception& exception) {
    return {ZVR_ERROR_INTERNAL, std::string("internal failure: ") + exception.what()};
  } catch (...) {
    return {ZVR_ERROR_INTERNAL, "internal failure of an unknown kind"};
  }
}

}  // namespace zvr::core
