// The merged JSON configuration document and the command line that names it.
#pragma once

#include <picojson.h>

#include <string>

namespace zvrs {

using ConfigDocument = picojson::value;

struct CommandLine {
  std::string sceneFile;
  std::string configFile;
  picojson::value override;  // null when none
};

}  // namespace zvrs
