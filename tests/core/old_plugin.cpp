// A plug-in built against an older interface: its entry point carries another version.
extern "C" __attribute__((visibility("default"))) void* zvrPluginCreate_v0() { return nullptr; }
