#include "program/lower_case.h"

#include <cctype>

namespace zvrs {

std::string lowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace zvrs
