// The emissive Cornell box against a converged Cycles render: error at full size and on 4x4
// block averages, our own noise from two half-sample renders, and throughput against Embree's
// raw ray rate on the same triangles.
//
//   bench_cornell [samples=64] [threads=2] [kernel render output, e.g. cornell.exr]
#include <OpenImageIO/imageio.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bench/cornell_scene.h"
#include "kernel/kernel_plugin.h"
#include "plugins/dorrik/dorrik_plugin.h"
#include "plugins/velder/velder_plugin.h"

#include "engine/ZvrLoadStore.h"

namespace {

constexpr uint32_t kSize = 512;
const std::string kScene = std::string(ZVR_SHARED_DIR) + "/reference/cornell-lambert.glb";
const std::string kReference = std::string(ZVR_SHARED_DIR) + "/reference/cornell-cycles-1024spp.exr";

using Image = std::vector<float>;  // RGBA, rows top to bottom

// Processor time of the whole process: on a shared machine wall time also counts other people's work.
double cpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + 1e-6 * double(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
}

bool readReference(Image& out) {
  auto in = OIIO::ImageInput::open(kReference);
  if (!in) {
    std::fprintf(stderr, "cannot open %s: %s\n", kReference.c_str(), OIIO::geterror().c_str());
    return false;
  }
  const auto& spec = in->spec();
  if (uint32_t(spec.width) != kSize || uint32_t(spec.height) != kSize || spec.nchannels < 3) {
    std::fprintf(stderr, "%s: expected %ux%u RGB(A)\n", kReference.c_str(), kSize, kSize);
    return false;
  }
  std::vector<float> data(size_t(spec.width) * spec.height * spec.nchannels);
  if (!in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, data.data())) return false;
  out.assign(size_t(kSize) * kSize * 4, 1.0f);
  for (size_t i = 0; i < size_t(kSize) * kSize; ++i)
    for (int c = 0; c < 3; ++c) out[4 * i + c] = data[i * spec.nchannels + c];
  return true;
}

double rmse(const Image& a, const Image& b) {
  double s = 0;
  for (size_t i = 0; i < a.size(); i += 4)
    for (int c = 0; c < 3; ++c) s += (a[i + c] - b[i + c]) * double(a[i + c] - b[i + c]);
  return std::sqrt(s / (a.size() / 4 * 3));
}

Image blockAverage(const Image& a, uint32_t block) {
  uint32_t n = kSize / block;
  Image out(size_t(n) * n * 4, 0.0f);
  for (uint32_t y = 0; y < kSize; ++y)
    for (uint32_t x = 0; x < kSize; ++x)
      for (int c = 0; c < 4; ++c) out[((y / block) * n + x / block) * 4 + c] += a[(size_t(y) * kSize + x) * 4 + c] / (block * block);
  return out;
}

Image normalize(const std::vector<float>& sums) {
  Image out(sums.size());
  for (size_t i = 0; i < sums.size(); i += 4) {
    float w = sums[i + 3];
    for (int c = 0; c < 3; ++c) out[i + c] = w != 0 ? sums[i + c] / w : 0;
    out[i + 3] = 1;
  }
  return out;
}

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

class QuietHost : public zvr::RenderHost {
 public:
  void reportProgress(float) override {}
  void reportUpdateTime(float ms) override { updateMs = ms; }
  void reportFirstIterationTime(float) override {}
  bool abortRequested() const override { return false; }
  float updateMs = 0;
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
  QuietHost host;
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
  double cpuStart = cpuSeconds();
  r.firstSampleIndex = samples / 2;
  r.iterations = samples - samples / 2;
  r.targets = {{0, &full}};
  if (plugin.render(r, &error) != 0) return false;
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  double cpu = cpuSeconds() - cpuStart;
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
      double c0 = cpuSeconds();
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
      double cs = cpuSeconds() - c0;
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

// Composes a group chain into a world matrix (row vectors: p * local * parent * ...).
void multiplyInto(float out[16], const float a[16], const float b[16]) {
  float r[16];
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) {
      float s = 0;
      for (int k = 0; k < 4; ++k) s += a[4 * i + k] * b[4 * k + j];
      r[4 * i + j] = s;
    }
  std::memcpy(out, r, sizeof(r));
}

void groupMatrix(const ZvrsTransformGroupBlock& g, float m[16]) {
  double x = g.rotation[0], y = g.rotation[1], z = g.rotation[2], w = g.rotation[3];
  double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
                    {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
                    {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) m[4 * i + j] = float(r[i][j] * g.scale[i]);
    m[4 * i + 3] = 0;
  }
  m[12] = g.translation[0], m[13] = g.translation[1], m[14] = g.translation[2], m[15] = 1;
}

bool composeParents(std::string group, float world[16]) {
  char name[1024];
  for (int guard = 0; !group.empty() && guard < 1000; ++guard) {
    ZvrsTransformGroupBlock block;
    if (zvrsGetTransformGroup(group.c_str(), &block) != 0) return false;
    float g[16];
    groupMatrix(block, g);
    multiplyInto(world, world, g);
    name[0] = 0;
    if (zvrsGetParentGroupFromGroup(group.c_str(), sizeof(name), name, nullptr) != 0) return false;
    group = name;
  }
  return true;
}

#define CHECK(call)                                                                                 \
  do {                                                                                              \
    ZvrStatus status_ = (call);                                                                     \
    if (status_ != 0) {                                                                             \
      char text[1024] = "";                                                                         \
      if (context) zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, sizeof(text), text, nullptr); \
      std::fprintf(stderr, "%s failed with %d: %s\n", #call, status_, text);                        \
      return false;                                                                                 \
    }                                                                                               \
  } while (0)

// The same comparison through the public libraries, as the program renders.
bool apiBench(uint32_t samples, uint32_t threads, const Image& reference) {
  ZvrContext context = nullptr;
  int32_t plugin = zvrRegisterPlugin("Velder64.dll");
  if (plugin < 0) {
    std::fprintf(stderr, "Velder64 could not be registered\n");
    return false;
  }
  ZvrContextProperties props[16] = {ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT, ZvrContextProperties(threads), 0};
  CHECK(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, props, nullptr, &context));
  CHECK(zvrContextSetActivePlugin(context, plugin));
  ZvrMaterialSystem materials = nullptr;
  CHECK(zvrContextCreateMaterialSystem(context, 0, &materials));
  ZvrScene scene = nullptr;
  CHECK(zvrsImport(kScene.c_str(), context, materials, &scene, 0, nullptr));
  uint32_t count = 0;
  CHECK(zvrsListImportedShapes(nullptr, 0, &count));
  std::vector<ZvrShape> shapes(count);
  CHECK(zvrsListImportedShapes(shapes.data(), count * sizeof(ZvrShape), nullptr));
  char name[1024];
  for (ZvrShape s : shapes) {
    float m[16];
    CHECK(zvrShapeGetInfo(s, ZVR_SHAPE_TRANSFORM, sizeof(m), m, nullptr));
    name[0] = 0;
    CHECK(zvrsGetParentGroupFromShape(s, sizeof(name), name, nullptr));
    if (!composeParents(name, m)) return false;
    CHECK(zvrShapeSetTransform(s, 0, m));
  }
  CHECK(zvrsListImportedCameras(nullptr, 0, &count));
  std::vector<ZvrCamera> cameras(count);
  if (count) CHECK(zvrsListImportedCameras(cameras.data(), count * sizeof(ZvrCamera), nullptr));
  for (ZvrCamera c : cameras) {
    float m[32];
    CHECK(zvrCameraGetInfo(c, ZVR_CAMERA_TRANSFORM, sizeof(m), m, nullptr));
    name[0] = 0;
    CHECK(zvrsGetParentGroupFromCamera(c, sizeof(name), name, nullptr));
    if (!composeParents(name, m)) return false;
    CHECK(zvrCameraSetTransform(c, 0, m));
  }
  CHECK(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_MAX_DEPTH, 8));
  CHECK(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_IMAGE_FILTER_TYPE, 3));
  CHECK(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_IMAGE_FILTER_RADIUS, 1.125f));
  ZvrFramebufferDesc desc{kSize, kSize};
  ZvrFrameBuffer fb = nullptr;
  CHECK(zvrContextCreateFrameBuffer(context, ZvrFramebufferFormat{4, ZVR_COMPONENT_TYPE_FLOAT32}, &desc, &fb));
  CHECK(zvrContextSetAOV(context, 0, fb));
  auto read = [&](std::vector<float>& data) {
    data.resize(size_t(kSize) * kSize * 4);
    return zvrFrameBufferGetInfo(fb, ZVR_FRAMEBUFFER_DATA, data.size() * sizeof(float), data.data(), nullptr);
  };
  // Two halves into one framebuffer: the second half is the difference of the sums.
  CHECK(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, samples / 2));
  auto t0 = std::chrono::steady_clock::now();
  CHECK(zvrContextRender(context));
  std::vector<float> halfSums, fullSums;
  CHECK(read(halfSums));
  CHECK(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, samples - samples / 2));
  CHECK(zvrContextRender(context));
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  CHECK(read(fullSums));
  std::vector<float> secondSums(fullSums.size());
  for (size_t i = 0; i < fullSums.size(); ++i) secondSums[i] = fullSums[i] - halfSums[i];
  std::printf("library: %u samples, %u threads: %.2f M samples/s including scene updates\n", samples, threads,
              double(kSize) * kSize * samples / seconds / 1e6);
  report("library", normalize(fullSums), normalize(halfSums), normalize(secondSums), reference);

  // The first picture after a camera move: one iteration from a cleared framebuffer, accumulated
  // (hint 0) or provisional (hint 2, blocks of key 287). Best of five, the scene already built.
  CHECK(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, 1));
  for (uint32_t hint : {uint32_t(ZVR_FRAMECOUNT_ACCUMULATE), uint32_t(ZVR_FRAMECOUNT_PROVISIONAL)}) {
    CHECK(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_FRAMECOUNT, hint));
    double best = 1e30;
    for (int run = 0; run < 5; ++run) {
      CHECK(zvrFrameBufferClear(fb));
      auto start = std::chrono::steady_clock::now();
      CHECK(zvrContextRender(context));
      best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::printf("library: first picture after a restart, frame hint %u: %.1f ms\n", hint, best);
  }
  zvrsDeleteListImportedObjects(context);
  zvrObjectDelete(context);
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
  if (!readReference(reference)) return 1;
  bool ok = kernelBench(samples, threads, reference, argc > 3 ? argv[3] : nullptr);
  ok = apiBench(samples, threads, reference) && ok;
  return ok ? 0 : 1;
}
