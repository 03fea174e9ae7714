#include "trace_format.h"

#include <cinttypes>
#include <cstdio>

namespace zvr::core {

TraceLine::TraceLine(const char* operation) : line_(operation) { line_ += '('; }

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

TraceLine& TraceLine::flags(const char* name, uint64_t value) {
  open(name);
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "0x%" PRIx64, value);
  line_ += buffer;
  return *this;
}

std::string formatReal(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

TraceLine& TraceLine::real(const char* name, double value) {
  open(name);
  line_ += formatReal(value);
  return *this;
}

TraceLine& TraceLine::text(const char* name, const char* value) {
  open(name);
  if (!value) {
    line_ += "null";
    return *this;
  }
  line_ += '"';
  for (const char* c = value; *c; ++c) {
    if (*c == '"' || *c == '\\') line_ += '\\';
    if (*c == '\n') {
      line_ += "\\n";
      continue;
    }
    line_ += *c;
  }
  line_ += '"';
  return *this;
}

TraceLine& TraceLine::matrix(const char* name, const float* values16) {
  open(name);
  if (!values16) {
    line_ += "null";
    return *this;
  }
  line_ += '[';
  for (int i = 0; i < 16; ++i) {
    if (i) line_ += ' ';
    line_ += formatReal(values16[i]);
  }
  line_ += ']';
  return *this;
}

std::string TraceLine::finish(int32_t status) const { return line_ + ") -> " + std::to_string(status) + "\n"; }

}  // namespace zvr::core
