#include "core/trace_format.h"

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

namespace {

void appendQuoted(std::string& line, const char* value) {
  line += '"';
  for (const char* c = value; *c; ++c) {
    if (*c == '"' || *c == '\\') line += '\\';
    if (*c == '\n') {
      line += "\\n";
      continue;
    }
    line += *c;
  }
  line += '"';
}

}  // namespace

TraceLine& TraceLine::text(const char* name, const char* value) {
  open(name);
  if (!value) {
    line_ += "null";
    return *this;
  }
  appendQuoted(line_, value);
  return *this;
}

TraceLine& TraceLine::properties(const char* name, const intptr_t* slots, intptr_t textKey, int maxSlots) {
  open(name);
  if (!slots) {
    line_ += "null";
    return *this;
  }
  line_ += '[';
  for (int slot = 0; slot + 1 < maxSlots && slots[slot] != 0; slot += 2) {
    if (slot) line_ += ' ';
    line_ += std::to_string(slots[slot]) + '=';
    if (slots[slot] == textKey && slots[slot + 1])
      appendQuoted(line_, reinterpret_cast<const char*>(slots[slot + 1]));
    else
      line_ += std::to_string(slots[slot + 1]);
  }
  line_ += ']';
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

std::string TraceLine::finish(const void* result) const {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(result));
  return line_ + ") -> " + buffer + "\n";
}

}  // namespace zvr::core
