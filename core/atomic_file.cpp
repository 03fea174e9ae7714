#include "core/atomic_file.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/failure.h"

namespace zvr::core {
namespace {

std::string temporaryNameFor(const std::string& path) {
  static std::atomic<unsigned> counter{0};
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
  return folder + "." + file + ".tmp" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
}

}  // namespace

void writeAtomically(const std::string& path, const std::function<void(const std::string&)>& write) {
  const std::string temporary = temporaryNameFor(path);
  try {
    write(temporary);
  } catch (const Failure& failure) {
    ::unlink(temporary.c_str());
    throw Failure(failure.status(), failure.what());
  } catch (const std::bad_alloc&) {
    ::unlink(temporary.c_str());
    throw;
  } catch (const std::exception& exception) {
    ::unlink(temporary.c_str());
    fail(ZVR_ERROR_IO, path + ": " + exception.what());
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    fail(ZVR_ERROR_IO, path + ": cannot be written: " + std::strerror(error));
  }
}

}  // namespace zvr::core
