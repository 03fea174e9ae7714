// Velder and Blender's Cycles side by side on the reference Cornell box, in the same run on this
// machine: each renderer's time for the same samples, its error against the 1024-sample reference
// on 4x4 block averages, and the time our renderer needs to reach Cycles' error, divided into
// Cycles' time. Cycles runs only where `blender` is installed (bench/install-bench-deps.sh).
//
//   bench_versus_cycles [samples=64] [threads=2] [runs=2]
//
// Runs alternate between the renderers and the fastest of each counts. Error is taken to fall
// as 1/sqrt(samples), so reaching an error e from e64 at 64 samples takes (e64/e)^2 times as long.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_harness.h"
#include "bench/image_compare.h"
#include "bench/library_scene.h"

namespace {

using zvr::bench::Image;

constexpr uint32_t kSize = 512;
const std::string kScene = std::string(ZVR_SHARED_DIR) + "/reference/cornell-lambert.glb";
const std::string kReference = std::string(ZVR_SHARED_DIR) + "/reference/cornell-cycles-1024spp.exr";
const std::string kCyclesScript = std::string(ZVR_SOURCE_DIR) + "/bench/cycles_scene.py";
// Not the reference's own seed, so Cycles' error is that of an independent render.
constexpr uint32_t kCyclesSeed = 7;

struct Measurement {
  double wall = 1e30, cpu = 1e30;  // best of the runs
  double blockError = 0, fullError = 0;
  bool ran = false;
};

std::string findOnPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::string folders = path ? path : "/usr/bin:/bin";
  for (size_t start = 0; start <= folders.size();) {
    size_t end = folders.find(':', start);
    if (end == std::string::npos) end = folders.size();
    std::string candidate = folders.substr(start, end - start) + "/" + program;
    if (end > start && ::access(candidate.c_str(), X_OK) == 0) return candidate;
    start = end + 1;
  }
  return {};
}

void recordErrors(const Image& picture, const Image& reference, Measurement& m) {
  m.fullError = zvr::bench::rmse(picture, reference);
  m.blockError = zvr::bench::rmse(zvr::bench::blockAverage(picture, kSize, 4), zvr::bench::blockAverage(reference, kSize, 4));
}

bool runCycles(const std::string& blender, const std::string& folder, uint32_t samples, uint32_t threads,
               const Image& reference, Measurement& m) {
  const std::string output = folder + "/cycles.exr";
  const std::string command = "'" + blender + "' --background --factory-startup --python '" + kCyclesScript + "' -- '" +
                              kScene + "' '" + output + "' " + std::to_string(samples) + " " + std::to_string(threads) +
                              " " + std::to_string(kSize) + " " + std::to_string(kCyclesSeed) + " 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) {
    std::fprintf(stderr, "cycles: cannot start %s\n", blender.c_str());
    return false;
  }
  std::string log;
  char line[4096];
  double wall = -1, cpu = -1;
  while (std::fgets(line, sizeof(line), pipe)) {
    log += line;
    std::sscanf(line, "cycles-render-seconds %lf cpu %lf", &wall, &cpu);
  }
  int status = ::pclose(pipe);
  Image picture;
  std::string error;
  if (status != 0 || wall < 0 || !zvr::bench::readRgb(output, kSize, picture, &error)) {
    std::fprintf(stderr, "cycles: the render failed (%s); Blender said:\n%s\n", error.c_str(),
                 log.substr(log.size() > 3000 ? log.size() - 3000 : 0).c_str());
    return false;
  }
  std::remove(output.c_str());
  std::printf("cycles: run %.2f s, %.2f processor s\n", wall, cpu);
  m.wall = std::min(m.wall, wall);
  m.cpu = std::min(m.cpu, cpu);
  recordErrors(picture, reference, m);
  m.ran = true;
  return true;
}


// A fresh import each run, outside the clock as Cycles' import is: the render call then pays for
// the scene build as Cycles' does.
bool runVelder(uint32_t samples, uint32_t threads, const Image& reference, Measurement& m) {
  zvr::bench::LibraryScene scene;
  std::string error;
  ZvrFrameBuffer fb = nullptr;
  if (!zvr::bench::openLibraryScene(kScene, threads, scene, &error) ||
      !zvr::bench::prepareReferenceRender(scene, kSize, &fb, &error)) {
    std::fprintf(stderr, "velder: %s\n", error.c_str());
    return false;
  }
  ZvrContext context = scene.context;
  ZVR_BENCH_CHECK(scene, zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, samples));
  auto start = std::chrono::steady_clock::now();
  double cpuStart = zvr::bench::processorSeconds();
  ZVR_BENCH_CHECK(scene, zvrContextRender(context));
  double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  double cpu = zvr::bench::processorSeconds() - cpuStart;
  std::vector<float> sums(size_t(kSize) * kSize * 4);
  ZVR_BENCH_CHECK(scene, zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_DATA, sums.size() * sizeof(float), sums.data(), nullptr));
  std::printf("velder: run %.2f s, %.2f processor s\n", wall, cpu);
  m.wall = std::min(m.wall, wall);
  m.cpu = std::min(m.cpu, cpu);
  recordErrors(zvr::bench::normalize(sums), reference, m);
  m.ran = true;
  return true;
}

void printMeasurement(const char* name, const Measurement& m, uint32_t samples) {
  double sampleCount = double(kSize) * kSize * samples;
  std::printf("%s: %u samples in %.2f s (%.2f processor s): %.3f M samples/s, %.3f M per processor second; "
              "rmse vs reference %.5f, 4x4 blocks %.5f\n",
              name, samples, m.wall, m.cpu, sampleCount / m.wall / 1e6, sampleCount / m.cpu / 1e6, m.fullError,
              m.blockError);
}

}  // namespace

int main(int argc, char** argv) {
  uint32_t samples = argc > 1 ? uint32_t(std::strtoul(argv[1], nullptr, 10)) : 64;
  uint32_t threads = argc > 2 ? uint32_t(std::strtoul(argv[2], nullptr, 10)) : 2;
  uint32_t runs = argc > 3 ? uint32_t(std::strtoul(argv[3], nullptr, 10)) : 2;
  if (samples < 1 || threads < 1 || runs < 1) {
    std::fprintf(stderr, "usage: bench_versus_cycles [samples >= 1] [threads >= 1] [runs >= 1]\n");
    return 2;
  }
  Image reference;
  std::string error;
  if (!zvr::bench::readRgb(kReference, kSize, reference, &error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  const std::string blender = findOnPath("blender");
  if (blender.empty()) std::printf("cycles: skipped: blender is not installed (bash bench/install-bench-deps.sh)\n");
  char folderTemplate[] = "/tmp/bench_versus_cycles.XXXXXX";
  const char* folder = ::mkdtemp(folderTemplate);
  if (!folder) {
    std::perror("mkdtemp");
    return 1;
  }

  Measurement cycles, velder;
  bool ok = true;
  for (uint32_t run = 0; run < runs && ok; ++run) {
    if (!blender.empty()) ok = runCycles(blender, folder, samples, threads, reference, cycles);
    ok = ok && runVelder(samples, threads, reference, velder);
  }
  ::rmdir(folder);
  if (!ok) return 1;

  std::printf("%u x %u, %u samples, depth 8, %u threads, Gaussian filter of standard deviation 0.375 px, best of %u\n",
              kSize, kSize, samples, threads, runs);
  if (cycles.ran) printMeasurement("cycles", cycles, samples);
  printMeasurement("velder", velder, samples);
  if (!cycles.ran) return 0;
  // Our time to Cycles' error, with error falling as 1/sqrt(samples).
  double toEqual = (velder.blockError / cycles.blockError) * (velder.blockError / cycles.blockError);
  std::printf("velder at cycles' error: %.1f samples, %.2f s, %.2f processor s\n", samples * toEqual, velder.wall * toEqual,
              velder.cpu * toEqual);
  std::printf("speed against cycles: %.2fx samples per second, %.2fx time to equal quality (%.2fx in processor time)\n",
              cycles.wall / velder.wall, cycles.wall / (velder.wall * toEqual), cycles.cpu / (velder.cpu * toEqual));
  return 0;
}
