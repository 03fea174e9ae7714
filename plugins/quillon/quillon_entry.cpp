// The versioned entry point the core looks up.
#include "plugins/quillon/quillon_plugin.h"

extern "C" __attribute__((visibility("default"))) zvr::RenderPlugin* ZVR_PLUGIN_ENTRY() {
  try {
    return new zvr::quillon::QuillonPlugin();
  } catch (...) {
    return nullptr;
  }
}
