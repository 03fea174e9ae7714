// Appends whole trace lines to a file. The load/store library appends to the same file, so the
// file is opened in append mode for each line and every line goes out in one write.
#pragma once

#include <string>

namespace zvr::core {

// The path named by ZVR_TRACE, empty when unset.
std::string environmentTracePath();
void appendTraceLine(const std::string& path, const std::string& line);

}  // namespace zvr::core
