// The program's own colour pipeline for saved beauty images: pure functions on floats, so that
// every step can be checked without a render library.
#pragma once

#include <cstdint>
#include <string>

namespace zvrs {

struct RenderSettings;

// True when any post-processing setting differs from neutral; only then may an image take the
// program's own road instead of the render library's writer.
bool wantsPostProcessing(const RenderSettings& settings);

// A display gamma given as text: a plain decimal number, else 0 (none). A number that does not fit
// a double throws the standard library's conversion error.
float parseGammaText(const std::string& text);

// Exposure, tone map and gamma in 32-bit float, as used when no OpenColorIO processor exists.
struct PlainPipeline {
  float exposure = 1.0f;
  bool acesFilmApprox = false;
  bool linearToSrgb = false;
  float gamma = 0.0f;  // 0 means no gamma step
};

PlainPipeline makePlainPipeline(const RenderSettings& settings, float gamma);

float acesFilmApprox(float x);
float linearToSrgb(float x);
void applyPlainPipeline(const PlainPipeline& pipeline, float rgb[3]);

// Truncation to 8 bits; values whose x*255 does not fit a 32-bit integer (inf, NaN) become 0.
uint8_t quantiseChannel(float x);

}  // namespace zvrs
