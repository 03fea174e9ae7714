// Quillon: the path tracer with named integrators (contour lines among them), render layers, caustics reduction and a
// texture memory limit.
#pragma once

#include "kernel/kernel_plugin.h"

namespace zvr::quillon {

constexpr uint32_t kQuillonVersion = 0x00020300;

class QuillonPlugin final : public kernel::KernelPlugin {
 public:
  const char* name() const override { return "Quillon"; }
  ZvrPluginFamily family() const override { return ZVR_PLUGIN_FAMILY_QUILLON; }
  uint32_t version() const override { return kQuillonVersion; }
  bool supportsAov(uint32_t aov, std::string* why) const override;
  bool setIntegrator(bool gpuKey, const std::string& name, std::string* error) override;
  bool supportsRenderLayers() const override { return true; }
  // The integrator a device key has chosen (for the tests and the statistics).
  kernel::IntegratorMode mode(bool gpuKey) const { return gpuKey ? gpuMode_ : cpuMode_; }
  // Whether a device key has chosen contour lines.
  bool contour(bool gpuKey) const { return gpuKey ? gpuContour_ : cpuContour_; }

 protected:
  kernel::IntegratorSettings integratorSettings(const RenderParams& params, const std::vector<AovTarget>& targets) const override;
  bool includeShape(const ShapeData& shape, const RenderParams& params) const override;
  float textureBudgetScale(const RenderParams& params) const override;
  void drawOverIteration(const kernel::Scene& scene, const kernel::Camera& camera, const RenderParams& params,
                         uint64_t sampleIndex, kernel::Film& film, tbb::task_arena& arena) const override;

 private:
  kernel::IntegratorMode cpuMode_ = kernel::IntegratorMode::PathTracer, gpuMode_ = kernel::IntegratorMode::PathTracer;
  kernel::IntegratorMode activeMode_ = kernel::IntegratorMode::PathTracer;
  bool cpuContour_ = false, gpuContour_ = false, activeContour_ = false;
};

}  // namespace zvr::quillon
