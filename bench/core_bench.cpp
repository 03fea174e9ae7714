// Throughput of the render library's own work: the cost of one API call, copying a mesh in,
// resolving a full-HD framebuffer through post effects, and writing it as PNG and EXR.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"

namespace {

struct Context {
  ZvrContext handle = nullptr;
  Context() {
    const int32_t plugin = zvrRegisterPlugin("Velder64.dll");
    zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, nullptr, &handle);
  }
  ~Context() { zvrObjectDelete(handle); }
};

ZvrFrameBuffer fullHd(ZvrContext context) {
  ZvrFramebufferDesc desc{1920, 1080};
  ZvrFrameBuffer fb = nullptr;
  zvrContextCreateFrameBuffer(context, {4, ZVR_COMPONENT_TYPE_FLOAT32}, &desc, &fb);
  return fb;
}

void BM_GetInfoCall(benchmark::State& state) {
  Context context;
  float gamma = 0;
  for (auto _ : state) {
    zvrContextGetInfo(context.handle, ZVR_CONTEXT_DISPLAY_GAMMA, sizeof gamma, &gamma, nullptr);
    benchmark::DoNotOptimize(gamma);
  }
}
BENCHMARK(BM_GetInfoCall);

void BM_CreateMesh(benchmark::State& state) {
  Context context;
  const size_t side = size_t(state.range(0));
  std::vector<float> positions;
  std::vector<uint32_t> indices;
  for (size_t y = 0; y <= side; ++y)
    for (size_t x = 0; x <= side; ++x) positions.insert(positions.end(), {float(x), float(y), 0});
  for (size_t y = 0; y < side; ++y)
    for (size_t x = 0; x < side; ++x) {
      const uint32_t a = uint32_t(y * (side + 1) + x), b = a + 1, c = a + uint32_t(side + 1), d = c + 1;
      indices.insert(indices.end(), {a, b, c, b, d, c});
    }
  ZvrMeshDesc desc{};
  desc.positions = positions.data();
  desc.vertexCount = positions.size() / 3;
  desc.indices = indices.data();
  desc.indexCount = indices.size();
  for (auto _ : state) {
    ZvrShape shape = nullptr;
    zvrContextCreateMesh(context.handle, &desc, &shape);
    zvrObjectDelete(shape);
  }
  state.counters["triangles/s"] = benchmark::Counter(double(indices.size() / 3), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_CreateMesh)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond);

void BM_ResolveFullHd(benchmark::State& state) {
  Context context;
  ZvrFrameBuffer source = fullHd(context.handle), destination = fullHd(context.handle);
  for (uint32_t type : {ZVR_POST_EFFECT_NORMALIZATION, ZVR_POST_EFFECT_TONE_MAP, ZVR_POST_EFFECT_GAMMA_CORRECTION}) {
    ZvrPostEffect effect = nullptr;
    zvrContextCreatePostEffect(context.handle, type, &effect);
    zvrContextAttachPostEffect(context.handle, effect);
    if (uint32_t(state.range(0)) == type) break;  // the argument names the last effect attached
  }
  for (auto _ : state) zvrContextResolveFrameBuffer(context.handle, source, destination, 0);
  state.counters["pixels/s"] = benchmark::Counter(1920.0 * 1080.0, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ResolveFullHd)
    ->Arg(ZVR_POST_EFFECT_NORMALIZATION)
    ->Arg(ZVR_POST_EFFECT_GAMMA_CORRECTION)
    ->Unit(benchmark::kMillisecond);

void BM_SaveFullHd(benchmark::State& state, const char* extension) {
  Context context;
  ZvrFrameBuffer fb = fullHd(context.handle);
  const std::string path = "/tmp/zvr_core_bench_" + std::to_string(getpid()) + extension;
  for (auto _ : state) zvrFrameBufferSaveToFile(fb, path.c_str());
  std::remove(path.c_str());
  state.counters["pixels/s"] = benchmark::Counter(1920.0 * 1080.0, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK_CAPTURE(BM_SaveFullHd, png, ".png")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_SaveFullHd, exr, ".exr")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
