#include "plugins/quillon/quillon_plugin.h"

#include <algorithm>

#include "kernel/aov.h"

namespace zvr::quillon {

bool QuillonPlugin::supportsAov(uint32_t aov, std::string* why) const { return kernel::pathTracerSupportsAov(aov, why); }

bool QuillonPlugin::setIntegrator(bool gpuKey, const std::string& name, std::string* error) {
  kernel::IntegratorMode mode;
  if (name == "pathtracer" || name == "cpu" || name == "gpu") {
    mode = kernel::IntegratorMode::PathTracer;
  } else if (name == "direct") {
    mode = kernel::IntegratorMode::Direct;
  } else if (name == "ao") {
    mode = kernel::IntegratorMode::AmbientOcclusion;
  } else if (name == "gpucontour") {
    if (error) *error = "integrator \"gpucontour\" is not available yet";
    return false;
  } else {
    if (error)
      *error = "unknown integrator \"" + name + "\"; valid names are \"pathtracer\", \"direct\", \"ao\", \"cpu\", \"gpu\"";
    return false;
  }
  (gpuKey ? gpuMode_ : cpuMode_) = mode;
  activeMode_ = mode;
  return true;
}

kernel::IntegratorSettings QuillonPlugin::integratorSettings(const RenderParams& params, const std::vector<AovTarget>& targets) const {
  kernel::IntegratorSettings s;
  // Devices all fall back to the CPU, so whichever key was set last decides what renders.
  s.mode = activeMode_;
  s.causticsReduction = std::isfinite(params.causticsReduction) ? params.causticsReduction : 1.0f;
  for (const auto& t : targets)
    if (t.aov == kernel::kAovAo) s.wantAo = true;
  return s;
}

bool QuillonPlugin::includeShape(const ShapeData& shape, const RenderParams& params) const {
  if (!shape.visible) return false;
  if (!params.anyLayerAttached || shape.layers.empty()) return true;
  return std::any_of(shape.layers.begin(), shape.layers.end(), [&](const std::string& layer) {
    return std::find(params.attachedLayers.begin(), params.attachedLayers.end(), layer) != params.attachedLayers.end();
  });
}

float QuillonPlugin::textureBudgetScale(const RenderParams& params) const {
  return std::isfinite(params.gpuMemoryLimit) && params.gpuMemoryLimit > 0 ? params.gpuMemoryLimit : 1.0f;
}

}  // namespace zvr::quillon
