// API trace lines of this library, in the core's format, appended to the core's trace file.
#pragma once

#include <cstdint>
#include <string>

#include "ZvrCore.h"

namespace zvr::loadstore {

class TraceLine {
 public:
  explicit TraceLine(const char* operation) : line_(std::string(operation) + "(") {}
  TraceLine& handle(const char* name, const void* value);
  TraceLine& number(const char* name, int64_t value);
  TraceLine& unsignedNumber(const char* name, uint64_t value);
  TraceLine& real(const char* name, double value);
  TraceLine& text(const char* name, const char* value);
  std::string finish(int32_t status) const;
  std::string finish(const void* result) const;  // for calls that answer with an address

 private:
  void open(const char* name);
  std::string line_;
  bool first_ = true;
};

// The context's trace file, else ZVR_TRACE, else the last file a context named; empty when off.
std::string tracePath(ZvrContext context);
void writeTrace(ZvrContext context, const TraceLine& line, int32_t status);
void writeTraceText(ZvrContext context, const std::string& text);

}  // namespace zvr::loadstore
