// Resolve-time image operations. Each runs on a whole RGBA float image in place.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/object.h"

namespace zvr::core {

struct ImageView {
  float* rgba;
  uint32_t width, height;
};

class PostEffect : public Object {
 public:
  PostEffect(Context* context, uint32_t type);
  uint32_t type() const { return type_; }
  // Throws Failure for a name this type does not have.
  void setParameter(const std::string& name, float value);
  float parameter(const std::string& name) const;
  // Whether it runs when only data is resolved (the normalization alone).
  bool runsOnData() const { return type_ == ZVR_POST_EFFECT_NORMALIZATION; }
  void apply(ImageView image, float displayGamma) const;

 private:
  uint32_t type_;
  std::vector<std::pair<std::string, float>> parameters_;
};

const char* postEffectTypeName(uint32_t type);

// The operations themselves, exposed for testing against hand-computed values.
void normalizeByWeight(ImageView image);
// Filmic curve (a rational fit of the ACES reference tone scale) after scaling by 2^exposure.
void filmicToneMap(ImageView image, float exposure);
// y = x' / (1 + x') with x' = (x * 2^exposure)^contrast.
void simpleToneMap(ImageView image, float exposure, float contrast);
// Neutralises light of the given colour temperature to the white of 6500 K.
void whiteBalance(ImageView image, float kelvin);
void gammaEncode(ImageView image, float gamma);
// Adds `weight` times a Gaussian blur (standard deviation radius / 3) of what exceeds `threshold`.
void bloom(ImageView image, float threshold, float radius, float weight);
// Linear sRGB of a black body of this temperature, scaled so that green is 1.
void blackBodyRgb(float kelvin, float rgb[3]);

}  // namespace zvr::core
