#include <dlfcn.h>

#include <mutex>

#include "core/failure.h"
#include "core/image_codec.h"
#include "core/plugin_loader.h"

namespace zvr::core {

const ImageCodec& imageCodec() {
  // Loaded once and kept for the process, like the plug-ins.
  static std::once_flag once;
  static const ImageCodec* codec = nullptr;
  static std::string failure;
  std::call_once(once, [] {
    const std::string path = folderOfCoreLibrary() + "/libZvrImageCodec64.so";
    void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      const char* why = ::dlerror();
      failure = "the image file library " + path + " cannot be loaded: " + (why ? why : "unknown reason");
      return;
    }
    auto entry = reinterpret_cast<const ImageCodec* (*)()>(::dlsym(library, "zvrImageCodec"));
    codec = entry ? entry() : nullptr;
    if (!codec) failure = "the image file library " + path + " has no zvrImageCodec entry";
  });
  if (!codec) fail(ZVR_ERROR_IO, failure);
  return *codec;
}

}  // namespace zvr::core
