#include "render/statistics.h"

#include <algorithm>
#include <cstdio>

#include "render/post_effects.h"

namespace zvrs {

namespace {

std::string nameList(const std::vector<std::string>& names) {
  std::string text = "[";
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += ", ";
    text += "\"" + names[i] + "\"";
  }
  return text + "]";
}

std::string statisticsPath(const ConfigDocument& document) {
  const picojson::value& name = document.get("output.json");
  return name.is<std::string>() ? name.get<std::string>() : std::string("out.json");
}

void writeGpuNames(FILE* file, ZvrContext context) {
  static const ZvrContextInfo keys[12] = {
      ZVR_CONTEXT_GPU0_NAME, ZVR_CONTEXT_GPU1_NAME, ZVR_CONTEXT_GPU2_NAME,  ZVR_CONTEXT_GPU3_NAME,
      ZVR_CONTEXT_GPU4_NAME, ZVR_CONTEXT_GPU5_NAME, ZVR_CONTEXT_GPU6_NAME,  ZVR_CONTEXT_GPU7_NAME,
      ZVR_CONTEXT_GPU8_NAME, ZVR_CONTEXT_GPU9_NAME, ZVR_CONTEXT_GPU10_NAME, ZVR_CONTEXT_GPU11_NAME};
  for (int n = 0; n < 12; ++n) {
    char name[1024] = {0};
    if (zvrContextGetInfo(context, keys[n], sizeof(name), name, nullptr) != ZVR_SUCCESS) continue;
    name[sizeof(name) - 1] = '\0';
    std::fprintf(file, "\"gpu%02d\": \"%s\",\n", n, name);
  }
}

void writeMemory(FILE* file, ZvrContext context) {
  uint64_t memory[4] = {0, 0, 0, 0};
  zvrContextGetInfo(context, ZVR_CONTEXT_MEMORY_INFO, sizeof(memory), memory, nullptr);
  const float toMegabytes = 9.536743e-7f;
  std::fprintf(file, "\"gpumem.total.mb\": %3.2f,\n", static_cast<float>(memory[1]) * toMegabytes);
  std::fprintf(file, "\"gpumem.max.alloc.mb\": %3.2f,\n", static_cast<float>(memory[2]) * toMegabytes);
  std::fprintf(file, "\"gpumem.usage.mb\": %3.2f,\n", static_cast<float>(memory[0]) * toMegabytes);
  std::fprintf(file, "\"sysmem.usage.mb\": %3.2f,\n", static_cast<float>(memory[3]) * toMegabytes);
}

void writeElements(FILE* file, const std::vector<OutputElement>& elements) {
  if (elements.size() < 2) return;
  std::fprintf(file, "\"aovs\": {\n");
  // The last element is left out on purpose; the last line printed has no comma.
  const size_t printed = elements.size() - 1;
  for (size_t i = 0; i < printed; ++i) {
    std::fprintf(file, "  \"%s\": %s%s\n", elements[i].name.c_str(), nameList(elements[i].fileNames).c_str(),
                 i + 1 < printed ? "," : "");
  }
  std::fprintf(file, "},\n");
}

void writePostEffects(FILE* file, const std::vector<PostEffectEntry>& postEffects) {
  if (postEffects.empty()) return;
  std::fprintf(file, "\"posteffects\": [\n");
  for (size_t i = 0; i < postEffects.size(); ++i) {
    ZvrStatus status = ZVR_SUCCESS;
    const char* name = postEffectTypeName(readPostEffectType(postEffects[i].handle, status));
    if (name == nullptr) continue;
    // The closing bracket stands on the last effect's line.
    std::fprintf(file, "  \"%s\"%s\n", name, i + 1 < postEffects.size() ? "," : "],");
  }
}

void writeVersions(FILE* file, ZvrContext context) {
  uint32_t apiVersion = ZVR_API_VERSION;
  uint64_t apiVersionMinor = ZVR_API_VERSION_MINOR;
  uint32_t pluginVersion = 0;
  zvrContextGetInfo(context, ZVR_CONTEXT_API_VERSION, sizeof(apiVersion), &apiVersion, nullptr);
  zvrContextGetInfo(context, ZVR_CONTEXT_API_VERSION_MINOR, sizeof(apiVersionMinor), &apiVersionMinor, nullptr);
  zvrContextGetInfo(context, ZVR_CONTEXT_PLUGIN_VERSION, sizeof(pluginVersion), &pluginVersion, nullptr);
  std::fprintf(file, "\"version\": \"0x%x\",\n", apiVersion);
  std::fprintf(file, "\"version.minor\": \"0x%llx\",\n", static_cast<unsigned long long>(apiVersionMinor));
  std::fprintf(file, "\"plugin.version\": \"0x%llx\"\n", static_cast<unsigned long long>(pluginVersion));
}

}  // namespace

void writeStatistics(const std::string& sceneFile, const ConfigDocument& document, ZvrContext context,
                     const RenderSettings& settings, const std::vector<std::string>& outputs,
                     const std::vector<OutputElement>& elements, const std::vector<PostEffectEntry>& postEffects,
                     const TimingRecord& timing, float firstIteration) {
  FILE* file = std::fopen(statisticsPath(document).c_str(), "w");
  if (file == nullptr) return;  // nowhere to write: the run itself has succeeded

  std::string input = sceneFile;
  std::replace(input.begin(), input.end(), '\\', '/');
  std::fprintf(file, "{\n");
  std::fprintf(file, "\"input\": \"%s\",\n", input.c_str());
  std::fprintf(file, "\"output\": %s,\n", nameList(outputs).c_str());
  writeGpuNames(file, context);
  writeMemory(file, context);
  const float elapsed = static_cast<float>(static_cast<double>(timing.stamps[1]) * 1000.0 -
                                           static_cast<double>(timing.stamps[0]) * 1000.0);
  std::fprintf(file, "\"render.time.ms\": %3.2f,\n", elapsed / static_cast<float>(timing.frequency));
  std::fprintf(file, "\"render.time.first_iteration.ms\": %3.2f,\n", firstIteration);
  std::fprintf(file, "\"iteration\": %d,\n", static_cast<int>(settings.iterations));
  std::fprintf(file, "\"width\": %d,\n", static_cast<int>(settings.width));
  std::fprintf(file, "\"height\": %d,\n", static_cast<int>(settings.height));
  if (!(settings.width <= settings.tileWidth && settings.height <= settings.tileHeight)) {
    std::fprintf(file, "\"tilesize.width\": %d,\n", static_cast<int>(settings.tileWidth));
    std::fprintf(file, "\"tilesize.height\": %d,\n", static_cast<int>(settings.tileHeight));
  }
  writeElements(file, elements);
  writePostEffects(file, postEffects);
  writeVersions(file, context);
  std::fprintf(file, "}\n");
  std::fclose(file);
}

}  // namespace zvrs
