#include "Apps/ZvrsRender/callbacks.h"

#include <cstdio>

#include "program/render_settings.h"
#include "program/run_records.h"

namespace zvrs {

void progressCallback(float progress, void* data) {
  const ProgressRecord* record = static_cast<const ProgressRecord*>(data);
  // Before the settings exist there is nothing that allows printing.
  if (record == nullptr || record->settings == nullptr || !record->settings->printProgress) return;
  std::printf("%3.0f%%\n", progress * record->scale + record->offset);
  std::fflush(stdout);
}

void storeTimeCallback(float value, void* data) {
  if (data != nullptr) *static_cast<float*>(data) = value;
}

void ignoreTimeCallback(float, void*) {}

}  // namespace zvrs
