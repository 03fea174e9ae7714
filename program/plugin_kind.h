// The plug-in families; family-specific steps of the program test pluginKinds[0] against these.
#pragma once

#include <cstdint>

enum PluginKind : int32_t { PluginKindNone = 0, PluginKindVelder = 1, PluginKindQuillon = 2, PluginKindDorrik = 3 };
