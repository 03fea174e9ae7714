#include "plugins/quillon/quillon_plugin.h"

#include <algorithm>

#include "kernel/aov.h"
#include "kernel/contour_pass.h"

namespace zvr::quillon {

bool QuillonPlugin::supportsAov(uint32_t aov, std::string* why) const { return kernel::pathTracerSupportsAov(aov, why); }

bool QuillonPlugin::setIntegrator(bool gpuKey, const std::string& name, std::string* error) {
  kernel::IntegratorMode mode;
  // Contour lines are drawn over the path-traced colour.
  const bool contour = name == "gpucontour";
  if (name == "pathtracer" || name == "cpu" || name == "gpu" || contour) {
    mode = kernel::IntegratorMode::PathTracer;
  } else if (name == "direct") {
    mode = kernel::IntegratorMode::Direct;
  } else if (name == "ao") {
    mode = kernel::IntegratorMode::AmbientOcclusion;
  } else {
    if (error)
      *error = "unknown integrator \"" + name +
               "\"; valid names are \"pathtracer\", \"direct\", \"ao\", \"gpucontour\", \"cpu\", \"gpu\"";
    return false;
  }
  (gpuKey ? gpuMode_ : cpuMode_) = mode;
  (gpuKey ? gpuContour_ : cpuContour_) = contour;
  activeMode_ = mode;
  activeContour_ = contour;
  return true;
}

void QuillonPlugin::drawOverIteration(const kernel::Scene& scene, const kernel::Camera& camera, const RenderParams& params,
                                      uint64_t sampleIndex, kernel::Film& film, tbb::task_arena& arena) const {
  if (!activeContour_) return;
  arena.execute([&] { kernel::drawContourPass(scene, camera, params, sampleIndex, film); });
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
