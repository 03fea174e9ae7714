#include "render/render_layers.h"

#include "program/failure.h"

namespace zvrs {

ZvrStatus applyRenderLayers(const ConfigDocument& document, ZvrContext context) {
  const picojson::value& layers = document.get("layers");
  if (layers.is<picojson::null>()) return ZVR_SUCCESS;
  for (const auto& [name, value] : layers.get<picojson::object>()) {
    // Only exactly 1 attaches; every other number detaches.
    const float state = static_cast<float>(value.get<double>());
    if (state == 1.0f) {
      const ZvrStatus status = zvrContextAttachRenderLayer(context, name.c_str());
      if (REPORT_FAILURE(status, context, "Attach render layer failed.")) return status;
    } else {
      const ZvrStatus status = zvrContextDetachRenderLayer(context, name.c_str());
      if (REPORT_FAILURE(status, context, "Detach render layer failed.")) return status;
    }
  }
  return ZVR_SUCCESS;
}

}  // namespace zvrs
