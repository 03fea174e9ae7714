// Process-wide table of loaded plug-in libraries. Plug-in ids outlive contexts and are valid for
// every context, so this table is the one piece of global state the API needs besides handles.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/plugin_api.h"

namespace zvr::core {

// The file a plug-in name stands for: an existing path as it is; otherwise ".dll" dropped,
// "lib" and ".so" added, looked for beside this library, then in the ZVR_PLUGIN_PATH folders.
// Empty with `searched` listing the places tried when nothing is found.
std::string resolvePluginPath(const std::string& name, std::string* searched);

// The folder libZvrCore64.so was loaded from, where its plug-ins and helper libraries stand.
std::string folderOfCoreLibrary();

// Loads (once per file) and returns the id, or -1 with `error` set.
int32_t registerPlugin(const std::string& name, std::string* error);
// A new instance of a registered plug-in; throws Failure for an unknown id.
std::unique_ptr<zvr::RenderPlugin> instantiatePlugin(int32_t id);

}  // namespace zvr::core
