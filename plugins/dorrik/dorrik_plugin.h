// Dorrik: the progressive preview. Primary visibility, direct light with shadows, one diffuse
// bounce and ambient occlusion; its framebuffers hold final averaged values.
#pragma once

#include "kernel/kernel_plugin.h"

namespace zvr::dorrik {

constexpr uint32_t kDorrikVersion = 0x00030200;

class DorrikPlugin final : public kernel::KernelPlugin {
 public:
  const char* name() const override { return "Dorrik"; }
  ZvrPluginFamily family() const override { return ZVR_PLUGIN_FAMILY_DORRIK; }
  uint32_t version() const override { return kDorrikVersion; }
  bool supportsAov(uint32_t aov, std::string* why) const override;
  bool setIntegrator(bool gpuKey, const std::string& name, std::string* error) override;
  bool supportsRenderLayers() const override { return false; }

 protected:
  kernel::IntegratorSettings integratorSettings(const RenderParams& params, const std::vector<AovTarget>& targets) const override;
  bool averagedFramebuffers() const override { return true; }
};

}  // namespace zvr::dorrik
