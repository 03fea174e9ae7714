// The configuration document: the built-in text, parsing with the "near:" report, the file
// loader, the command-line override merge and the small readers built on picojson.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "program/config_document.h"

namespace zvrs {

// Used when no configuration file is named; one line, tabs as separators.
extern const char defaultConfigText[];

// Parses the whole buffer into `document`; answers the syntax error's text, empty on success.
std::string parseJsonDocument(const std::vector<char>& buffer, ConfigDocument& document);
// Parses the whole buffer; a syntax error ends the process with 10005 and the line reached.
ConfigDocument parseJsonText(const std::vector<char>& buffer);
ConfigDocument parseJsonString(const char* text, size_t length);
// Reads and parses a file; a missing file ends with 10004, an empty one with 10005.
ConfigDocument loadConfigFile(const std::string& path);

// Folds `override` into `target` key by key, printing one line per changed or added key.
void mergeOverride(const picojson::value& override, picojson::value& target);
// The value as picojson prints it: strings bare, containers as "array" and "object".
std::string valueToText(const picojson::value& value);
// A string gives one name, an array its string elements, anything else nothing.
std::vector<std::string> readOutputList(const ConfigDocument& document, const std::string& key);

}  // namespace zvrs
