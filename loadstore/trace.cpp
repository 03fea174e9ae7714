#include "loadstore/trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <mutex>

namespace zvr::loadstore {

namespace {
std::mutex gTraceMutex;
std::string gLastContextTracePath;  // lets context-free calls follow the run's trace file
std::map<ZvrContext, std::string> gContextTracePaths;  // asked once: the query is itself traced
}  // namespace

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
