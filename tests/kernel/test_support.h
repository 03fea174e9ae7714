// Scenes, framebuffers, a host and a ray tracing fixture for driving the kernel and the plug-ins
// directly in tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "core/plugin_api.h"
#include "kernel/lights.h"
#include "kernel/scene.h"

namespace zvr::test {

// A framebuffer that keeps sums (addIteration) or running averages (averageIteration).
class TestTarget : public FrameBufferTarget {
 public:
  TestTarget(uint32_t w, uint32_t h) : w_(w), h_(h), data_(size_t(w) * h * 4, 0.0f) {}
  uint32_t width() const override { return w_; }
  uint32_t height() const override { return h_; }
  void addIteration(const float* rgba) override { accumulate(rgba, false); }
  void averageIteration(const float* rgba) override { accumulate(rgba, true); }
  uint32_t iterations() const override { return iterations_; }
  std::string lightPathExpression() const override { return expression; }
  // RGB divided by A (sums), or as stored (averages).
  std::vector<float> normalized() const;
  const std::vector<float>& raw() const { return data_; }
  int adds = 0, averages = 0;
  std::string expression;  // the light path expression, for lpe AOVs

 private:
  void accumulate(const float* rgba, bool average);
  uint32_t w_, h_;
  std::vector<float> data_;
  uint32_t iterations_ = 0;
  mutable std::mutex mutex_;
};

class TestHost : public RenderHost {
 public:
  void reportProgress(float f) override { progress.push_back(f); }
  void reportUpdateTime(float ms) override { updateTimes.push_back(ms); }
  void reportFirstIterationTime(float ms) override { firstIterationTimes.push_back(ms); }
  bool abortRequested() const override { return abortAfter >= 0 && int(progress.size()) >= abortAfter; }
  std::vector<float> progress, updateTimes, firstIterationTimes;
  int abortAfter = -1;  // ask to abort once this many iterations reported progress
};

std::shared_ptr<MeshData> makeSphere(float radius, int segments = 48, int rings = 24);
// A square in the xz-plane at height y facing +y, of the given half size.
std::shared_ptr<MeshData> makeQuad(float halfSize, float y = 0);

inline Matrix4 translation(float x, float y, float z) {
  Matrix4 m;
  m.m[12] = x;
  m.m[13] = y;
  m.m[14] = z;
  return m;
}

// Turned upside down (facing -y) and lifted to height y.
inline Matrix4 facingDown(float y) {
  Matrix4 m;
  m.m[5] = m.m[10] = -1;
  m.m[13] = y;
  return m;
}

// Camera-to-world looking from `eye` towards `target` with +y up.
Matrix4 lookAt(float ex, float ey, float ez, float tx, float ty, float tz);

inline std::shared_ptr<MaterialData> material(float metallic, float roughness, float transmission = 0) {
  auto m = std::make_shared<MaterialData>();
  m->metallic = metallic;
  m->roughness = roughness;
  m->transmission = transmission;
  return m;
}

inline std::shared_ptr<MaterialData> diffuseMaterial(float r, float g, float b) {
  auto m = material(0, 1);
  m->baseColor[0] = r;
  m->baseColor[1] = g;
  m->baseColor[2] = b;
  m->specular = 0;
  return m;
}

inline std::shared_ptr<MaterialData> emitter(float radiance) {
  auto m = diffuseMaterial(0, 0, 0);
  m->emissive[0] = m->emissive[1] = m->emissive[2] = radiance;
  return m;
}

inline std::shared_ptr<ImageData> image(uint32_t w, uint32_t h, uint32_t channels, std::vector<float> pixels,
                                        ColorSpace space = ColorSpace::Linear, uint64_t id = 1) {
  return std::make_shared<ImageData>(ImageData{id, w, h, channels, space, std::move(pixels)});
}

inline ShapeData shape(uint64_t id, std::shared_ptr<const MeshData> mesh, std::shared_ptr<const MaterialData> material,
                       Matrix4 transform = Matrix4{}) {
  ShapeData s;
  s.id = id;
  s.mesh = std::move(mesh);
  s.material = std::move(material);
  s.transform = transform;
  return s;
}

// A white light of the given strength.
inline LightData light(uint64_t id, LightType type, const Matrix4& transform, float strength) {
  LightData l;
  l.id = id;
  l.type = type;
  l.transform = transform;
  l.radiance[0] = l.radiance[1] = l.radiance[2] = strength;
  return l;
}

inline LightData environmentLight(float radiance) { return light(1000, LightType::Environment, Matrix4{}, radiance); }

inline LightData pointLight(float x, float y, float z, float intensity) {
  return light(1001, LightType::Point, translation(x, y, z), intensity);
}

// A perspective camera at the eye looking at the target, and an orthographic camera looking straight
// down from height y onto the origin.
inline CameraData cameraAt(float ex, float ey, float ez, float tx, float ty, float tz, float fovY = CameraData{}.fovY) {
  CameraData camera;
  camera.transform = lookAt(ex, ey, ez, tx, ty, tz);
  camera.fovY = fovY;
  return camera;
}

inline CameraData orthoDown(float y, float orthoHeight) {
  CameraData camera;
  camera.type = 1;
  camera.orthoHeight = orthoHeight;
  camera.transform = lookAt(0, y, 0, 0, 0, 0);
  return camera;
}

// A scene of these shapes and lights, seen by `camera` when one is given.
inline SceneSnapshot sceneOf(std::vector<ShapeData> shapes, std::vector<LightData> lights = {},
                             std::optional<CameraData> camera = std::nullopt) {
  SceneSnapshot scene;
  scene.shapes = std::move(shapes);
  scene.lights = std::move(lights);
  scene.hasCamera = camera.has_value();
  if (camera) scene.camera = *camera;
  return scene;
}

// Plastic and glass spheres on a floor (ids 7, 8, 9; material 11 and mesh 70 and group 700 on the
// first; the floor named "floor") lit by the sky (light group 0), a point light named "key" (group
// 12) and an emissive sphere (group 5). `diffuseOnly` makes the spheres diffuse.
SceneSnapshot mixedScene(bool diffuseOnly = false);
// A pixel box filter: positions and radiance average over the same area.
inline RenderParams boxFilter() {
  RenderParams params;
  params.imageFilterType = 0;
  return params;
}

inline float meanChannel(const std::vector<float>& rgba, int channel) {
  double s = 0;
  for (size_t i = channel; i < rgba.size(); i += 4) s += rgba[i];
  return float(s / (rgba.size() / 4));
}

// Uniform numbers in [0, 1) from a fixed seed.
struct Uniform {
  explicit Uniform(uint32_t seed) : rng(seed) {}
  float operator()() { return dist(rng); }

  std::mt19937 rng;
  std::uniform_real_distribution<float> dist{0.0f, 0x1.fffffep-1f};
};

// Renders `iterations` iterations into fresh targets for each AOV; returns the plug-in's status.
// `expressions[i]`, where given, is the light path expression of the i-th target.
struct RenderOutput {
  int32_t status = 0;
  std::string error;
  std::vector<std::unique_ptr<TestTarget>> targets;
  TestHost host;
  std::vector<float> image(size_t i = 0) const { return targets[i]->normalized(); }
};
RenderOutput renderWith(RenderPlugin& plugin, const SceneSnapshot& scene, const RenderParams& params, uint32_t width,
                        uint32_t height, uint32_t iterations, const std::vector<uint32_t>& aovs, uint64_t firstSample = 0,
                        const std::vector<std::string>& expressions = {});

// Renders with `plugin` (Velder when none) and returns each AOV's image; a refused render fails
// the test and leaves the images black.
std::vector<std::vector<float>> render(const SceneSnapshot& scene, const RenderParams& params, uint32_t width,
                                       uint32_t height, uint32_t iterations, const std::vector<uint32_t>& aovs,
                                       RenderPlugin* plugin = nullptr);

// The images of targets `parts` add up to that of `whole`, pixel by pixel, and none stays black.
void expectSum(const RenderOutput& out, const std::vector<size_t>& parts, size_t whole, const char* what);

// A ray tracing device with one scene and its lights on it, for tests below the plug-ins.
class KernelTest : public ::testing::Test {
 protected:
  KernelTest() : device_(rtcNewDevice(nullptr)) { reset(); }
  ~KernelTest() override {
    scene_.reset();
    rtcReleaseDevice(device_);
  }
  void reset() { scene_ = std::make_unique<kernel::Scene>(device_, &errors_); }
  ::testing::AssertionResult build(
      const SceneSnapshot& snap, const RenderParams& params = {}, float textureBudgetScale = 1,
      const std::function<bool(const ShapeData&)>& include = [](const ShapeData& s) { return s.visible; }) {
    std::string error;
    if (!scene_->update(snap, params, textureBudgetScale, include, &error)) {
      return ::testing::AssertionFailure() << error;
    }
    lights_.build(snap, *scene_);
    return ::testing::AssertionSuccess();
  }

  RTCDevice device_;
  kernel::DeviceErrors errors_;
  std::unique_ptr<kernel::Scene> scene_;
  kernel::LightSet lights_;
};

}  // namespace zvr::test
