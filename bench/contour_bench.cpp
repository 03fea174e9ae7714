// Cost of Quillon's contour integrator against its path tracer: one iteration of each at
// 1280 x 720 on the reference Cornell box, after a first call that builds the scene. Prints
// milliseconds per iteration (wall clock and processor time); asserts nothing.
//   contour_bench [iterations=4] [threads=2]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "bench/bench_harness.h"
#include "bench/cornell_scene.h"
#include "kernel/aov.h"
#include "plugins/quillon/quillon_plugin.h"

namespace {

const std::string kScene = std::string(ZVR_SHARED_DIR) + "/reference/cornell-lambert.glb";
constexpr uint32_t kWidth = 1280, kHeight = 720;

class SumTarget : public zvr::FrameBufferTarget {
 public:
  uint32_t width() const override { return kWidth; }
  uint32_t height() const override { return kHeight; }
  void addIteration(const float*) override { ++count; }
  void averageIteration(const float*) override {}
  uint32_t iterations() const override { return count; }
  std::string lightPathExpression() const override { return {}; }
  uint32_t count = 0;
};

struct Timing {
  double wallMs = 0, cpuMs = 0;
};

// Milliseconds per iteration of `iterations` iterations, after one call that builds the scene.
bool timeIntegrator(const char* integrator, const zvr::SceneSnapshot& scene, uint32_t iterations, uint32_t threads,
                    Timing& out) {
  zvr::quillon::QuillonPlugin plugin;
  std::string error;
  if (!plugin.setIntegrator(true, integrator, &error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return false;
  }
  zvr::RenderParams params;
  params.threadCount = threads;
  zvr::bench::QuietHost host;
  SumTarget color;
  zvr::RenderRequest r;
  r.scene = &scene;
  r.params = &params;
  r.width = kWidth;
  r.height = kHeight;
  r.host = &host;
  r.targets = {{zvr::kernel::kAovColor, &color}};
  if (plugin.render(r, &error) != 0) {
    std::fprintf(stderr, "render failed: %s\n", error.c_str());
    return false;
  }
  r.iterations = iterations;
  r.firstSampleIndex = 1;
  const auto start = std::chrono::steady_clock::now();
  const double cpuStart = 1e3 * zvr::bench::processorSeconds();
  if (plugin.render(r, &error) != 0) return false;
  out.wallMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / iterations;
  out.cpuMs = (1e3 * zvr::bench::processorSeconds() - cpuStart) / iterations;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const uint32_t iterations = argc > 1 ? uint32_t(std::max(1, std::atoi(argv[1]))) : 4;
  const uint32_t threads = argc > 2 ? uint32_t(std::max(1, std::atoi(argv[2]))) : 2;
  zvr::SceneSnapshot scene;
  std::string error;
  if (!zvr::bench::loadGltfSnapshot(kScene, scene, &error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  Timing path, contour;
  if (!timeIntegrator("pathtracer", scene, iterations, threads, path) ||
      !timeIntegrator("gpucontour", scene, iterations, threads, contour))
    return 1;
  std::printf("%ux%u, %u iterations, %u threads\n", kWidth, kHeight, iterations, threads);
  std::printf("path tracer: %.1f ms per iteration (%.1f ms processor time)\n", path.wallMs, path.cpuMs);
  std::printf("contour:     %.1f ms per iteration (%.1f ms processor time), %.2fx the path tracer; the lines alone %.1f ms\n",
              contour.wallMs, contour.cpuMs, contour.cpuMs / path.cpuMs, contour.cpuMs - path.cpuMs);
  return 0;
}
