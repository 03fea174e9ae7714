#include "core/post_effect.h"

#include <algorithm>
#include <cmath>

#include "core/failure.h"

namespace zvr::core {

const char* postEffectTypeName(uint32_t type) {
  switch (type) {
    case ZVR_POST_EFFECT_TONE_MAP: return "tonemap";
    case ZVR_POST_EFFECT_WHITE_BALANCE: return "whitebalance";
    case ZVR_POST_EFFECT_SIMPLE_TONEMAP: return "simpletonemap";
    case ZVR_POST_EFFECT_NORMALIZATION: return "normalization";
    case ZVR_POST_EFFECT_GAMMA_CORRECTION: return "gammacorrection";
    case ZVR_POST_EFFECT_BLOOM: return "bloom";
  }
  return "unknown";
}

PostEffect::PostEffect(Context* context, uint32_t type) : Object(ZVR_OBJECT_POST_EFFECT, context), type_(type) {
  switch (type) {
    case ZVR_POST_EFFECT_TONE_MAP: parameters_ = {{"exposure", 0.0f}}; break;
    case ZVR_POST_EFFECT_WHITE_BALANCE: parameters_ = {{"temperature", 6500.0f}}; break;
    case ZVR_POST_EFFECT_SIMPLE_TONEMAP: parameters_ = {{"exposure", 0.0f}, {"contrast", 1.0f}}; break;
    case ZVR_POST_EFFECT_BLOOM: parameters_ = {{"threshold", 1.0f}, {"radius", 8.0f}, {"weight", 0.1f}}; break;
    case ZVR_POST_EFFECT_NORMALIZATION:
    case ZVR_POST_EFFECT_GAMMA_CORRECTION: break;
    default: fail(ZVR_ERROR_INVALID_ARGUMENT, "post effect type " + std::to_string(type) + " is not 0 to 5");
  }
}

constexpr float kLargestBloomRadius = 4096;

void PostEffect::setParameter(const std::string& name, float value) {
  for (auto& parameter : parameters_) {
    if (parameter.first != name) continue;
    if (!std::isfinite(value)) fail(ZVR_ERROR_INVALID_ARGUMENT, "post effect parameter \"" + name + "\" is not finite");
    if (name == "temperature" && !(value >= 1000 && value <= 40000))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "temperature " + std::to_string(value) + " K is not between 1000 and 40000");
    if ((name == "radius" || name == "weight" || name == "contrast") && value < 0)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "post effect parameter \"" + name + "\" must not be negative");
    // The blur kernel is as wide as the radius in pixels; beyond this it only burns time, and
    // beyond 2^30 its width no longer fits an int.
    if (name == "radius" && value > kLargestBloomRadius)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "bloom radius " + std::to_string(value) + " is more than 4096 pixels");
    parameter.second = value;
    return;
  }
  fail(ZVR_ERROR_UNKNOWN_KEY, std::string(postEffectTypeName(type_)) + " post effect has no parameter \"" + name + "\"");
}

float PostEffect::parameter(const std::string& name) const {
  for (const auto& parameter : parameters_)
    if (parameter.first == name) return parameter.second;
  fail(ZVR_ERROR_UNKNOWN_KEY, std::string(postEffectTypeName(type_)) + " post effect has no parameter \"" + name + "\"");
}

void PostEffect::apply(ImageView image, float displayGamma) const {
  switch (type_) {
    case ZVR_POST_EFFECT_TONE_MAP: filmicToneMap(image, parameter("exposure")); break;
    case ZVR_POST_EFFECT_WHITE_BALANCE: whiteBalance(image, parameter("temperature")); break;
    case ZVR_POST_EFFECT_SIMPLE_TONEMAP: simpleToneMap(image, parameter("exposure"), parameter("contrast")); break;
    case ZVR_POST_EFFECT_NORMALIZATION: normalizeByWeight(image); break;
    case ZVR_POST_EFFECT_GAMMA_CORRECTION: gammaEncode(image, displayGamma); break;
    case ZVR_POST_EFFECT_BLOOM: bloom(image, parameter("threshold"), parameter("radius"), parameter("weight")); break;
  }
}

namespace {

size_t pixelCount(ImageView image) { return size_t(image.width) * image.height; }

template <class F>
void forEachRgb(ImageView image, F&& f) {
  for (size_t i = 0; i < pixelCount(image); ++i)
    for (int c = 0; c < 3; ++c) image.rgba[i * 4 + c] = f(image.rgba[i * 4 + c], c);
}

}  // namespace

void normalizeByWeight(ImageView image) {
  for (size_t i = 0; i < pixelCount(image); ++i) {
    float* p = image.rgba + i * 4;
    if (p[3] > 0) {
      p[0] /= p[3];
      p[1] /= p[3];
      p[2] /= p[3];
      p[3] = 1;
    }
  }
}

void filmicToneMap(ImageView image, float exposure) {
  const float scale = std::exp2(exposure);
  forEachRgb(image, [&](float v, int) {
    const float x = std::max(v, 0.0f) * scale;
    return std::clamp((x * (2.51f * x + 0.03f)) / (x * (2.43f * x + 0.59f) + 0.14f), 0.0f, 1.0f);
  });
}

void simpleToneMap(ImageView image, float exposure, float contrast) {
  const float scale = std::exp2(exposure);
  forEachRgb(image, [&](float v, int) {
    const float x = std::pow(std::max(v, 0.0f) * scale, contrast);
    return x / (1 + x);
  });
}

void blackBodyRgb(float kelvin, float rgb[3]) {
  const double t = std::clamp(double(kelvin), 1667.0, 25000.0);
  const double t2 = t * t, t3 = t2 * t;
  const double x = t <= 4000 ? -0.2661239e9 / t3 - 0.2343589e6 / t2 + 0.8776956e3 / t + 0.179910
                             : -3.0258469e9 / t3 + 2.1070379e6 / t2 + 0.2226347e3 / t + 0.240390;
  const double x2 = x * x, x3 = x2 * x;
  const double y = t <= 2222   ? -1.1063814 * x3 - 1.34811020 * x2 + 2.18555832 * x - 0.20219683
                   : t <= 4000 ? -0.9549476 * x3 - 1.37418593 * x2 + 2.09137015 * x - 0.16748867
                               : 3.0817580 * x3 - 5.87338670 * x2 + 3.75112997 * x - 0.37001483;
  const double X = x / y, Y = 1.0, Z = (1 - x - y) / y;
  const double r = 3.2404542 * X - 1.5371385 * Y - 0.4985314 * Z;
  const double g = -0.9692660 * X + 1.8760108 * Y + 0.0415560 * Z;
  const double b = 0.0556434 * X - 0.2040259 * Y + 1.0572252 * Z;
  rgb[0] = float(std::max(r, 1e-6) / g);
  rgb[1] = 1.0f;
  rgb[2] = float(std::max(b, 1e-6) / g);
}

void whiteBalance(ImageView image, float kelvin) {
  float reference[3], light[3];
  blackBodyRgb(6500, reference);
  blackBodyRgb(kelvin, light);
  const float gain[3] = {reference[0] / light[0], reference[1] / light[1], reference[2] / light[2]};
  forEachRgb(image, [&](float v, int c) { return v * gain[c]; });
}

void gammaEncode(ImageView image, float gamma) {
  if (!(gamma > 0)) fail(ZVR_ERROR_INVALID_ARGUMENT, "display gamma " + std::to_string(gamma) + " is not positive");
  const float exponent = 1.0f / gamma;
  forEachRgb(image, [&](float v, int) { return v > 0 ? std::pow(v, exponent) : 0.0f; });
}

void bloom(ImageView image, float threshold, float radius, float weight) {
  const size_t n = pixelCount(image);
  std::vector<float> bright(n * 3), blurred(n * 3, 0.0f);
  for (size_t i = 0; i < n; ++i)
    for (int c = 0; c < 3; ++c) bright[i * 3 + c] = std::max(image.rgba[i * 4 + c] - threshold, 0.0f);
  const int half = int(std::ceil(radius));
  std::vector<float> kernel(size_t(2 * half + 1), 1.0f);
  if (half > 0) {
    const float sigma = radius / 3.0f;
    float sum = 0;
    for (int k = -half; k <= half; ++k) sum += kernel[k + half] = std::exp(-0.5f * k * k / (sigma * sigma));
    for (float& k : kernel) k /= sum;
  }
  const int w = int(image.width), h = int(image.height);
  std::vector<float> horizontal(n * 3, 0.0f);
  // Edges clamp, so that light does not fade at the border of the picture.
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int k = -half; k <= half; ++k) {
        const int sx = std::clamp(x + k, 0, w - 1);
        for (int c = 0; c < 3; ++c)
          horizontal[(size_t(y) * w + x) * 3 + c] += kernel[k + half] * bright[(size_t(y) * w + sx) * 3 + c];
      }
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int k = -half; k <= half; ++k) {
        const int sy = std::clamp(y + k, 0, h - 1);
        for (int c = 0; c < 3; ++c)
          blurred[(size_t(y) * w + x) * 3 + c] += kernel[k + half] * horizontal[(size_t(sy) * w + x) * 3 + c];
      }
  for (size_t i = 0; i < n; ++i)
    for (int c = 0; c < 3; ++c) image.rgba[i * 4 + c] += weight * blurred[i * 3 + c];
}

}  // namespace zvr::core
