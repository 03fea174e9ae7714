// The shared base of the render plug-ins: owns the ray tracing device and the scene, and runs
// iterations over tiles on a thread arena; a family supplies its integrator choice and filters.
#pragma once

#include <tbb/task_arena.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "kernel/cryptomatte_film.h"
#include "kernel/film.h"
#include "kernel/lights.h"
#include "kernel/path_integrator.h"
#include "kernel/scene.h"

namespace zvr::kernel {

class KernelPlugin : public RenderPlugin {
 public:
  KernelPlugin();
  ~KernelPlugin() override;
  int32_t render(const RenderRequest& request, std::string* error) override;
  // Rays traced by the last render call (camera, bounce, shadow and AO rays).
  uint64_t raysTraced() const { return raysTraced_.load(); }

 protected:
  virtual IntegratorSettings integratorSettings(const RenderParams& params, const std::vector<AovTarget>& targets) const = 0;
  // Which shapes are rendered; the base renders the visible ones.
  virtual bool includeShape(const ShapeData& shape, const RenderParams& params) const;
  // Preview plug-ins keep final averages (weight 1) instead of sums.
  virtual bool averagedFramebuffers() const { return false; }
  // Fraction of the texture memory limit this family may use.
  virtual float textureBudgetScale(const RenderParams&) const { return 1; }
  // Draws over an iteration's film before it is committed (the contour lines); `arena` is the
  // render's thread arena.
  virtual void drawOverIteration(const Scene&, const Camera&, const RenderParams&, uint64_t /*sampleIndex*/, Film&,
                                 tbb::task_arena&) const {}
  // Checks family-specific settings before rendering; false with `error` set.
  virtual bool checkRequest(const RenderRequest&, std::string*) const { return true; }

 private:
  int32_t renderChecked(const RenderRequest& request, std::string* error);
  bool validate(const RenderRequest& request, std::string* error) const;
  void renderIteration(const RenderRequest& request, const PathIntegrator& integrator, uint64_t sampleIndex, Film& film,
                       CryptomatteFilm& crypto, tbb::task_arena& arena) const;
  void writeVariance(const RenderRequest& request, const Film& film);

  RTCDevice device_ = nullptr;
  DeviceErrors errors_;
  std::unique_ptr<Scene> scene_;
  mutable std::atomic<uint64_t> raysTraced_{0};
  LightSet lights_;
  bool lightsBuilt_ = false;
  uint64_t lightRevision_ = 0, lightSceneVersion_ = 0;
  std::vector<float> lightSignature_;
  // Running moments of colour for the variance AOV.
  std::vector<double> sum_, sumSq_;
  uint32_t varianceCount_ = 0;
  std::vector<float> previousVariance_;
  // Coverage per id and pixel for the cryptomatte ranks, kept across render calls.
  CryptomatteFilm cryptomatte_;
};

}  // namespace zvr::kernel
