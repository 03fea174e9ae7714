// Velder and Blender's Cycles side by side in the same run on this machine: each renderer's time
// for the same samples, its error on 4x4 block averages, and the time our renderer needs to reach
// Cycles' error, divided into Cycles' time. Cycles runs only where `blender` is installed
// (bench/install-bench-deps.sh).
//
//   bench_versus_cycles [samples=64] [threads=2] [runs=2] [scene=cornell|helmet]
//
// cornell: the reference Cornell box at 512 x 512, both renderers against the shared 1024-sample
// Cycles render. helmet: DamagedHelmet (glossy metal, five textures, emission) under a white sky at
// 256 x 256, each renderer against a 1024-sample render of its own, since the two renderers' glTF
// materials need not agree to the last percent.
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
#include "bench/glb_with_camera.h"
#include "bench/image_compare.h"
#include "bench/library_scene.h"

namespace {

using zvr::bench::Image;

const std::string kCyclesScript = std::string(ZVR_SOURCE_DIR) + "/bench/cycles_scene.py";
// Not the reference's own seed, so Cycles' error is that of an independent render.
constexpr uint32_t kCyclesSeed = 7;
constexpr uint32_t kReferenceSamples = 1024;
// Our reference starts far from the measured samples, so the two are independent.
constexpr uint32_t kReferenceFirstSample = 1u << 20;

struct Setup {
  std::string scene;
  uint32_t size = 512;
  float sky = 0;                  // radiance of a white sky; 0: none, and Cycles made Lambertian
  std::string sharedReference;    // empty: each renderer against its own converged render
};

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

void recordErrors(const Image& picture, const Image& reference, uint32_t size, Measurement& m) {
  m.fullError = zvr::bench::rmse(picture, reference);
  m.blockError = zvr::bench::rmse(zvr::bench::blockAverage(picture, size, 4), zvr::bench::blockAverage(reference, size, 4));
}

// One Cycles render into `picture`, with its render-call times.
bool renderCycles(const std::string& blender, const std::string& folder, const Setup& setup, uint32_t samples,
                  uint32_t threads, uint32_t seed, Image& picture, double& wall, double& cpu) {
  const std::string output = folder + "/cycles.exr";
  std::string command = "'" + blender + "' --background --factory-startup --python '" + kCyclesScript + "' -- '" +
                        setup.scene + "' '" + output + "' " + std::to_string(samples) + " " + std::to_string(threads) +
                        " " + std::to_string(setup.size) + " " + std::to_string(seed);
  if (setup.sky > 0) command += " " + std::to_string(setup.sky);
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (!pipe) {
    std::fprintf(stderr, "cycles: cannot start %s\n", blender.c_str());
    return false;
  }
  std::string log;
  char line[4096];
  wall = cpu = -1;
  while (std::fgets(line, sizeof(line), pipe)) {
    log += line;
    std::sscanf(line, "cycles-render-seconds %lf cpu %lf", &wall, &cpu);
  }
  int status = ::pclose(pipe);
  std::string error;
  if (status != 0 || wall < 0 || !zvr::bench::readRgb(output, setup.size, picture, &error)) {
    std::fprintf(stderr, "cycles: the render failed (%s); Blender said:\n%s\n", error.c_str(),
                 log.substr(log.size() > 3000 ? log.size() - 3000 : 0).c_str());
    return false;
  }
  std::remove(output.c_str());
  return true;
}

// A fresh import each render, outside the clock as Cycles' import is: the render call then pays
// for the scene build as Cycles' does.
bool renderVelder(const Setup& setup, uint32_t samples, uint32_t threads, uint32_t firstSample, Image& picture,
                  double& wall, double& cpu) {
  zvr::bench::LibraryScene scene;
  std::string error;
  ZvrFrameBuffer fb = nullptr;
  if (!zvr::bench::openLibraryScene(setup.scene, threads, scene, &error) ||
      !zvr::bench::prepareReferenceRender(scene, setup.size, &fb, &error)) {
    std::fprintf(stderr, "velder: %s\n", error.c_str());
    return false;
  }
  ZvrContext context = scene.context;
  if (setup.sky > 0) {
    ZvrLight sky = nullptr;
    ZVR_BENCH_CHECK(scene, zvrContextCreateLight(context, ZVR_LIGHT_ENVIRONMENT, &sky));
    ZVR_BENCH_CHECK(scene, zvrLightSetRadiance(sky, setup.sky, setup.sky, setup.sky));
    ZVR_BENCH_CHECK(scene, zvrSceneAttachLight(scene.scene, sky));
  }
  ZVR_BENCH_CHECK(scene, zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, samples));
  ZVR_BENCH_CHECK(scene, zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_FIRST_SAMPLE_INDEX, firstSample));
  auto start = std::chrono::steady_clock::now();
  double cpuStart = zvr::bench::processorSeconds();
  ZVR_BENCH_CHECK(scene, zvrContextRender(context));
  wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  cpu = zvr::bench::processorSeconds() - cpuStart;
  std::vector<float> sums(size_t(setup.size) * setup.size * 4);
  ZVR_BENCH_CHECK(scene, zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_DATA, sums.size() * sizeof(float), sums.data(), nullptr));
  picture = zvr::bench::normalize(sums);
  return true;
}

void keepBest(const char* name, const Image& picture, const Image& reference, uint32_t size, double wall, double cpu,
              Measurement& m) {
  std::printf("%s: run %.2f s, %.2f processor s\n", name, wall, cpu);
  m.wall = std::min(m.wall, wall);
  m.cpu = std::min(m.cpu, cpu);
  recordErrors(picture, reference, size, m);
  m.ran = true;
}

void printMeasurement(const char* name, const Measurement& m, uint32_t size, uint32_t samples) {
  double sampleCount = double(size) * size * samples;
  std::printf("%s: %u samples in %.2f s (%.2f processor s): %.3f M samples/s, %.3f M per processor second; "
              "rmse vs reference %.5f, 4x4 blocks %.5f\n",
              name, samples, m.wall, m.cpu, sampleCount / m.wall / 1e6, sampleCount / m.cpu / 1e6, m.fullError,
              m.blockError);
}

bool makeSetup(const std::string& name, const std::string& folder, Setup& setup) {
  const std::string shared = ZVR_SHARED_DIR;
  if (name == "cornell") {
    setup.scene = shared + "/reference/cornell-lambert.glb";
    setup.sharedReference = shared + "/reference/cornell-cycles-1024spp.exr";
    return true;
  }
  if (name == "helmet") {
    // The helmet spans about one unit around the origin and faces +z.
    const float eye[3] = {0, 0, 3.2f};
    std::string error;
    setup.scene = folder + "/helmet.glb";
    setup.size = 256;
    setup.sky = 1;
    if (zvr::bench::writeGlbWithCamera(shared + "/scenes/gltf/DamagedHelmet/DamagedHelmet.glb", setup.scene, eye, 0.75f,
                                       &error))
      return true;
    std::fprintf(stderr, "%s\n", error.c_str());
    return false;
  }
  std::fprintf(stderr, "unknown scene \"%s\": cornell or helmet\n", name.c_str());
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  uint32_t samples = argc > 1 ? uint32_t(std::strtoul(argv[1], nullptr, 10)) : 64;
  uint32_t threads = argc > 2 ? uint32_t(std::strtoul(argv[2], nullptr, 10)) : 2;
  uint32_t runs = argc > 3 ? uint32_t(std::strtoul(argv[3], nullptr, 10)) : 2;
  const std::string sceneName = argc > 4 ? argv[4] : "cornell";
  if (samples < 1 || threads < 1 || runs < 1) {
    std::fprintf(stderr, "usage: bench_versus_cycles [samples >= 1] [threads >= 1] [runs >= 1] [cornell|helmet]\n");
    return 2;
  }
  char folderTemplate[] = "/tmp/bench_versus_cycles.XXXXXX";
  const char* folder = ::mkdtemp(folderTemplate);
  if (!folder) {
    std::perror("mkdtemp");
    return 1;
  }
  Setup setup;
  bool ok = makeSetup(sceneName, folder, setup);
  const std::string blender = findOnPath("blender");
  if (blender.empty()) std::printf("cycles: skipped: blender is not installed (bash bench/install-bench-deps.sh)\n");

  Image ourReference, cyclesReference;
  double wall = 0, cpu = 0;
  std::string error;
  if (ok && !setup.sharedReference.empty()) {
    ok = zvr::bench::readRgb(setup.sharedReference, setup.size, ourReference, &error);
    if (!ok) std::fprintf(stderr, "%s\n", error.c_str());
    cyclesReference = ourReference;
  } else if (ok) {
    std::printf("references: %u samples each\n", kReferenceSamples);
    ok = renderVelder(setup, kReferenceSamples, threads, kReferenceFirstSample, ourReference, wall, cpu);
    if (ok && !blender.empty()) ok = renderCycles(blender, folder, setup, kReferenceSamples, threads, 1, cyclesReference, wall, cpu);
  }

  Measurement cycles, velder;
  Image picture;
  for (uint32_t run = 0; run < runs && ok; ++run) {
    if (!blender.empty()) {
      ok = renderCycles(blender, folder, setup, samples, threads, kCyclesSeed, picture, wall, cpu);
      if (ok) keepBest("cycles", picture, cyclesReference, setup.size, wall, cpu, cycles);
    }
    ok = ok && renderVelder(setup, samples, threads, 0, picture, wall, cpu);
    if (ok) keepBest("velder", picture, ourReference, setup.size, wall, cpu, velder);
  }
  if (setup.scene.rfind(folder, 0) == 0) std::remove(setup.scene.c_str());
  ::rmdir(folder);
  if (!ok) return 1;

  std::printf("%s, %u x %u, %u samples, depth 8, %u threads, Gaussian filter of standard deviation 0.375 px, best of %u\n",
              sceneName.c_str(), setup.size, setup.size, samples, threads, runs);
  if (cycles.ran) printMeasurement("cycles", cycles, setup.size, samples);
  printMeasurement("velder", velder, setup.size, samples);
  if (!cycles.ran) return 0;
  // Our time to Cycles' error, with error falling as 1/sqrt(samples).
  double toEqual = (velder.blockError / cycles.blockError) * (velder.blockError / cycles.blockError);
  std::printf("velder at cycles' error: %.1f samples, %.2f s, %.2f processor s\n", samples * toEqual, velder.wall * toEqual,
              velder.cpu * toEqual);
  std::printf("speed against cycles: %.2fx samples per second, %.2fx time to equal quality (%.2fx in processor time)\n",
              cycles.wall / velder.wall, cycles.wall / (velder.wall * toEqual), cycles.cpu / (velder.cpu * toEqual));
  return 0;
}
