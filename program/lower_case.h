// The program's one ASCII lower-casing, for file names and extensions.
#pragma once

#include <string>

namespace zvrs {

std::string lowerCase(std::string text);

}  // namespace zvrs
