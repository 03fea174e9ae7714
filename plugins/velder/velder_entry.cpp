// The versioned entry point the core looks up.
#include "plugins/velder/velder_plugin.h"

extern "C" __attribute__((visibility("default"))) zvr::RenderPlugin* ZVR_PLUGIN_ENTRY() {
  try {
    return new zvr::velder::VelderPlugin();
  } catch (...) {
    return nullptr;
  }
}
