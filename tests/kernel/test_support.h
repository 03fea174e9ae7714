// Scenes, framebuffers and a host for driving the kernel and the plug-ins directly in tests.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/plugin_api.h"

namespace zvr::test {

// A framebuffer that keeps sums (addIteration) or running averages (averageIteration).
class TestTarget : public FrameBufferTarget {
 public:
  TestTarget(uint32_t w, uint32_t h) : w_(w), h_(h), data_(size_t(w) * h * 4, 0.0f) {}
  uint32_t width() const override { return w_; }
  uint32_t height() const override { return h_; }
  void addIteration(const float* rgba) override;
  void averageIteration(const float* rgba) override;
  uint32_t iterations() const override { return iterations_; }
  std::string lightPathExpression() const override { return expression; }
  void clear();
  // RGB divided by A (sums), or as stored (averages).
  std::vector<float> normalized() const;
  const std::vector<float>& raw() const { return data_; }
  int adds = 0, averages = 0;
  std::string expression;  // the light path expression, for lpe AOVs

 private:
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

Matrix4 translation(float x, float y, float z);
// Camera-to-world looking from `eye` towards `target` with +y up.
Matrix4 lookAt(float ex, float ey, float ez, float tx, float ty, float tz);

std::shared_ptr<MaterialData> diffuseMaterial(float r, float g, float b);
ShapeData shape(uint64_t id, std::shared_ptr<const MeshData> mesh, std::shared_ptr<const MaterialData> material,
                Matrix4 transform = Matrix4{});
LightData environmentLight(float radiance);
LightData pointLight(float x, float y, float z, float intensity);

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

}  // namespace zvr::test
