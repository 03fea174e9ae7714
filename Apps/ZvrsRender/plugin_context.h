// Turning the "plugin" name into a registered plug-in, and the "context" block into a context.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "program/config_document.h"

namespace zvrs {

// The family, from the lower-cased base name of a plug-in file.
int32_t pluginKindOf(const std::string& fileName);
// The file handed to the library for a configured name: an alias, the name itself, or the default.
std::string pluginFileFor(const std::string& name);
// Registers the plug-in and appends its id and family, or ends the process with 10000.
void loadPlugin(const std::string& name, std::vector<int32_t>& pluginIds, std::vector<int32_t>& pluginKinds);

// What the document asks of context creation.
struct ContextRequest {
  std::string precompiledPath = "kelbin";
  uint32_t threads = 32;
  uint32_t flags = 0;
  bool kelBackend = false;
};

// Reads "precompiled.binary" and the "context" block; a wrong type in the block throws.
ContextRequest readContextRequest(const ConfigDocument& document);
// The 16 zero-terminated key/value slots for zvrCreateContext; the path slot points into `request`.
std::vector<ZvrContextProperties> buildCreationProperties(const ContextRequest& request,
                                                          const std::vector<int32_t>& pluginKinds);
ZvrContext createContext(const std::vector<int32_t>& pluginIds, const std::vector<int32_t>& pluginKinds,
                         const ConfigDocument& document);

// Chooses the named integrators of the Quillon family, contour last so that it wins.
void selectIntegrators(const ConfigDocument& document, ZvrContext context);

}  // namespace zvrs
