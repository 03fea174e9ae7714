// The emissive Cornell box against a converged Cycles render: error at full size and on 4x4
// block averages, our own noise from two half-sample renders, and throughput against Embree's
// raw ray rate on the same triangles.
//
//   bench_cornell [samples=64] [threads=2] [kernel render output, e.g. cornell.exr]
#include <OpenImageIO/imageio.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>


#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bench/bench_harness.h"
#include "bench/cornell_scene.h"
#include "bench/image_compare.h"
#include "bench/library_scene.h"
#include "kernel/kernel_plugin.h"
#include "plugins/dorrik/dorrik_plugin.h"
#include "plugins/velder/velder_plugin.h"

#include "engine/ZvrLoadStore.h"

namespace {

constexpr uint32_t kSize = 512;
const std::string kScene = std::string(ZVR_SHARED_DIR) + "/reference/cornell-lambert.glb";
const std::string kReference = std::string(ZVR_SHARED_DIR) + "/reference/cornell-cycles-1024spp.exr";

using zvr::bench::Image;

double rmse(const Image& a, const Image& b) { return zvr::bench::rmse(a, b); }
Image blockAverage(const Image& a, uint32_t block) { return zvr::bench::blockAverage(a, kSize, block); }
Image normalize(const std::vector<float>& sums) { return zvr::bench::normalize(sums); }

void report(const char* label, const Image& ours, const Image& a, const Image& b, const Image& reference) {
  std::printf("%s: rmse vs reference %.5f (4x4 blocks %.5f); own noise from half renders %.5f (4x4 blocks %.5f)\n", label,
              rmse(ours, reference), rmse(blockAverage(ours, 4), blockAverage(reference, 4)), rmse(a, b) / 2,
              rmse(blockAverage(a, 4), blockAverage(b, 4)) / 2);
}

class SumTarget : public zvr::FrameBufferTarget {
 public:
  SumTarget() : data(size_t(kSize) * kSize * 4, 0.0f) {}
  uint32_t width() const override { return kSize; }
  uint32_t height() const override { return kSize; }
  void addIteration(const float* rgba) override {
    for (size_t i = 0; i < data.size(); ++i) data[i] += rgba[i];
    ++count;
  }
  void averageIteration(const float*) override {}
  uint32_t iterations() const override { return count; }
  std::string lightPathExpression() const override { return {}; }
  std::vector<float> data;
  uint32_t count = 0;
};

zvr::RenderParams benchParams(uint32_t threads) {
  zvr::RenderParams p;
  p.maxDepth = p.maxDepthDiffuse = p.maxDepthGlossy = p.maxDepthRefraction = p.maxDepthRefractionGlossy = 8;
  // The reference's Gaussian has a standard deviation of 0.375 px; ours is a third of the radius.
  p.imageFilterType = 3;
  p.imageFilterRadius = 1.125f;
  p.threadCount = threads;
  return p;
}

// Our kernel on the glTF read directly: throughput and error without the library in between.
bool kernelBench(uint32_t samples, uint32_t threads, const Image& reference, const char* output) {
  zvr::SceneSnapshot scene;
  std::string error;
  if (!zvr::bench::loadGltfSnapshot(kScene, scene, &error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return false;
  }
  zvr::velder::VelderPlugin plugin;
  zvr::RenderParams params = benchParams(threads);
  zvr::bench::QuietHost host;
  SumTarget half, full;
  zvr::RenderRequest r;
  r.scene = &scene;
  r.params = &params;
  r.width = r.height = kSize;
  r.host = &host;
  r.iterations = samples / 2;
  r.targets = {{0, &half}};
  if (plugin.render(r, &error) != 0) {
    std::fprintf(stderr, "render failed: %s\n", error.c_str());
    return false;
  }
  auto start = std::chrono::steady_clock::now();
  double cpuStart = zvr::bench::processorSeconds();
  r.firstSampleIndex = samples / 2;
  r.iterations = samples - samples / 2;
  r.targets = {{0, &full}};
  if (plugin.render(r, &error) != 0) return false;
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  double cpu = zvr::bench::processorSeconds() - cpuStart;
  uint64_t rays = plugin.raysTraced();
  Image a = normalize(half.data), b = normalize(full.data);
  std::vector<float> total(half.data.size());
  for (size_t i = 0; i < total.size(); ++i) total[i] = half.data[i] + full.data[i];
  Image ours = normalize(total);
  double sampleCount = double(kSize) * kSize * r.iterations;
  std::printf("kernel: %u samples, %u threads: %.2f M samples/s, %.2f M rays/s (%.2f rays per sample)\n", samples, threads,
              sampleCount / seconds / 1e6, rays / seconds / 1e6, rays / sampleCount);
  std::printf("kernel: %.2f M samples per processor second (%.2f M with %u threads fully ours)\n", sampleCount / cpu / 1e6,
              sampleCount / cpu / 1e6 * threads, threads);
  report("kernel", ours, a, b, reference);
  if (output) {
    auto out = OIIO::ImageOutput::create(output);
    OIIO::ImageSpec spec(kSize, kSize, 4, OIIO::TypeDesc::FLOAT);
    if (!out || !out->open(output, spec) || !out->write_image(OIIO::TypeDesc::FLOAT, ours.data()) || !out->close()) {
      std::fprintf(stderr, "cannot write %s: %s\n", output, out ? out->geterror().c_str() : OIIO::geterror().c_str());
      return false;
    }
  }

  // The preview on the same scene: iterations per second against the path tracer's.
  {
    zvr::dorrik::DorrikPlugin preview;
    class AverageTarget : public SumTarget {
     public:
      void averageIteration(const float*) override { ++count; }
    } averaged;
    r.targets = {{0, &averaged}};
    r.firstSampleIndex = 0;
    r.iterations = samples / 2;
    auto p0 = std::chrono::steady_clock::now();
    if (preview.render(r, &error) != 0) return false;
    double ps = std::chrono::duration<double>(std::chrono::steady_clock::now() - p0).count();
    double previewRate = double(kSize) * kSize * r.iterations / ps;
    std::printf("preview: %.2f M samples/s, %.1f times the path tracer's rate\n", previewRate / 1e6,
                previewRate / (sampleCount / seconds));
  }

  // Embree's ceiling on the same triangles: random rays inside the box, no shading.
  zvr::kernel::DeviceErrors errors;
  RTCDevice device = rtcNewDevice(nullptr);
  {
    zvr::kernel::Scene raw(device, &errors);
    if (!raw.update(scene, params, 1, [](const zvr::ShapeData&) { return true; }, &error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return false;
    }
    // Rays are made before the clock starts: the generator would otherwise cost as much as
    // the traversal and lower the ceiling. Shadow rays (occlusion only) are timed apart.
    constexpr size_t kRays = 1'000'000, kPasses = 4;
    zvr::kernel::Vec3 c = raw.center();
    float half = raw.diagonal() * 0.25f;
    std::vector<float> rays(kRays * 6);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(-1, 1);
    for (size_t i = 0; i < kRays; ++i) {
      zvr::kernel::Vec3 o = c + zvr::kernel::Vec3(u(rng), u(rng), u(rng)) * half;
      zvr::kernel::Vec3 d = zvr::kernel::normalize(zvr::kernel::Vec3(u(rng), u(rng), u(rng)));
      float* r = &rays[6 * i];
      r[0] = o.x, r[1] = o.y, r[2] = o.z, r[3] = d.x, r[4] = d.y, r[5] = d.z;
    }
    tbb::task_arena arena{int(threads)};
    auto measure = [&](bool shadow, bool packets, uint64_t& hits) {
      std::atomic<uint64_t> count{0};
      auto t0 = std::chrono::steady_clock::now();
      double c0 = zvr::bench::processorSeconds();
      arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<size_t>(0, kRays * kPasses / 16), [&](const tbb::blocked_range<size_t>& range) {
          uint64_t local = 0;
          zvr::kernel::Ray packet[16];
          zvr::kernel::SurfaceHit surfaces[16];
          bool active[16], found[16], occluded[16];
          RTCIntersectContext ctx;
          rtcInitIntersectContext(&ctx);
          for (size_t group = range.begin(); group < range.end(); ++group) {
            for (size_t lane = 0; lane < 16; ++lane) {
              const float* r = &rays[6 * ((group * 16 + lane) % kRays)];
              packet[lane] = {{r[0], r[1], r[2]}, {r[3], r[4], r[5]}, 0, shadow ? 1.0f : 1e30f};
              active[lane] = true;
            }
            if (packets) {
              // Through the kernel's own packet queries, which also fill the surface data of each hit.
              if (shadow) raw.occluded16(packet, active, occluded);
              else raw.intersect16(packet, active, surfaces, found, false);
              for (size_t lane = 0; lane < 16; ++lane) local += shadow ? occluded[lane] : found[lane];
              continue;
            }
            for (size_t lane = 0; lane < 16; ++lane) {
              const zvr::kernel::Ray& p = packet[lane];
              RTCRayHit rh;
              rh.ray.org_x = p.origin.x, rh.ray.org_y = p.origin.y, rh.ray.org_z = p.origin.z;
              rh.ray.dir_x = p.direction.x, rh.ray.dir_y = p.direction.y, rh.ray.dir_z = p.direction.z;
              rh.ray.tnear = 0, rh.ray.tfar = p.tMax, rh.ray.mask = ~0u, rh.ray.flags = 0, rh.ray.time = 0;
              if (shadow) {
                rtcOccluded1(raw.handle(), &ctx, &rh.ray);
                local += rh.ray.tfar < 0;
              } else {
                rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
                rtcIntersect1(raw.handle(), &ctx, &rh);
                local += rh.hit.geomID != RTC_INVALID_GEOMETRY_ID;
              }
            }
          }
          count += local;
        });
      });
      double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
      double cs = zvr::bench::processorSeconds() - c0;
      hits = count;
      return std::make_pair(kRays * kPasses / s / 1e6, kRays * kPasses / cs / 1e6);
    };
    uint64_t hits = 0, blocked = 0, packetHits = 0, packetBlocked = 0;
    auto closest = measure(false, false, hits);
    auto shadow = measure(true, false, blocked);
    auto closest16 = measure(false, true, packetHits);
    auto shadow16 = measure(true, true, packetBlocked);
    std::printf("embree: %.2f M random rays/s with %u threads (%.1f%% hit), %.2f M per processor second; the ceiling for "
                "the kernel's ray rate\n",
                closest.first, threads, 100.0 * double(hits) / (kRays * kPasses), closest.second);
    std::printf("embree: %.2f M shadow rays/s of length 1 (%.1f%% blocked), %.2f M per processor second\n", shadow.first,
                100.0 * double(blocked) / (kRays * kPasses), shadow.second);
    std::printf("embree: in the kernel's packets of 16: %.2f M random rays/s with surface data (%.1f%% hit), %.2f M shadow "
                "rays/s (%.1f%% blocked); %.2f and %.2f M per processor second\n",
                closest16.first, 100.0 * double(packetHits) / (kRays * kPasses), shadow16.first,
                100.0 * double(packetBlocked) / (kRays * kPasses), closest16.second, shadow16.second);
  }
  rtcReleaseDevice(device);
  return true;
}


// The same comparison through the public libraries, as the program renders.
bool apiBench(uint32_t samples, uint32_t threads, const Image& reference) {
  zvr::bench::LibraryScene library;
  std::string error;
  ZvrFrameBuffer fb = nullptr;
  if (!zvr::bench::openLibraryScene(kScene, threads, library, &error) ||
      !zvr::bench::prepareReferenceRender(library, kSize, &fb, &error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return false;
  }
  ZvrContext context = library.context;
  auto read = [&](std::vector<float>& data) {
    data.resize(size_t(kSize) * kSize * 4);
    return zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_DATA, data.size() * sizeof(float), data.data(), nullptr);
  };
  // Two halves into one framebuffer: the second half is the difference of the sums.
  ZVR_BENCH_CHECK(library, zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, samples / 2));
  auto t0 = std::chrono::steady_clock::now();
  ZVR_BENCH_CHECK(library, zvrContextRender(context));
  std::vector<float> halfSums, fullSums;
  ZVR_BENCH_CHECK(library, read(halfSums));
  ZVR_BENCH_CHECK(library, zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, samples - samples / 2));
  ZVR_BENCH_CHECK(library, zvrContextRender(context));
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  ZVR_BENCH_CHECK(library, read(fullSums));
  std::vector<float> secondSums(fullSums.size());
  for (size_t i = 0; i < fullSums.size(); ++i) secondSums[i] = fullSums[i] - halfSums[i];
  std::printf("library: %u samples, %u threads: %.2f M samples/s including scene updates\n", samples, threads,
              double(kSize) * kSize * samples / seconds / 1e6);
  report("library", normalize(fullSums), normalize(halfSums), normalize(secondSums), reference);

  // The first picture after a camera move: one iteration from a cleared framebuffer, accumulated
  // (hint 0) or provisional (hint 2, blocks of key 287). Best of five, the scene already built.
  ZVR_BENCH_CHECK(library, zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 1));
  for (uint32_t hint : {uint32_t(ZVR_FRAMECOUNT_ACCUMULATE), uint32_t(ZVR_FRAMECOUNT_PROVISIONAL)}) {
    ZVR_BENCH_CHECK(library, zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_FRAMECOUNT, hint));
    double best = 1e30;
    for (int run = 0; run < 5; ++run) {
      ZVR_BENCH_CHECK(library, zvrFrameBufferClear(fb));
      auto start = std::chrono::steady_clock::now();
      ZVR_BENCH_CHECK(library, zvrContextRender(context));
      best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::printf("library: first picture after a restart, frame hint %u: %.1f ms\n", hint, best);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  uint32_t samples = argc > 1 ? uint32_t(std::strtoul(argv[1], nullptr, 10)) : 64;
  uint32_t threads = argc > 2 ? uint32_t(std::strtoul(argv[2], nullptr, 10)) : 2;
  if (samples < 2 || threads < 1) {
    std::fprintf(stderr, "usage: bench_cornell [samples >= 2] [threads >= 1]\n");
    return 2;
  }
  Image reference;
  std::string error;
  if (!zvr::bench::readRgb(kReference, kSize, reference, &error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  bool ok = kernelBench(samples, threads, reference, argc > 3 ? argv[3] : nullptr);
  ok = apiBench(samples, threads, reference) && ok;
  return ok ? 0 : 1;
}
