// The program's one way of failing: an "E%06d" report on standard error, and for a critical
// failure the process ends with exit code 1 where it stands.
#pragma once

#include <cstdint>

#include "engine/ZvrCore.h"

namespace zvrs {

enum ErrorSeverity : int32_t { Warning = 0, Critical = 1 };

// Reports a non-zero library status with the context's last-error text behind `message`.
void checkStatus(int line, const char* file, ZvrStatus status, ZvrContext context, const char* message,
                 int32_t severity);
// Reports a failure that has no library status; always ends the process.
[[noreturn]] void fatalError(int code, const char* message, int line, const char* file);

// The same reports for modules that hand the decision to stop back to the driver: they print and
// return, and the driver then calls stopProgram. reportFailure answers whether it reported.
bool reportFailure(int line, const char* file, ZvrStatus status, ZvrContext context, const char* message);
void reportError(int code, const char* message, int line, const char* file);
// Ends the run after a reported critical failure, with the closing line and exit code 1.
[[noreturn]] void stopProgram();

// Call-site forms, so that the report names the failing statement's file and line.
#define CHECK_STATUS(status, context, message, severity) \
  ::zvrs::checkStatus(__LINE__, __FILE__, (status), (context), (message), (severity))
#define FATAL_ERROR(code, message) ::zvrs::fatalError((code), (message), __LINE__, __FILE__)
#define REPORT_FAILURE(status, context, message) ::zvrs::reportFailure(__LINE__, __FILE__, (status), (context), (message))
#define REPORT_ERROR(code, message) ::zvrs::reportError((code), (message), __LINE__, __FILE__)
// Reports a failed call and returns its status from the enclosing function.
#define RETURN_ON_FAILURE(call, context, message)                             \
  do {                                                                       \
    const ZvrStatus failedStatus = (call);                                   \
    if (REPORT_FAILURE(failedStatus, (context), (message))) return failedStatus; \
  } while (0)

}  // namespace zvrs
