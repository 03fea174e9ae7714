#include "plugins/dorrik/dorrik_plugin.h"

#include "kernel/aov.h"

namespace zvr::dorrik {

bool DorrikPlugin::supportsAov(uint32_t aov, std::string* why) const { return kernel::previewSupportsAov(aov, why); }

bool DorrikPlugin::setIntegrator(bool, const std::string& name, std::string* error) {
  if (name == "preview" || name == "cpu" || name == "gpu") return true;
  if (error) *error = "Dorrik renders with its preview integrator only; \"" + name + "\" is not available";
  return false;
}

kernel::IntegratorSettings DorrikPlugin::integratorSettings(const RenderParams&, const std::vector<AovTarget>& targets) const {
  kernel::IntegratorSettings s;
  s.mode = kernel::IntegratorMode::Preview;
  for (const auto& t : targets)
    if (t.aov == kernel::kAovAo) s.wantAo = true;
  return s;
}

}  // namespace zvr::dorrik
