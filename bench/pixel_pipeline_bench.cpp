// Cost of the program's own saving road: the plain pixel pipeline and OpenColorIO per full-HD
// image, the processor set-up that is repeated per image, and the PNG encoding.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "render/image_conversion.h"
#include "render/png_writer.h"
#include "program/render_settings.h"

using namespace zvrs;

namespace {

const uint32_t kWidth = 1920;
const uint32_t kHeight = 1080;

std::vector<float> gradient() {
  std::vector<float> rgba(size_t(kWidth) * kHeight * 4);
  for (size_t i = 0; i < rgba.size(); ++i) rgba[i] = float(i % 4096) / 1024.0f;
  return rgba;
}

std::string writeConfig() {
  const std::string path = "/tmp/zvrs_bench_" + std::to_string(getpid()) + ".ocio";
  std::ofstream(path) << "ocio_profile_version: 2\nroles:\n  default: linear\n  scene_linear: linear\n"
                         "displays:\n  sRGB:\n    - !<View> {name: Gamma, colorspace: display}\n"
                         "colorspaces:\n  - !<ColorSpace>\n    name: linear\n"
                         "  - !<ColorSpace>\n    name: display\n"
                         "    from_scene_reference: !<ExponentTransform> {value: [0.4545, 0.4545, 0.4545, 1]}\n";
  return path;
}

void plainPipeline(benchmark::State& state) {
  const std::vector<float> pixels = gradient();
  RenderSettings settings;
  settings.postExposure = 1.5f;
  settings.postTonemap = "ACESFilmApprox";
  settings.postGammaCorrection = "LinearTosRGB";
  for (auto _ : state) {
    benchmark::DoNotOptimize(convertPixelsForSettings(pixels.data(), kWidth * kHeight, settings, 0.0f, ""));
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void ocioPipeline(benchmark::State& state) {
  const std::vector<float> pixels = gradient();
  const std::string config = writeConfig();
  RenderSettings settings;
  settings.postExposure = 1.5f;
  settings.postOcioEnable = 1;
  settings.postOcioSrc = "linear";
  settings.postOcioDisplay = "sRGB";
  settings.postOcioView = "Gamma";
  for (auto _ : state) {
    benchmark::DoNotOptimize(convertPixelsForSettings(pixels.data(), kWidth * kHeight, settings, 2.2f, config));
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
  std::remove(config.c_str());
}

void ocioProcessorSetUp(benchmark::State& state) {
  const std::string config = writeConfig();
  RenderSettings settings;
  settings.postOcioSrc = "linear";
  settings.postOcioDisplay = "sRGB";
  settings.postOcioView = "Gamma";
  for (auto _ : state) benchmark::DoNotOptimize(buildOcioProcessor(config, settings, 2.2f));
  std::remove(config.c_str());
}

void pngWrite(benchmark::State& state) {
  std::vector<uint8_t> rgb(size_t(kWidth) * kHeight * 3);
  for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = uint8_t((i * 7) >> 4);
  const std::string path = "/tmp/zvrs_bench_" + std::to_string(getpid()) + ".png";
  for (auto _ : state) benchmark::DoNotOptimize(writePngRgb8(path.c_str(), kWidth, kHeight, rgb.data()));
  state.SetBytesProcessed(state.iterations() * int64_t(rgb.size()));
  std::remove(path.c_str());
}

}  // namespace

BENCHMARK(plainPipeline)->Unit(benchmark::kMillisecond);
BENCHMARK(ocioPipeline)->Unit(benchmark::kMillisecond);
BENCHMARK(ocioProcessorSetUp)->Unit(benchmark::kMillisecond);
BENCHMARK(pngWrite)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
