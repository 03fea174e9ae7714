// Counts the library objects still alive in a context at shutdown and prints them.
#pragma once

#include "engine/ZvrCore.h"

void reportContextLeaks(ZvrContext context);
