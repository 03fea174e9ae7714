// The context's last-error text, read in two steps as the program does: size, then text.
#pragma once

#include <string>

#include "engine/ZvrCore.h"

std::string lastError(ZvrContext context);
