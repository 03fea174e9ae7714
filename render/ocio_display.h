// The OpenColorIO display pipeline of the saving road, built afresh for every image.
#pragma once

#include <OpenColorIO/OpenColorIO.h>

#include <string>

namespace zvrs {

struct RenderSettings;

// Display view of `settings` with exposure as linear grade and, for a non-zero gamma, an exponent
// as display grade. Any OpenColorIO failure yields an empty pointer, never an exception.
OCIO_NAMESPACE::ConstCPUProcessorRcPtr buildOcioProcessor(const std::string& configPath,
                                                          const RenderSettings& settings, float gamma);

}  // namespace zvrs
