#include "core/plugin_loader.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdlib>
#include <mutex>
#include <sstream>
#include <vector>

#include "core/failure.h"

namespace zvr::core {
namespace {

struct LoadedPlugin {
  std::string path;
  void* library = nullptr;
  ZvrPluginEntryFn entry = nullptr;
};

std::mutex gMutex;
std::vector<LoadedPlugin> gPlugins;  // index is the id; libraries stay loaded for the process

bool isFile(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string fileNameFor(const std::string& name) {
  std::string base = name;
  if (base.size() > 4 && base.compare(base.size() - 4, 4, ".dll") == 0) base.resize(base.size() - 4);
  size_t slash = base.rfind('/');
  std::string folder = slash == std::string::npos ? "" : base.substr(0, slash + 1);
  std::string file = slash == std::string::npos ? base : base.substr(slash + 1);
  if (file.compare(0, 3, "lib") != 0) file = "lib" + file;
  if (file.size() < 3 || file.compare(file.size() - 3, 3, ".so") != 0) file += ".so";
  return folder + file;
}

}  // namespace

std::string folderOfCoreLibrary() {
  Dl_info info;
  if (::dladdr(reinterpret_cast<void*>(&resolvePluginPath), &info) == 0 || !info.dli_fname) return {};
  std::string path = info.dli_fname;
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::string resolvePluginPath(const std::string& name, std::string* searched) {
  if (isFile(name)) return name;
  const std::string file = fileNameFor(name);
  std::vector<std::string> candidates;
  if (file.find('/') != std::string::npos) {
    candidates.push_back(file);
  } else {
    candidates.push_back(folderOfCoreLibrary() + "/" + file);
    if (const char* env = std::getenv("ZVR_PLUGIN_PATH")) {
      std::stringstream folders(env);
      std::string folder;
      while (std::getline(folders, folder, ':'))
        if (!folder.empty()) candidates.push_back(folder + "/" + file);
    }
  }
  for (const std::string& candidate : candidates)
    if (isFile(candidate)) return candidate;
  if (searched) {
    searched->clear();
    for (const std::string& candidate : candidates) *searched += (searched->empty() ? "" : ", ") + candidate;
  }
  return {};
}

int32_t registerPlugin(const std::string& name, std::string* error) {
  std::string searched;
  const std::string path = resolvePluginPath(name, &searched);
  if (path.empty()) {
    *error = "plug-in \"" + name + "\" not found (looked for " + searched + ")";
    return -1;
  }
  char* real = ::realpath(path.c_str(), nullptr);
  const std::string canonical = real ? real : path;
  std::free(real);

  std::lock_guard<std::mutex> lock(gMutex);
  for (size_t i = 0; i < gPlugins.size(); ++i)
    if (gPlugins[i].path == canonical) return static_cast<int32_t>(i);

  void* library = ::dlopen(canonical.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    const char* why = ::dlerror();
    *error = "plug-in \"" + canonical + "\" cannot be loaded: " + (why ? why : "unknown reason");
    return -1;
  }
  auto entry = reinterpret_cast<ZvrPluginEntryFn>(::dlsym(library, ZVR_PLUGIN_ENTRY_NAME));
  if (!entry) {
    ::dlclose(library);
    *error = "plug-in \"" + canonical + "\" has no entry point " ZVR_PLUGIN_ENTRY_NAME
             ": it was built for another plug-in interface version";
    return -1;
  }
  gPlugins.push_back({canonical, library, entry});
  return static_cast<int32_t>(gPlugins.size() - 1);
}

std::unique_ptr<zvr::RenderPlugin> instantiatePlugin(int32_t id) {
  ZvrPluginEntryFn entry = nullptr;
  std::string path;
  {
    std::lock_guard<std::mutex> lock(gMutex);
    if (id < 0 || static_cast<size_t>(id) >= gPlugins.size())
      fail(ZVR_ERROR_NO_PLUGIN, "plug-in id " + std::to_string(id) + " is not registered");
    entry = gPlugins[id].entry;
    path = gPlugins[id].path;
  }
  std::unique_ptr<zvr::RenderPlugin> plugin(entry());
  if (!plugin) fail(ZVR_ERROR_PLUGIN_LOAD, "plug-in \"" + path + "\" returned no instance");
  return plugin;
}

}  // namespace zvr::core
