// The help text: usage, an example and a commented sketch of the configuration document.
#pragma once

namespace zvrs {

void printHelp();

}  // namespace zvrs
