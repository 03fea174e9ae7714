// The output element names: every AOV name with its id, and the names that hold light.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace zvrs {

// Sorted by name, so walking it gives ascending byte order.
extern const std::map<std::string, uint32_t> aovNameToId;
// Names resolved as light (flag 0); all others are data (flag 1).
extern const std::set<std::string> colorSet;

}  // namespace zvrs
