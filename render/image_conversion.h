// Float RGBA pixels to 8-bit RGB bytes through OpenColorIO or the plain pipeline.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "render/ocio_display.h"
#include "render/pixel_pipeline.h"

namespace zvrs {

// `rgba` holds `pixelCount` pixels of 4 floats; alpha is ignored. With a processor the plain
// pipeline does not run, since exposure and gamma are inside the processor.
std::vector<uint8_t> convertPixels(const float* rgba, uint32_t pixelCount, const PlainPipeline& plain,
                                   const OCIO_NAMESPACE::ConstCPUProcessorRcPtr& processor);

// The whole conversion as the saving road does it, with the processor built (or not) here;
// `gamma` is the already parsed postGammaCorrection.
std::vector<uint8_t> convertPixelsForSettings(const float* rgba, uint32_t pixelCount, const RenderSettings& settings,
                                              float gamma, const std::string& ocioConfigPath);

}  // namespace zvrs
