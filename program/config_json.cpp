#include "program/config_json.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "program/failure.h"

namespace zvrs {

const char defaultConfigText[] =
    "\t{\t\"plugin\":\"Quillon64.dll\",\t\"width\":1280,\t\"height\":720, \t\"gui\":1,\t\"iterations\":10,"
    "\t\"radianceclamp\":2.0,\t\"animation.time\":0.0,\t\"output\":\"test.png\",\t\"output.json\":\"output.json\","
    "\t\"print.progress\":1,\t\"context\":{\t\t\"gpu0\":1,\t\t\"gpu1\":0,\t\t\"threads\":16,\t\t\"debug\":0\t},"
    "\t\"aovs\": {\t\t\"normal\": \"test_n.png\"\t}\t}";

namespace {

// picojson throws instead of reporting a number too large for a double (1e400), so the place is
// found here: the first such number outside a string, with the rest of its line as for any
// other syntax error.
std::string describeInfiniteNumber(const std::vector<char>& buffer) {
  int line = 1;
  bool inString = false;
  for (size_t i = 0; i < buffer.size(); ++i) {
    const char c = buffer[i];
    if (c == '\n') ++line;
    if (inString) {
      if (c == '\\') ++i;
      else if (c == '"') inString = false;
      continue;
    }
    if (c == '"') {
      inString = true;
      continue;
    }
    if (c != '-' && (c < '0' || c > '9')) continue;
    size_t end = i;
    while (end < buffer.size() && std::strchr("0123456789+-.eE", buffer[end]) && buffer[end] != '\0') ++end;
    const std::string number(buffer.begin() + i, buffer.begin() + end);
    if (std::isfinite(std::strtod(number.c_str(), nullptr))) {
      i = end - 1;
      continue;
    }
    std::string text = "syntax error at line " + std::to_string(line) + " near: ";
    for (size_t j = i; j < buffer.size() && buffer[j] != '\n'; ++j)
      if (static_cast<unsigned char>(buffer[j]) >= 0x20) text.push_back(buffer[j]);
    return text;
  }
  return "syntax error at line " + std::to_string(line) + " near: ";
}

}  // namespace

std::string parseJsonDocument(const std::vector<char>& buffer, ConfigDocument& document) {
  std::string error;
  // picojson composes the "syntax error at line %d near: " text with the rest of the line itself.
  try {
    picojson::parse(document, buffer.begin(), buffer.end(), &error);
  } catch (const std::overflow_error&) {
    error = describeInfiniteNumber(buffer);
  }
  return error;
}

ConfigDocument parseJsonText(const std::vector<char>& buffer) {
  ConfigDocument document;
  const std::string error = parseJsonDocument(buffer, document);
  if (!error.empty()) FATAL_ERROR(10005, error.c_str());
  return document;
}

ConfigDocument parseJsonString(const char* text, size_t length) {
  return parseJsonText(std::vector<char>(text, text + length));
}

ConfigDocument loadConfigFile(const std::string& path) {
  char message[4096];
  std::ifstream file(path, std::ios::binary);
  // A folder opens as a stream on Linux but holds no document.
  std::error_code ignored;
  if (!file.is_open() || std::filesystem::is_directory(path, ignored)) {
    std::snprintf(message, sizeof message, "Config file '%s' not found.", path.c_str());
    FATAL_ERROR(10004, message);
  }
  file.seekg(0, std::ios::end);
  const std::streamoff length = file.tellg();
  if (length <= 0) {
    std::snprintf(message, sizeof message, "Config file '%s' is empty.", path.c_str());
    FATAL_ERROR(10005, message);
  }
  file.seekg(0, std::ios::beg);
  std::vector<char> buffer(static_cast<size_t>(length));
  file.read(buffer.data(), length);
  // A short read is left to the parser, which reports where the text stops making sense.
  buffer.resize(static_cast<size_t>(file.gcount()));
  return parseJsonText(buffer);
}

std::string valueToText(const picojson::value& value) { return value.to_str(); }

void mergeOverride(const picojson::value& override, picojson::value& target) {
  if (valueToText(override) != "object") return;
  for (const auto& [key, value] : override.get<picojson::object>()) {
    picojson::object& targetObject = target.get<picojson::object>();
    auto existing = targetObject.find(key);
    // The test goes by text, so a string "object" is taken for a block as well.
    if (valueToText(value) == "object") {
      // A block the document lacks merges into a null, which refuses any entry with picojson's own
      // assertion: the override may change blocks but not create them.
      picojson::value missingBlock;
      mergeOverride(value, existing != targetObject.end() ? existing->second : missingBlock);
      continue;
    }
    if (existing != targetObject.end()) {
      std::printf("Command Argument: override parameter '%s' from value '%s' to '%s'\n", key.c_str(),
                  valueToText(existing->second).c_str(), valueToText(value).c_str());
      targetObject.erase(existing);
    } else {
      std::printf("Command Argument: add parameter '%s' to value '%s'\n", key.c_str(), valueToText(value).c_str());
    }
    targetObject.insert(std::make_pair(key, value));
  }
}

std::vector<std::string> readOutputList(const ConfigDocument& document, const std::string& key) {
  const picojson::value& value = document.get(key);
  std::vector<std::string> names;
  if (value.is<std::string>()) {
    names.push_back(value.get<std::string>());
  } else if (value.is<picojson::array>()) {
    for (const picojson::value& element : value.get<picojson::array>())
      if (element.is<std::string>()) names.push_back(element.get<std::string>());
  }
  return names;
}

}  // namespace zvrs
