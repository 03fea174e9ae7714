#include "Apps/ZvrsFarm/farm_limits.h"

#include "Apps/ZvrsRender/plugin_context.h"
#include "program/config_json.h"

namespace zvrs {

std::string farmRefusal(const ConfigDocument& document) {
  if (document.contains("plugin")) {
    const std::string name = valueToText(document.get("plugin"));
    if (pluginKindOf(pluginFileFor(name)) == ZVR_PLUGIN_FAMILY_DORRIK)
      return "the plug-in \"" + name +
             "\" keeps running averages, which shards cannot be summed into exactly; use Velder64.dll or Quillon64.dll";
  }
  const picojson::value& aovs = document.get("aovs");
  if (!aovs.is<picojson::object>()) return std::string();
  for (const auto& entry : aovs.get<picojson::object>()) {
    const std::string& name = entry.first;
    if (name == "deep.color" || name == "variance" || name.compare(0, 11, "cryptomatte") == 0)
      return "the output \"" + name + "\" is not a sum of samples, so shards of it cannot be merged exactly";
  }
  return std::string();
}

}  // namespace zvrs
