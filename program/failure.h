// The program's one way of failing: an "E%06d" report on standard error, and for a critical
// failure the process ends with exit code 1 where it stands.
#pragma once

#include <cstdint>

#include "ZvrCore.h"

enum ErrorSeverity : int32_t { Warning = 0, Critical = 1 };

// Reports a non-zero library status with the context's last-error text behind `message`.
void checkStatus(int line, const char* file, ZvrStatus status, ZvrContext context, const char* message,
                 int32_t severity);
// Reports a failure that has no library status; always ends the process.
[[noreturn]] void fatalError(int code, const char* message, int line, const char* file);

// Call-site forms, so that the report names the failing statement's file and line.
#define CHECK_STATUS(status, context, message, severity) \
  checkStatus(__LINE__, __FILE__, (status), (context), (message), (severity))
#define FATAL_ERROR(code, message) fatalError((code), (message), __LINE__, __FILE__)
