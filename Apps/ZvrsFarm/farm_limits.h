// What a farm job cannot merge exactly: outputs that are not sums of samples.
#pragma once

#include <string>

#include "program/config_document.h"

namespace zvrs {

// Empty when every output of the configuration is a sum of samples; otherwise why not. The
// preview family keeps running averages, deep and cryptomatte outputs keep per-sample lists and
// the variance output a plug-in's own statistics: none of them is the sum of its shards.
std::string farmRefusal(const ConfigDocument& document);

}  // namespace zvrs
