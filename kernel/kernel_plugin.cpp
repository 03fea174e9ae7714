#include "kernel/kernel_plugin.h"

#include <tbb/blocked_range2d.h>
#include <tbb/parallel_for.h>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <chrono>
#include <new>

#include "engine/ZvrCore.h"
#include "kernel/aov.h"
#include "kernel/filter.h"

namespace zvr::kernel {
namespace {

void onDeviceError(void* user, RTCError code, const char* text) {
  auto* errors = static_cast<DeviceErrors*>(user);
  std::lock_guard<std::mutex> lock(errors->mutex);
  if (!errors->text.empty()) errors->text += "; ";
  errors->text += "ray tracing device error " + std::to_string(int(code)) + (text ? std::string(": ") + text : std::string());
}

// Everything a light set is built from, flattened, to notice changes made without a new revision.
std::vector<float> lightSignature(const SceneSnapshot& snap) {
  std::vector<float> s;
  for (const LightData& l : snap.lights) {
    s.push_back(float(l.id));
    s.push_back(float(uint32_t(l.type)));
    s.insert(s.end(), l.transform.m, l.transform.m + 16);
    s.insert(s.end(), l.radiance, l.radiance + 3);
    s.push_back(l.innerCone);
    s.push_back(l.outerCone);
    uint64_t image = l.image ? l.image->id + 1 : 0;
    s.push_back(float(uint32_t(image)));
    s.push_back(float(uint32_t(image >> 32)));
  }
  return s;
}

double millisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

KernelPlugin::KernelPlugin() {
  device_ = rtcNewDevice(nullptr);
  if (device_) {
    rtcSetDeviceErrorFunction(device_, onDeviceError, &errors_);
    scene_ = std::make_unique<Scene>(device_, &errors_);
  }
}

KernelPlugin::~KernelPlugin() {
  scene_.reset();
  if (device_) rtcReleaseDevice(device_);
}

bool KernelPlugin::includeShape(const ShapeData& shape, const RenderParams&) const { return shape.visible; }

bool KernelPlugin::validate(const RenderRequest& r, std::string* error) const {
  auto fail = [&](const std::string& text) {
    if (error) *error = text;
    return false;
  };
  if (!r.scene || !r.params) return fail("render request without a scene or parameters");
  if (!r.host) return fail("render request without a host");
  if (r.width == 0 || r.height == 0) return fail("render target size " + std::to_string(r.width) + "x" + std::to_string(r.height) + " is empty");
  if (!r.scene->hasCamera) return fail("the scene has no camera to render from");
  auto finite = [](const float* v, int n) {
    for (int i = 0; i < n; ++i)
      if (!std::isfinite(v[i])) return false;
    return true;
  };
  const CameraData& cam = r.scene->camera;
  if (!finite(cam.transform.m, 16)) return fail("the camera transform holds a value that is not finite");
  if (cam.mode != kModePlain && cam.mode != kModeLatLong && cam.mode != kModeStereoLatLong && cam.mode != kModeFisheye)
    return fail("camera mode " + std::to_string(cam.mode) + " is not one of 0 (plain), 3 (lat-long), 4 (stereo lat-long), 7 (fisheye)");
  if (cam.type > 1) return fail("camera type " + std::to_string(cam.type) + " is neither perspective (0) nor orthographic (1)");
  if (cam.type == 0 && !(cam.fovY > 0 && cam.fovY < kPi))
    return fail("camera field of view " + std::to_string(cam.fovY) + " is not between 0 and pi radians");
  if (cam.type == 1 && !(cam.orthoHeight > 0 && std::isfinite(cam.orthoHeight)))
    return fail("orthographic camera height " + std::to_string(cam.orthoHeight) + " is not a positive number");
  if (!(cam.postScale > 0 && std::isfinite(cam.postScale)))
    return fail("camera post scale " + std::to_string(cam.postScale) + " is not a positive number");
  Camera probe(cam, r.width, r.height);
  if (!probe.hasBasis()) return fail("the camera transform collapses an axis, so the camera has no view direction");
  if (!(probe.originReach() <= kMaxTraceableCoordinate))
    return fail("the camera's rays start at coordinate " + formatCoordinate(probe.originReach()) +
                ", beyond the ray tracer's range of +-" + formatCoordinate(kMaxTraceableCoordinate));
  for (const auto& s : r.scene->shapes)
    if (!finite(s.transform.m, 16)) return fail("shape " + std::to_string(s.id) + ": transform holds a value that is not finite");
  for (const auto& l : r.scene->lights) {
    if (!finite(l.transform.m, 16)) return fail("light " + std::to_string(l.id) + ": transform holds a value that is not finite");
    if (!finite(l.radiance, 3)) return fail("light " + std::to_string(l.id) + ": radiance is not finite");
  }
  const RenderParams& p = *r.params;
  if (p.imageFilterType > 6) return fail("image filter type " + std::to_string(p.imageFilterType) + " is not one of 0 to 6");
  if (!(p.imageFilterRadius > 0) || !std::isfinite(p.imageFilterRadius))
    return fail("image filter radius " + std::to_string(p.imageFilterRadius) + " is not a positive number");
  for (const auto& t : r.targets) {
    if (!t.target) return fail("AOV " + std::to_string(t.aov) + " is bound to no framebuffer");
    if (t.target->width() != r.width || t.target->height() != r.height)
      return fail("framebuffer of AOV " + std::to_string(t.aov) + " is " + std::to_string(t.target->width()) + "x" +
                  std::to_string(t.target->height()) + ", the colour target is " + std::to_string(r.width) + "x" +
                  std::to_string(r.height));
    std::string why;
    if (!supportsAov(t.aov, &why)) return fail(why);
  }
  return checkRequest(r, error);
}

int32_t KernelPlugin::render(const RenderRequest& request, std::string* error) {
  try {
    return renderChecked(request, error);
  } catch (const std::bad_alloc&) {
    if (error) *error = std::string(name()) + ": out of memory while rendering";
    return ZVR_ERROR_OUT_OF_MEMORY;
  } catch (const std::exception& e) {
    if (error) *error = std::string(name()) + ": " + e.what();
    return ZVR_ERROR_INTERNAL;
  }
}

int32_t KernelPlugin::renderChecked(const RenderRequest& request, std::string* error) {
  if (!device_) {
    if (error) *error = std::string(name()) + ": the ray tracing device could not be created";
    return ZVR_ERROR_INTERNAL;
  }
  if (!validate(request, error)) return ZVR_ERROR_INVALID_ARGUMENT;
  const SceneSnapshot& snap = *request.scene;
  const RenderParams& params = *request.params;

  // TBB warns on standard error when an arena asks for more workers than it allows: never ask.
  const uint32_t allowed = uint32_t(std::max<size_t>(
      1, tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism)));
  const uint32_t threads = params.threadCount > 0 ? std::min(params.threadCount, allowed) : allowed;
  // The scene update runs in the render's arena too, so BVH builds and texture preparation keep to
  // the threads the context was given.
  tbb::task_arena arena{int(threads)};

  auto updateStart = std::chrono::steady_clock::now();
  auto include = [&](const ShapeData& s) { return includeShape(s, params); };
  bool updated = false;
  arena.execute([&] {
    updated = scene_->update(snap, params, textureBudgetScale(params), include, error);
    if (!updated) return;
    // Emissive triangles belong to the lights, so a changed scene rebuilds them as well.
    std::vector<float> signature = lightSignature(snap);
    if (!lightsBuilt_ || snap.lightRevision != lightRevision_ || scene_->version() != lightSceneVersion_ ||
        signature != lightSignature_) {
      lightSignature_ = std::move(signature);
      lights_.build(snap, *scene_);
      lightsBuilt_ = true;
      lightRevision_ = snap.lightRevision;
      lightSceneVersion_ = scene_->version();
    }
  });
  if (!updated) return ZVR_ERROR_INVALID_ARGUMENT;
  request.host->reportUpdateTime(float(millisecondsSince(updateStart)));

  Camera camera(snap.camera, request.width, request.height);
  LightPaths lightPaths;
  if (!lightPaths.setUp(request.targets, snap, error)) return ZVR_ERROR_INVALID_ARGUMENT;
  IntegratorSettings settings = integratorSettings(params, request.targets);
  settings.lightPaths = &lightPaths;
  PathIntegrator integrator(*scene_, lights_, camera, params, settings);
  Film film(request.targets, request.width, request.height, params.indexColors);
  cryptomatte_.begin(request.targets, snap, request.width, request.height);

  raysTraced_ = 0;
  uint32_t done = 0;
  for (uint32_t i = 0; i < request.iterations; ++i) {
    if (request.host->abortRequested()) break;
    auto start = std::chrono::steady_clock::now();
    film.clear();
    renderIteration(request, integrator, request.firstSampleIndex + i, film, cryptomatte_, arena);
    ++done;
    if (request.previewBlock > 1) film.spreadBlocks(request.previewBlock);
    drawOverIteration(*scene_, camera, params, request.firstSampleIndex + i, film, arena);
    if (averagedFramebuffers()) film.commitAverages();
    else film.commitSums();
    writeVariance(request, film);
    if (i == 0) request.host->reportFirstIterationTime(float(millisecondsSince(start)));
    request.host->reportProgress(float(i + 1) / float(request.iterations));
  }
  // Ranking sorts every pixel's ids, so it runs once per call rather than per iteration.
  if (done > 0) cryptomatte_.commit(done);
  return 0;
}

void KernelPlugin::renderIteration(const RenderRequest& request, const PathIntegrator& integrator, uint64_t sampleIndex,
                                   Film& film, CryptomatteFilm& crypto, tbb::task_arena& arena) const {
  const RenderParams& params = *request.params;
  FilterSampler filter(params.imageFilterType, params.imageFilterRadius);
  // Pixels go to the integrator in 4x4 blocks on a grid fixed to the image, so a pixel shares its
  // packets with the same neighbours whatever the tiles and threads.
  constexpr uint32_t kBlock = 4;
  static_assert(kBlock * kBlock == kPacketSize, "a block fills one packet");
  uint32_t w = request.width, h = request.height;
  // A provisional picture takes one sample per cell of `cell` x `cell` pixels, box-filtered over
  // the cell and stored at its first pixel; the cells then take the place of pixels below.
  const uint32_t cell = std::max(1u, request.previewBlock);
  const uint32_t cellsW = (w + cell - 1) / cell, cellsH = (h + cell - 1) / cell;
  // A tile wider than the image is the image; clamping first keeps huge or infinite sides from
  // wrapping around in 32 bits (a grain of zero would split the range forever).
  auto tileSide = [](float side, uint32_t image) { return side >= 1 ? uint32_t(std::min(side, float(image))) : 32u; };
  uint32_t tileW = tileSide(params.tileSize[0], w), tileH = tileSide(params.tileSize[1], h);
  uint32_t blocksX = (cellsW + kBlock - 1) / kBlock, blocksY = (cellsH + kBlock - 1) / kBlock;
  uint32_t grainX = (std::max(1u, tileW / cell) + kBlock - 1) / kBlock, grainY = (std::max(1u, tileH / cell) + kBlock - 1) / kBlock;
  uint32_t sampleLow = uint32_t(sampleIndex), sampleHigh = uint32_t(sampleIndex >> 32);
  auto body = [&](const tbb::blocked_range2d<uint32_t>& range) {
    FilmPoint points[kPacketSize];
    std::vector<Sampler> samplers;
    samplers.reserve(kPacketSize);
    Sampler* lanes[kPacketSize];
    float weights[kPacketSize];
    uint32_t px[kPacketSize], py[kPacketSize];
    SampleResult results[kPacketSize];
    uint64_t rays = 0;
    for (uint32_t by = range.rows().begin(); by < range.rows().end(); ++by)
      for (uint32_t bx = range.cols().begin(); bx < range.cols().end(); ++bx) {
        samplers.clear();
        int count = 0;
        const uint32_t blockSeed = hashCombine(hashCombine(hashCombine(0x5bd1e995u, bx), by), sampleHigh);
        for (uint32_t cy = by * kBlock; cy < std::min(cellsH, (by + 1) * kBlock); ++cy)
          for (uint32_t cx = bx * kBlock; cx < std::min(cellsW, (bx + 1) * kBlock); ++cx, ++count) {
            // Any order of the ranks will do: each dimension pair deals them out by its own permutation.
            samplers.emplace_back(blockSeed, sampleLow, (cy % kBlock) * kBlock + cx % kBlock);
            lanes[count] = &samplers.back();
            px[count] = cx * cell;
            py[count] = cy * cell;
          }
        Sampler::drawAhead(lanes, count, 1);
        for (int k = 0; k < count; ++k) {
          const uint32_t x = px[k], y = py[k];
          auto u = samplers[k].get2D();
          if (cell == 1) {
            FilterSampler::Sample fs = filter.sample(u.first, u.second);
            points[k] = {float(x) + 0.5f + fs.dx, float(y) + 0.5f + fs.dy};
            weights[k] = fs.weight;
          } else {
            points[k] = {float(x) + u.first * float(std::min(cell, w - x)), float(y) + u.second * float(std::min(cell, h - y))};
            weights[k] = 1;
          }
        }
        integrator.traceBatch(points, samplers.data(), results, count);
        for (int k = 0; k < count; ++k) {
          film.addSample(px[k], py[k], weights[k], results[k]);
          if (crypto.active()) crypto.addSample(px[k], py[k], weights[k], results[k].shape);
          rays += results[k].rays;
        }
      }
    raysTraced_ += rays;
  };
  arena.execute([&] {
    tbb::parallel_for(tbb::blocked_range2d<uint32_t>(0, blocksY, grainY, 0, blocksX, grainX), body,
                      tbb::simple_partitioner());
  });
}

void KernelPlugin::writeVariance(const RenderRequest& request, const Film& film) {
  FrameBufferTarget* target = nullptr;
  for (const auto& t : request.targets)
    if (t.aov == kAovVariance) target = t.target;
  if (!target) return;
  size_t pixels = size_t(request.width) * request.height;
  if (target->iterations() == 0 || sum_.size() != pixels * 3) {
    sum_.assign(pixels * 3, 0);
    sumSq_.assign(pixels * 3, 0);
    previousVariance_.assign(pixels * 3, 0);
    varianceCount_ = 0;
  }
  ++varianceCount_;
  double n = varianceCount_;
  std::vector<float> out(pixels * 4);
  const auto& c = film.colorSums();
  for (size_t i = 0; i < pixels; ++i) {
    float w = c[4 * i + 3];
    for (int k = 0; k < 3; ++k) {
      double v = w != 0 ? c[4 * i + k] / w : 0;
      sum_[3 * i + k] += v;
      sumSq_[3 * i + k] += v * v;
      double mean = sum_[3 * i + k] / n;
      double var = n > 1 ? std::max(0.0, (sumSq_[3 * i + k] - n * mean * mean) / (n - 1)) : 0;
      // The target keeps a running average of what it is given; this value makes that average the variance.
      out[4 * i + k] = float(n * var - (n - 1) * previousVariance_[3 * i + k]);
      previousVariance_[3 * i + k] = float(var);
    }
    out[4 * i + 3] = 1;
  }
  target->averageIteration(out.data());
}

}  // namespace zvr::kernel
