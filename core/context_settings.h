// The context's keyed parameters: their storage, their defaults, and checked set/get by key.
// Keys whose meaning reaches beyond storage (plug-in integrators, owned files, the scene, lists of
// objects) are answered by the context itself before it asks this table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/ZvrCore.h"
#include "core/plugin_api.h"

namespace zvr::core {

struct ContextSettings {
  zvr::RenderParams params;  // what changes the picture; defaults are the library's
  uint32_t iterations = 1;
  uint32_t previewBlock = 0;  // key 287
  uint32_t frameHint = ZVR_FRAMECOUNT_ACCUMULATE;  // key 309
  uint32_t firstSampleIndex = 0;  // key 4104
  uint32_t saveFloat32 = 0;
  float tileSize[4] = {0, 0, 0, 0};
  std::string ocioConfigPath;
  ZvrProgressCallback progressCallback = nullptr;
  void* progressData = nullptr;
  ZvrTimeCallback updateTimeCallback = nullptr;
  void* updateTimeData = nullptr;
  ZvrTimeCallback ignoredTimeCallback = nullptr;
  void* ignoredTimeData = nullptr;
  ZvrTimeCallback renderTimeCallback = nullptr;
  void* renderTimeData = nullptr;

  ContextSettings();  // reads the OCIO environment variable
};

enum class KeyType { Uint, Float, Float4, Pointer, Text };

// "key 267 (iterations)"; "key 999" for keys the table does not know.
std::string describeKey(uint32_t key);
// Whether the table stores this key, and its type.
bool findStoredKey(uint32_t key, KeyType* type);

// Each throws Failure: ZVR_ERROR_UNKNOWN_KEY, ZVR_ERROR_INVALID_ARGUMENT for a key of another type,
// a read-only key or a value out of range.
void setUint(ContextSettings& settings, uint32_t key, uint32_t value);
void setFloat(ContextSettings& settings, uint32_t key, float value);
void setFloat4(ContextSettings& settings, uint32_t key, const float values[4]);
void setPointer(ContextSettings& settings, uint32_t key, void* pointer);
void setText(ContextSettings& settings, uint32_t key, const char* text);
void getStored(const ContextSettings& settings, uint32_t key, size_t size, void* data, size_t* outSize);

}  // namespace zvr::core
