// Set-up cost of a lat-long environment light: the light list turns a 4096 x 2048 image into its
// texel copy and sampling tables. Prints milliseconds per build; asserts nothing.
#include <chrono>
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
    constexpr int kRuns = 5;
    double best = 1e30, total = 0;
    for (int run = 0; run < kRuns; ++run) {
      kernel::LightSet lights;
      auto start = std::chrono::steady_clock::now();
      lights.build(snapshot, scene);
      double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
      best = std::min(best, ms);
      total += ms;
    }
    std::printf("environment %ux%u sampling set-up: best %.1f ms, mean %.1f ms over %d builds\n", kWidth, kHeight, best,
                total / kRuns, kRuns);
  }
  rtcReleaseDevice(device);
  return 0;
}
