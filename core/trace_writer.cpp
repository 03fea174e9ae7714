#include "core/trace_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace zvr::core {

std::string environmentTracePath() {
  const char* path = std::getenv("ZVR_TRACE");
  return path ? std::string(path) : std::string();
}

void appendTraceLine(const std::string& path, const std::string& line) {
  if (path.empty()) return;
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return;  // tracing must never change the outcome of a call
  size_t done = 0;
  while (done < line.size()) {
    ssize_t n = ::write(fd, line.data() + done, line.size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  ::close(fd);
}

}  // namespace zvr::core
