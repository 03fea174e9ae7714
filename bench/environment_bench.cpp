// Set-up cost of a lat-long environment light: the light list turns a 4096 x 2048 image into its
// texel copy and sampling tables. Prints milliseconds per build, wall clock and the process's CPU
// time (all threads; steadier than the wall clock on a loaded machine); asserts nothing.
#include <chrono>
#include <ctime>
#include <cstdio>
#include <memory>
#include <random>

#include "kernel/lights.h"
#include "kernel/scene.h"

int main() {
  using namespace zvr;
  constexpr uint32_t kWidth = 4096, kHeight = 2048;
  auto image = std::make_shared<ImageData>();
  image->id = 1;
  image->width = kWidth;
  image->height = kHeight;
  image->channels = 3;
  image->pixels.resize(size_t(kWidth) * kHeight * 3);
  std::mt19937 rng(7);
  std::exponential_distribution<float> radiance(1.0f);
  for (float& p : image->pixels) p = radiance(rng);
  SceneSnapshot snapshot;
  LightData sky;
  sky.type = LightType::Environment;
  sky.image = image;
  snapshot.lights.push_back(sky);

  RTCDevice device = rtcNewDevice(nullptr);
  {
    kernel::DeviceErrors errors;
    kernel::Scene scene(device, &errors);
    std::string error;
    if (!scene.update(snapshot, RenderParams{}, 1, [](const ShapeData&) { return true; }, &error)) {
      std::fprintf(stderr, "scene update failed: %s\n", error.c_str());
      return 1;
    }
    auto cpuMilliseconds = [] {
      timespec t{};
      clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
      return double(t.tv_sec) * 1e3 + double(t.tv_nsec) * 1e-6;
    };
    constexpr int kRuns = 5;
    double best = 1e30, total = 0, bestCpu = 1e30;
    for (int run = 0; run < kRuns; ++run) {
      kernel::LightSet lights;
      auto start = std::chrono::steady_clock::now();
      const double cpuStart = cpuMilliseconds();
      lights.build(snapshot, scene);
      const double cpu = cpuMilliseconds() - cpuStart;
      double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
      best = std::min(best, ms);
      bestCpu = std::min(bestCpu, cpu);
      total += ms;
    }
    std::printf("environment %ux%u sampling set-up: best %.1f ms, mean %.1f ms over %d builds; CPU time best %.1f ms\n",
                kWidth, kHeight, best, total / kRuns, kRuns, bestCpu);
  }
  rtcReleaseDevice(device);
  return 0;
}
