// The program's one ASCII lower-casing, for file names and extensions.
#pragma once

#include <string>

std::string lowerCase(std::string text);
