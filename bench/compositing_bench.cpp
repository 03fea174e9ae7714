// What the compositing outputs cost: render time of a shared scene through the render library with
// colour alone, with all twelve cryptomatte rank layers, with deep output, and with the catcher
// AOVs, and the time to write the multilayer and the deep file. Prints numbers, asserts nothing.
//   compositing_bench [iterations] [width] [height] [runs]   (the fastest of `runs` is shown)
#include <chrono>
#include <ctime>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "engine/ZvrLoadStore.h"

namespace {

const std::string kScene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/CornellBox/cornellBox-2.80-Eevee-gltf.gltf";

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Setup {
  const char* label;
  std::vector<uint32_t> aovs;  // besides colour (0)
  bool deep = false;
};

struct Result {
  double renderSeconds = 0, renderCpuSeconds = 0, saveSeconds = 0;
};

bool check(ZvrStatus status, ZvrContext context, const char* what) {
  if (status == 0) return true;
  char text[1024] = "";
  if (context) zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, sizeof text, text, nullptr);
  std::fprintf(stderr, "%s failed (%d): %s\n", what, int(status), text);
  return false;
}

bool run(const Setup& setup, uint32_t iterations, ZvrFramebufferDesc desc, Result& result) {
  const int32_t plugin = zvrRegisterPlugin("Velder64.dll");
  ZvrContext context = nullptr;
  ZvrMaterialSystem materials = nullptr;
  ZvrScene scene = nullptr;
  if (!check(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, nullptr, &context),
             nullptr, "context") ||
      !check(zvrContextCreateMaterialSystem(context, 0, &materials), context, "material system") ||
      !check(zvrsImport(kScene.c_str(), context, materials, &scene, 0, nullptr), context, "import") ||
      !check(zvrContextSetScene(context, scene), context, "scene"))
    return false;
  ZvrPostEffect normalize = nullptr;
  zvrContextCreatePostEffect(context, ZVR_POST_EFFECT_NORMALIZATION, &normalize);
  zvrContextAttachPostEffect(context, normalize);
  std::vector<std::pair<uint32_t, ZvrFrameBuffer>> bound;
  std::vector<uint32_t> aovs = setup.aovs;
  aovs.insert(aovs.begin(), 0);
  if (setup.deep) aovs.push_back(64);
  for (uint32_t aov : aovs) {
    ZvrFrameBuffer fb = nullptr;
    const uint32_t type = aov == 64 ? ZVR_COMPONENT_TYPE_DEEP : ZVR_COMPONENT_TYPE_FLOAT32;
    if (!check(zvrContextCreateFrameBuffer(context, {4, type}, &desc, &fb), context, "framebuffer") ||
        !check(zvrContextSetAOV(context, aov, fb), context, "AOV"))
      return false;
    bound.push_back({aov, fb});
  }
  zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, iterations);
  // One iteration first: the scene's BVH and textures are built outside the timed call.
  zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 1);
  if (!check(zvrContextRender(context), context, "warm-up render")) return false;
  for (auto& b : bound) zvrFrameBufferClear(b.second);
  zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, iterations);
  auto start = std::chrono::steady_clock::now();
  const std::clock_t cpuStart = std::clock();
  if (!check(zvrContextRender(context), context, "render")) return false;
  result.renderSeconds = secondsSince(start);
  // Processor time of all threads: steadier than the wall clock on a machine others share.
  result.renderCpuSeconds = double(std::clock() - cpuStart) / CLOCKS_PER_SEC;

  start = std::chrono::steady_clock::now();
  std::vector<ZvrFrameBuffer> layers;
  for (auto& b : bound) {
    if (b.first == 64) {
      if (!check(zvrFrameBufferSaveToFile(b.second, "/tmp/compositing_bench_deep.exr"), context, "deep save")) return false;
      continue;
    }
    ZvrFrameBuffer layer = nullptr;
    zvrContextCreateFrameBuffer(context, {4, ZVR_COMPONENT_TYPE_FLOAT32}, &desc, &layer);
    std::string name = b.first == 0 ? "color" : b.first >= 56 && b.first <= 61 ? "CryptoObject0" + std::to_string(b.first - 56)
                     : b.first >= 48 && b.first <= 53 ? "CryptoMaterial0" + std::to_string(b.first - 48)
                                                      : "aov" + std::to_string(b.first);
    zvrObjectSetName(layer, name.c_str());
    zvrContextResolveFrameBuffer(context, b.second, layer, b.first == 0 ? 0 : 1);
    layers.push_back(layer);
  }
  if (!check(zvrFrameBufferSaveToFileEx(layers.data(), uint32_t(layers.size()), "/tmp/compositing_bench.exr", nullptr),
             context, "multilayer save"))
    return false;
  result.saveSeconds = secondsSince(start);
  std::remove("/tmp/compositing_bench.exr");
  std::remove("/tmp/compositing_bench_deep.exr");
  zvrObjectDelete(materials);
  zvrObjectDelete(scene);
  zvrsDeleteListImportedObjects(nullptr);
  zvrObjectDelete(context);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const uint32_t iterations = argc > 1 ? uint32_t(std::atoi(argv[1])) : 16;
  const ZvrFramebufferDesc desc = {argc > 2 ? uint32_t(std::atoi(argv[2])) : 640u, argc > 3 ? uint32_t(std::atoi(argv[3])) : 360u};
  std::vector<uint32_t> crypto;
  for (uint32_t i = 0; i < 6; ++i) {
    crypto.push_back(48 + i);
    crypto.push_back(56 + i);
  }
  const Setup setups[] = {
      {"color only", {}},
      {"12 cryptomatte layers", crypto},
      {"deep.color", {}, true},
      {"shadow.catcher, reflection.catcher, mattepass", {10, 30, 42}},
  };
  const int runs = argc > 4 ? std::max(1, std::atoi(argv[4])) : 3;
  std::printf("CornellBox, %ux%u, %u iterations, Velder, fastest of %d runs\n", desc.width, desc.height, iterations, runs);
  double base = 0, baseCpu = 0;
  for (const Setup& setup : setups) {
    Result best;
    for (int i = 0; i < runs; ++i) {
      Result r;
      if (!run(setup, iterations, desc, r)) return 1;
      if (i == 0 || r.renderCpuSeconds < best.renderCpuSeconds) best = r;
    }
    if (base == 0) {
      base = best.renderSeconds;
      baseCpu = best.renderCpuSeconds;
    }
    std::printf("%-48s render %6.3f s wall (%+6.1f%%), %6.3f s processor (%+6.1f%%); resolve and save %6.3f s\n",
                setup.label, best.renderSeconds, 100 * (best.renderSeconds / base - 1), best.renderCpuSeconds,
                100 * (best.renderCpuSeconds / baseCpu - 1), best.saveSeconds);
  }
  return 0;
}
