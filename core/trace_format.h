// One line of the API trace, the format both libraries write to the same file:
//   zvrContextSetParameterByKey1u(context=0x55d0c0a0, key=267, value=4) -> 0
// Handles and pointers as 0x hex (null is 0x0), keys and counts in decimal, flags as 0x hex, floats
// with %g, texts in double quotes with \" and \\ escaped (null unquoted), matrices as
// [16 numbers separated by blanks], creation properties as [310=2 338=3 414="kelbin"], then " -> " and the status.
#pragma once

#include <cstdint>
#include <string>

namespace zvr::core {

class TraceLine {
 public:
  explicit TraceLine(const char* operation);
  TraceLine& handle(const char* name, const void* value);
  TraceLine& number(const char* name, int64_t value);
  TraceLine& unsignedNumber(const char* name, uint64_t value);
  TraceLine& flags(const char* name, uint64_t value);
  TraceLine& real(const char* name, double value);
  TraceLine& text(const char* name, const char* value);
  TraceLine& matrix(const char* name, const float* values16);
  // A 0-ended key/value slot list as [key=value ...]; the value of `textKey` is a text address.
  TraceLine& properties(const char* name, const intptr_t* slots, intptr_t textKey, int maxSlots);
  // The finished line with its newline.
  std::string finish(int32_t status) const;
  // For calls that answer with an address instead of a status.
  std::string finish(const void* result) const;

 private:
  void open(const char* name);
  std::string line_;
  bool first_ = true;
};

std::string formatReal(double value);

}  // namespace zvr::core
