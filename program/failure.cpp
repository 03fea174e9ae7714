#include "program/failure.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

void printReport(int64_t code, const char* text, const char* file, int line) {
  std::fprintf(stderr, "E%06lld: %s\nfile=%s (%d)\n", static_cast<long long>(code), text, file, line);
}

[[noreturn]] void stopNow() {
  std::fprintf(stderr, "Critical error : the program stops now.\n");
  std::fflush(stdout);
  std::exit(1);
}

}  // namespace

void checkStatus(int line, const char* file, ZvrStatus status, ZvrContext context, const char* message,
                 int32_t severity) {
  if (status == 0) return;

  // The results of both queries are ignored on purpose: a failing query leaves an empty text.
  size_t size = 0;
  zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, 0, nullptr, &size);
  std::vector<char> lastError(size + 512, '\0');
  zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, size, lastError.data(), nullptr);

  // The report keeps a fixed 512-byte line; a longer library text is cut rather than overrun.
  char composed[512];
  std::snprintf(composed, sizeof composed, "%s %s", message, lastError.data());

  const int64_t code = status < 0 ? -static_cast<int64_t>(status) : static_cast<int64_t>(status);
  printReport(code, composed, file, line);
  if (severity == Critical) stopNow();
}

void fatalError(int code, const char* message, int line, const char* file) {
  printReport(code, message, file, line);
  stopNow();
}
