#include "program/failure.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace zvrs {

namespace {

void printReport(int64_t code, const char* text, const char* file, int line) {
  std::fprintf(stderr, "E%06lld: %s\nfile=%s (%d)\n", static_cast<long long>(code), text, file, line);
}

}  // namespace

void stopProgram() {
  std::fprintf(stderr, "Critical error : the program stops now.\n");
  std::fflush(stdout);
  std::exit(1);
}

void checkStatus(int line, const char* file, ZvrStatus status, ZvrContext context, const char* message,
                 int32_t severity) {
  if (reportFailure(line, file, status, context, message) && severity == Critical) stopProgram();
}

bool reportFailure(int line, const char* file, ZvrStatus status, ZvrContext context, const char* message) {
  if (status == 0) return false;

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
  return true;
}

void fatalError(int code, const char* message, int line, const char* file) {
  printReport(code, message, file, line);
  stopProgram();
}

void reportError(int code, const char* message, int line, const char* file) { printReport(code, message, file, line); }

}  // namespace zvrs
