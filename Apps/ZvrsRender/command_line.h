// Reading the program's arguments: scene file, optional configuration file, optional override.
#pragma once

#include <string>

#include "program/config_document.h"

namespace zvrs {

// True when the second argument names a configuration file rather than an override; a text of
// exactly four characters always does, whatever its letters.
bool namesConfigFile(const std::string& argument);

// Fills `commandLine` from argv; answers true or ends the process.
bool parseCommandLine(int argc, const char* const* argv, CommandLine& commandLine);

}  // namespace zvrs
