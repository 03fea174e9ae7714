// Counts the library objects still alive in a context at shutdown and prints them.
#pragma once

#include "engine/ZvrCore.h"

namespace zvrs {

void reportContextLeaks(ZvrContext context);

}  // namespace zvrs
