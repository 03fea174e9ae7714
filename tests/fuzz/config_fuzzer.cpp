// The configuration document with its command-line override: the text before the first NUL byte
// is the document, the rest the override. Both are parsed, merged and read as the program does.
// Links: zvrs_common
// Seeds: examples/*.json tests/fuzz/seeds/config/*
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <vector>

#include "engine/ZvrCore.h"
#include "Apps/ZvrsRender/settings_reader.h"
#include "program/config_json.h"

using namespace zvrs;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const char* split = static_cast<const char*>(std::memchr(text, '\0', size));
  const std::vector<char> documentText(text, split ? split : text + size);
  const std::vector<char> overrideText(split ? split + 1 : text + size, text + size);

  ConfigDocument document, override;
  if (!parseJsonDocument(documentText, document).empty()) return 0;
  if (!overrideText.empty() && !parseJsonDocument(overrideText, override).empty()) return 0;
  // A document of the wrong shape (a block that is not an object, a short "camera.transform") ends
  // the program through the unhandled-exception path by design; only memory and undefined-behaviour
  // errors are findings here.
  try {
    mergeOverride(override, document);
    readOutputList(document, "output");
    for (int32_t kind : {ZVR_PLUGIN_FAMILY_NONE, ZVR_PLUGIN_FAMILY_VELDER, ZVR_PLUGIN_FAMILY_QUILLON, ZVR_PLUGIN_FAMILY_DORRIK}) {
      RenderSettings settings;
      readSettingsFromConfig(settings, document, {kind});
    }
  } catch (const std::exception&) {
  }
  return 0;
}
