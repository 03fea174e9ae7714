#include "render/image_conversion.h"

#include "program/render_settings.h"

namespace zvrs {

std::vector<uint8_t> convertPixels(const float* rgba, uint32_t pixelCount, const PlainPipeline& plain,
                                   const OCIO_NAMESPACE::ConstCPUProcessorRcPtr& processor) {
  std::vector<uint8_t> bytes(static_cast<size_t>(pixelCount) * 3, 0);
  for (uint32_t i = 0; i < pixelCount; ++i) {
    float rgb[3] = {rgba[4 * size_t(i)], rgba[4 * size_t(i) + 1], rgba[4 * size_t(i) + 2]};
    if (processor) {
      processor->applyRGB(rgb);
    } else {
      applyPlainPipeline(plain, rgb);
    }
    for (int c = 0; c < 3; ++c) bytes[3 * size_t(i) + c] = quantiseChannel(rgb[c]);
  }
  return bytes;
}

std::vector<uint8_t> convertPixelsForSettings(const float* rgba, uint32_t pixelCount, const RenderSettings& settings,
                                              float gamma, const std::string& ocioConfigPath) {
  OCIO_NAMESPACE::ConstCPUProcessorRcPtr processor;
  if (settings.postOcioEnable == 1) processor = buildOcioProcessor(ocioConfigPath, settings, gamma);
  return convertPixels(rgba, pixelCount, makePlainPipeline(settings, gamma), processor);
}

}  // namespace zvrs
