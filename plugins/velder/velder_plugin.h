// Velder: the reference path tracer with the full AOV set.
#pragma once

#include "kernel/kernel_plugin.h"

namespace zvr::velder {

constexpr uint32_t kVelderVersion = 0x00010400;

class VelderPlugin final : public kernel::KernelPlugin {
 public:
  const char* name() const override { return "Velder"; }
  ZvrPluginFamily family() const override { return ZVR_PLUGIN_FAMILY_VELDER; }
  uint32_t version() const override { return kVelderVersion; }
  bool supportsAov(uint32_t aov, std::string* why) const override;
  bool setIntegrator(bool gpuKey, const std::string& name, std::string* error) override;
  bool supportsRenderLayers() const override { return false; }

 protected:
  kernel::IntegratorSettings integratorSettings(const RenderParams& params, const std::vector<AovTarget>& targets) const override;
};

}  // namespace zvr::velder
