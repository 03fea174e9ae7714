#include "trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

namespace zvr::loadstore {

namespace {
std::mutex gTraceMutex;
std::string gLastContextTracePath;  // lets context-free calls follow the run's trace file
std::map<ZvrContext, std::string> gContextTracePaths;  // asked once: the query is itself traced
}  // namespace

void TraceLine::open(const char* name) {
  if (!first_) line_ += ", ";
  first_ = false;
  line_ += name;
  line_ += '=';
}

TraceLine& TraceLine::handle(const char* name, const void* value) {
  open(name);
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(value));
  line_ += buffer;
  return *this;
}

TraceLine& TraceLine::number(const char* name, int64_t value) {
  open(name);
  line_ += std::to_string(value);
  return *this;
}

TraceLine& TraceLine::unsignedNumber(const char* name, uint64_t value) {
  open(name);
  line_ += std::to_string(value);
  return *this;
}

TraceLine& TraceLine::real(const char* name, double value) {
  open(name);
  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  line_ += buffer;
  return *this;
}

TraceLine& TraceLine::text(const char* name, const char* value) {
  open(name);
  if (!value) {
    line_ += "null";
    return *this;
  }
  line_ += '"';
  for (const char* p = value; *p; ++p) {
    if (*p == '"' || *p == '\\') line_ += '\\';
    line_ += *p;
  }
  line_ += '"';
  return *this;
}

std::string TraceLine::finish(int32_t status) const { return line_ + ") -> " + std::to_string(status) + "\n"; }

std::string TraceLine::finish(const void* result) const {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(result));
  return line_ + ") -> " + buffer + "\n";
}

std::string tracePath(ZvrContext context) {
  std::lock_guard<std::mutex> lock(gTraceMutex);
  if (const char* env = std::getenv("ZVR_TRACE"); env && *env) return env;
  if (context && gContextTracePaths.count(context)) return gContextTracePaths[context];
  if (context) {
    gContextTracePaths[context] = std::string();
    size_t size = 0;
    if (zvrContextGetInfo(context, ZVR_CONTEXT_API_TRACE_PATH, 0, nullptr, &size) == ZVR_SUCCESS && size > 0) {
      std::string path(size, '\0');
      if (zvrContextGetInfo(context, ZVR_CONTEXT_API_TRACE_PATH, size, path.data(), nullptr) == ZVR_SUCCESS) {
        path.resize(path.find('\0') == std::string::npos ? path.size() : path.find('\0'));
        gContextTracePaths[context] = path;
        if (!path.empty()) gLastContextTracePath = path;
        return path;
      }
    }
  }
  return gLastContextTracePath;
}

void writeTrace(ZvrContext context, const TraceLine& line, int32_t status) { writeTraceText(context, line.finish(status)); }

void writeTraceText(ZvrContext context, const std::string& text) {
  const std::string path = tracePath(context);
  if (path.empty()) return;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return;  // tracing never changes the outcome of a call
  const ssize_t written = ::write(fd, text.data(), text.size());
  (void)written;
  ::close(fd);
}

}  // namespace zvr::loadstore
