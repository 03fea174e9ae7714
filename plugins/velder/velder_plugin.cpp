#include "plugins/velder/velder_plugin.h"

#include "kernel/aov.h"

namespace zvr::velder {

bool VelderPlugin::supportsAov(uint32_t aov, std::string* why) const { return kernel::pathTracerSupportsAov(aov, why); }

bool VelderPlugin::setIntegrator(bool, const std::string& name, std::string* error) {
  // One transport only; the device names select it too.
  if (name == "pathtracer" || name == "cpu" || name == "gpu") return true;
  if (error) *error = "Velder has one integrator, \"pathtracer\"; \"" + name + "\" is not available";
  return false;
}

kernel::IntegratorSettings VelderPlugin::integratorSettings(const RenderParams&, const std::vector<AovTarget>& targets) const {
  kernel::IntegratorSettings s;
  for (const auto& t : targets)
    if (t.aov == kernel::kAovAo) s.wantAo = true;
  return s;
}

}  // namespace zvr::velder
