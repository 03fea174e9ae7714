// What the compositing outputs cost: the reference Cornell box with colour only, with six light
// path expressions and with sixteen light groups, rendered by Velder straight from the kernel.
//   light_paths_bench [samples=16] [rounds=3] [threads=2]
// Rounds interleave the configurations; the best round of each is printed, in wall and processor
// time, since the machine may be shared.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_harness.h"
#include "bench/cornell_scene.h"
#include "kernel/aov.h"
#include "kernel/light_paths.h"
#include "plugins/velder/velder_plugin.h"

namespace {

constexpr uint32_t kSize = 256;
const std::string kScene = std::string(ZVR_SHARED_DIR) + "/reference/cornell-lambert.glb";

class Target : public zvr::FrameBufferTarget {
 public:
  explicit Target(std::string expression) : data_(size_t(kSize) * kSize * 4), expression_(std::move(expression)) {}
  uint32_t width() const override { return kSize; }
  uint32_t height() const override { return kSize; }
  void addIteration(const float* rgba) override {
    for (size_t i = 0; i < data_.size(); ++i) data_[i] += rgba[i];
    ++count_;
  }
  void averageIteration(const float*) override {}
  uint32_t iterations() const override { return count_; }
  std::string lightPathExpression() const override { return expression_; }

 private:
  std::vector<float> data_;
  std::string expression_;
  uint32_t count_ = 0;
};

struct Config {
  const char* name;
  std::vector<std::pair<uint32_t, std::string>> outputs;  // AOV and expression, colour first
  double bestWall = 1e30, bestCpu = 1e30;
};

}  // namespace

int main(int argc, char** argv) {
  const uint32_t samples = argc > 1 ? uint32_t(std::atoi(argv[1])) : 16;
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 3;
  const uint32_t threads = argc > 3 ? uint32_t(std::atoi(argv[3])) : 2;
  if (samples < 1 || rounds < 1 || threads < 1) {
    std::fprintf(stderr, "usage: light_paths_bench [samples >= 1] [rounds >= 1] [threads >= 1]\n");
    return 2;
  }
  zvr::SceneSnapshot scene;
  std::string error;
  if (!zvr::bench::loadGltfSnapshot(kScene, scene, &error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  // Every shape and light in a group, so light groups have light to sort.
  for (size_t i = 0; i < scene.shapes.size(); ++i) scene.shapes[i].lightGroup = int32_t(i % zvr::kernel::kLightGroups);
  for (size_t i = 0; i < scene.lights.size(); ++i) scene.lights[i].group = int32_t(i % zvr::kernel::kLightGroups);

  std::vector<Config> configs = {{"colour only", {{zvr::kernel::kAovColor, ""}}}, {"6 LPEs", {{zvr::kernel::kAovColor, ""}}},
                                 {"16 light groups", {{zvr::kernel::kAovColor, ""}}},
                                 {"6 plain AOVs", {{zvr::kernel::kAovColor, ""}}}};
  const char* expressions[] = {"CL", "C.+L", "CDL", "CD+L", "C<RD>.*O", "C[GS].*L"};
  for (uint32_t i = 0; i < zvr::kernel::kLpeOutputs; ++i) configs[1].outputs.push_back({zvr::kernel::kAovLpe0 + i, expressions[i]});
  for (int g = 0; g < zvr::kernel::kLightGroups; ++g) configs[2].outputs.push_back({zvr::kernel::lightGroupAov(g), ""});
  // What any six more outputs cost the film, for comparison.
  for (uint32_t aov : {zvr::kernel::kAovDirectDiffuse, zvr::kernel::kAovIndirectDiffuse, zvr::kernel::kAovEmission,
                       zvr::kernel::kAovBackground, zvr::kernel::kAovDirectReflect, zvr::kernel::kAovIndirectReflect})
    configs[3].outputs.push_back({aov, ""});

  zvr::velder::VelderPlugin plugin;
  zvr::RenderParams params;
  params.threadCount = threads;
  zvr::bench::QuietHost host;
  for (int round = 0; round < rounds; ++round)
    for (Config& c : configs) {
      std::vector<std::unique_ptr<Target>> targets;
      zvr::RenderRequest r;
      r.scene = &scene;
      r.params = &params;
      r.width = r.height = kSize;
      r.host = &host;
      r.iterations = samples;
      for (const auto& [aov, expression] : c.outputs) {
        targets.push_back(std::make_unique<Target>(expression));
        r.targets.push_back({aov, targets.back().get()});
      }
      auto start = std::chrono::steady_clock::now();
      double cpuStart = zvr::bench::processorSeconds();
      if (plugin.render(r, &error) != 0) {
        std::fprintf(stderr, "%s: render failed: %s\n", c.name, error.c_str());
        return 1;
      }
      c.bestWall = std::min(c.bestWall, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      c.bestCpu = std::min(c.bestCpu, zvr::bench::processorSeconds() - cpuStart);
    }
  std::printf("Cornell box %ux%u, %u samples per pixel, %u threads, best of %d rounds\n", kSize, kSize, samples, threads, rounds);
  for (const Config& c : configs)
    std::printf("%-16s %7.3f s wall (%+6.1f%%)  %7.3f s processor (%+6.1f%%)\n", c.name, c.bestWall,
                100 * (c.bestWall / configs[0].bestWall - 1), c.bestCpu, 100 * (c.bestCpu / configs[0].bestCpu - 1));
  return 0;
}
