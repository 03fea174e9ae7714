// GCC 12 reports std::regex's own internals as maybe-uninitialized when sanitizers are on.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include "render/pixel_pipeline.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <regex>

#include "program/render_settings.h"

namespace zvrs {

namespace {

float clamp01(float x) { return 0.0f > x ? 0.0f : (1.0f < x ? 1.0f : x); }

}  // namespace

bool wantsPostProcessing(const RenderSettings& settings) {
  return !(settings.postExposure == 1.0f) || !settings.postTonemap.empty() ||
         !settings.postGammaCorrection.empty() || settings.postOcioEnable == 1;
}

float parseGammaText(const std::string& text) {
  static const std::regex numberPattern("((\\+|-)?[[:digit:]]+)(\\.(([[:digit:]]+)?))?");
  if (!std::regex_match(text, numberPattern)) return 0.0f;
  return static_cast<float>(std::stod(text));
}

PlainPipeline makePlainPipeline(const RenderSettings& settings, float gamma) {
  PlainPipeline pipeline;
  pipeline.exposure = settings.postExposure;
  pipeline.acesFilmApprox = settings.postTonemap == "ACESFilmApprox";
  pipeline.linearToSrgb = settings.postGammaCorrection == "LinearTosRGB";
  pipeline.gamma = gamma;
  return pipeline;
}

float acesFilmApprox(float x) {
  x = 0.0f > x ? 0.0f : x;
  const float numerator = x * (x * 2.51f + 0.03f);
  const float denominator = (x * 2.43f + 0.59f) * x + 0.14f;
  return clamp01(numerator / denominator);
}

float linearToSrgb(float x) {
  // The branch tests the unclamped value, so negatives stay negative until quantisation.
  const float encoded = powf(clamp01(x), 0.41666666f);
  return 0.0031308f > x ? x * 12.92f : encoded * 1.055f - 0.055f;
}

void applyPlainPipeline(const PlainPipeline& pipeline, float rgb[3]) {
  for (int c = 0; c < 3; ++c) {
    float x = rgb[c] * pipeline.exposure;
    if (pipeline.acesFilmApprox) x = acesFilmApprox(x);
    if (pipeline.linearToSrgb) {
      x = linearToSrgb(x);
    } else if (pipeline.gamma != 0.0f) {
      x = powf(clamp01(x), 1.0f / pipeline.gamma);
    }
    rgb[c] = x;
  }
}

uint8_t quantiseChannel(float x) {
  const float scaled = x * 255.0f;
  // Out-of-range conversion yields the integer minimum, as the hardware truncation does.
  int32_t truncated = std::numeric_limits<int32_t>::min();
  if (scaled >= -2147483648.0f && scaled < 2147483648.0f) truncated = static_cast<int32_t>(scaled);
  const float asFloat = static_cast<float>(truncated);
  if (0.0f > asFloat) return 0;
  return static_cast<uint8_t>(std::min(255.0f, asFloat));
}

}  // namespace zvrs
