#include "Apps/ZvrsRender/plugin_context.h"

#include <cstdio>
#include <cstdlib>

#include "program/failure.h"
#include "program/lower_case.h"
#include "Apps/ZvrsRender/settings_reader.h"

namespace zvrs {

namespace {

struct PluginAlias {
  const char* alias;
  const char* file;
};
const PluginAlias kPluginAliases[] = {{"velder", "Velder64.dll"}, {"quillon", "Quillon64.dll"}, {"dorrik", "Dorrik.dll"}};

// Device n's creation flag; the bits have holes, so this is a table and not a shift.
const uint32_t kGpuFlags[12] = {
    ZVR_CREATION_FLAGS_ENABLE_GPU0, ZVR_CREATION_FLAGS_ENABLE_GPU1,  ZVR_CREATION_FLAGS_ENABLE_GPU2,
    ZVR_CREATION_FLAGS_ENABLE_GPU3, ZVR_CREATION_FLAGS_ENABLE_GPU4,  ZVR_CREATION_FLAGS_ENABLE_GPU5,
    ZVR_CREATION_FLAGS_ENABLE_GPU6, ZVR_CREATION_FLAGS_ENABLE_GPU7,  ZVR_CREATION_FLAGS_ENABLE_GPU8,
    ZVR_CREATION_FLAGS_ENABLE_GPU9, ZVR_CREATION_FLAGS_ENABLE_GPU10, ZVR_CREATION_FLAGS_ENABLE_GPU11};

constexpr size_t kPropertySlots = 16;

}  // namespace

int32_t pluginKindOf(const std::string& fileName) {
  const size_t separator = fileName.find_last_of("\\/");
  const std::string baseName = lowerCase(separator == std::string::npos ? fileName : fileName.substr(separator + 1));
  if (baseName.find("velder") != std::string::npos) return ZVR_PLUGIN_FAMILY_VELDER;
  if (baseName.find("quillon") != std::string::npos) return ZVR_PLUGIN_FAMILY_QUILLON;
  if (baseName.find("dorrik") != std::string::npos) return ZVR_PLUGIN_FAMILY_DORRIK;
  return ZVR_PLUGIN_FAMILY_NONE;
}

std::string pluginFileFor(const std::string& name) {
  const std::string lowered = lowerCase(name);
  for (const PluginAlias& entry : kPluginAliases)
    if (lowered == entry.alias) return entry.file;
  return name.empty() ? std::string("Velder64.dll") : name;
}

void loadPlugin(const std::string& name, std::vector<int32_t>& pluginIds, std::vector<int32_t>& pluginKinds) {
  const std::string file = pluginFileFor(name);
  const int32_t kind = pluginKindOf(file);
  const int32_t id = zvrRegisterPlugin(file.c_str());
  if (id == -1) {
    char message[1024];
    std::snprintf(message, sizeof message, "ZVR plugin '%s' not found.", file.c_str());
    FATAL_ERROR(10000, message);
  }
  pluginIds.push_back(id);
  pluginKinds.push_back(kind);
}

ContextRequest readContextRequest(const ConfigDocument& document) {
  ContextRequest request;
  readStringKey(document, "precompiled.binary", &request.precompiledPath);

  const picojson::value& block = document.get("context");
  uint32_t debug = 0;
  readBlockUnsigned(block, "debug", &debug);
  readBlockUnsigned(block, "threads", &request.threads);
  std::string backend;
  if (block.contains("backend")) backend = block.get("backend").get<std::string>();
  int32_t devices[12] = {0};
  for (int device = 0; device < 12; ++device) {
    const std::string key = "gpu" + std::to_string(device);
    if (block.contains(key)) devices[device] = toInt(block.get(key).get<double>());
  }
  uint32_t cpu = 0;
  readBlockUnsigned(block, "cpu", &cpu);

  for (int device = 0; device < 12; ++device)
    if (devices[device] != 0) request.flags |= kGpuFlags[device];
  if (cpu != 0) request.flags |= ZVR_CREATION_FLAGS_ENABLE_CPU;
  if (backend == "kel") {
    request.flags |= ZVR_CREATION_FLAGS_ENABLE_KEL;
    request.kelBackend = true;
  }
  // Tested before the debug bit, so a "kel" backend with no device gets no GPU0.
  if (request.flags == 0) request.flags = ZVR_CREATION_FLAGS_ENABLE_GPU0;
  if (debug != 0) request.flags |= ZVR_CREATION_FLAGS_ENABLE_DEBUG;
  return request;
}

std::vector<ZvrContextProperties> buildCreationProperties(const ContextRequest& request,
                                                          const std::vector<int32_t>& pluginKinds) {
  std::vector<ZvrContextProperties> properties(kPropertySlots, 0);
  const int32_t kind = pluginKinds.empty() ? ZVR_PLUGIN_FAMILY_NONE : pluginKinds[0];
  if (kind != ZVR_PLUGIN_FAMILY_VELDER && kind != ZVR_PLUGIN_FAMILY_QUILLON) return properties;
  size_t slot = 0;
  properties[slot++] = ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT;
  properties[slot++] = static_cast<ZvrContextProperties>(static_cast<int32_t>(request.threads));
  properties[slot++] = ZVR_CONTEXT_CREATEPROP_KEY_338;
  properties[slot++] = 3;
  if (kind == ZVR_PLUGIN_FAMILY_QUILLON && !request.precompiledPath.empty()) {
    properties[slot++] = ZVR_CONTEXT_CREATEPROP_PRECOMPILED_BINARY_PATH;
    properties[slot++] = reinterpret_cast<ZvrContextProperties>(request.precompiledPath.c_str());
  }
  return properties;
}

ZvrContext createContext(const std::vector<int32_t>& pluginIds, const std::vector<int32_t>& pluginKinds,
                         const ConfigDocument& document) {
  const ContextRequest request = readContextRequest(document);
  if (request.kelBackend) std::printf("Kel Backend enabled\n");
  const std::vector<ZvrContextProperties> properties = buildCreationProperties(request, pluginKinds);
  ZvrContext context = nullptr;
  CHECK_STATUS(zvrCreateContext(ZVR_API_VERSION, pluginIds.data(), pluginIds.size(), request.flags, properties.data(),
                                nullptr, &context),
               context, "ZVR context creation failed.", Critical);
  return context;
}

void selectIntegrators(const ConfigDocument& document, ZvrContext context) {
  std::string cpuIntegrator;
  std::string gpuIntegrator;
  readStringKey(document, "integratorcpu", &cpuIntegrator);
  readStringKey(document, "integratorgpu", &gpuIntegrator);
  if (std::getenv("VLU_USE_ORIGINAL_INTEGRATORCPU") != nullptr) cpuIntegrator = "cpu";
  if (!cpuIntegrator.empty())
    CHECK_STATUS(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_CPU_INTEGRATOR, cpuIntegrator.c_str()), context,
                 "Setting cpu integrator failed.", Critical);
  if (!gpuIntegrator.empty())
    CHECK_STATUS(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_GPU_INTEGRATOR, gpuIntegrator.c_str()), context,
                 "Setting gpu integrator failed.", Critical);
  const picojson::value& contour = document.get("contour");
  if (!contour.is<picojson::null>())
    CHECK_STATUS(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_GPU_INTEGRATOR, "gpucontour"), context,
                 "Setting gpucontour failed.", Critical);
}

}  // namespace zvrs
