// Writes a file under a temporary name in the same folder and renames it into place, so that a
// failed or interrupted save never leaves a truncated file under the real name.
#pragma once

#include <functional>
#include <string>

namespace zvr::core {

// `write` receives the temporary path and throws Failure (or any exception) on failure; the
// temporary file is then removed and the exception passed on as ZVR_ERROR_IO naming `path`.
void writeAtomically(const std::string& path, const std::function<void(const std::string& temporaryPath)>& write);

}  // namespace zvr::core
