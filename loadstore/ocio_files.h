// Writes the OCIO configuration an XML scene carries, so the colour pipeline can load it.
#pragma once

#include <string>
#include <vector>

#include "loadstore/scene_description.h"

namespace zvr::loadstore {

struct WrittenOcioFiles {
  std::string configPath;           // empty: the scene carries no configuration
  std::vector<std::string> files;   // every file written, the configuration first
};

// The configuration goes to `tempName`.ocio and each further file to `tempName`_<name>; the
// configuration's references to those names are rewritten to match. Throws LoadError, having
// removed whatever it wrote.
WrittenOcioFiles writeOcioFiles(const OcioConfig& ocio, const std::string& tempName);
// Replaces whole-name occurrences of `from` (not parts of longer file names).
std::string replaceFileName(const std::string& text, const std::string& from, const std::string& to);

}  // namespace zvr::loadstore
