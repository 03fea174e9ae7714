#include "render_layers.h"

#include "program/failure.h"

void ApplyRenderLayers(const ConfigDocument& document, ZvrContext context) {
  const picojson::value& layers = document.get("layers");
  if (layers.is<picojson::null>()) return;
  for (const auto& [name, value] : layers.get<picojson::object>()) {
    // Only exactly 1 attaches; every other number detaches.
    const float state = static_cast<float>(value.get<double>());
    if (state == 1.0f) {
      CHECK_STATUS(zvrContextAttachRenderLayer(context, name.c_str()), context, "Attach render layer failed.",
                   Critical);
    } else {
      CHECK_STATUS(zvrContextDetachRenderLayer(context, name.c_str()), context, "Detach render layer failed.",
                   Critical);
    }
  }
}
