#include "render/save_image.h"

#include <string>
#include <vector>

#include "render/image_conversion.h"
#include "render/png_writer.h"

namespace zvrs {

namespace {

// The context's OpenColorIO configuration when the settings name none; the status is kept so the
// caller still hears of a failed query after the image has been written.
std::string ocioConfigPath(ZvrContext context, const RenderSettings& settings, ZvrStatus& status) {
  if (!settings.postOcioConfig.empty()) return settings.postOcioConfig;
  std::vector<char> text(2048, '\0');
  const ZvrStatus queried = zvrContextGetInfo(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, text.size(), text.data(), nullptr);
  if (queried != ZVR_SUCCESS) {
    status = queried;
    return std::string();
  }
  text.back() = '\0';
  return std::string(text.data());
}

}  // namespace

ZvrStatus saveOutputImage(ZvrContext context, const RenderSettings& settings, ZvrFrameBuffer framebuffer,
                          const char* path, bool isColor) {
  if (!isColor || !wantsPostProcessing(settings)) return zvrFrameBufferSaveToFile(framebuffer, path);

  uint32_t size[2] = {0, 0};
  ZvrStatus status = zvrFrameBufferGetInfo(framebuffer, ZVR_FRAMEBUFFER_DESC, sizeof(size), size, nullptr);
  if (status != ZVR_SUCCESS) return status;

  const uint32_t pixelCount = size[0] * size[1];
  std::vector<float> source(static_cast<size_t>(pixelCount) * 4, 0.0f);
  status = zvrFrameBufferGetInfo(framebuffer, ZVR_FRAMEBUFFER_DATA, source.size() * sizeof(float), source.data(),
                                 nullptr);
  if (status != ZVR_SUCCESS) return status;

  const float gamma = parseGammaText(settings.postGammaCorrection);
  std::string configPath;
  if (settings.postOcioEnable == 1) configPath = ocioConfigPath(context, settings, status);
  const std::vector<uint8_t> bytes = convertPixelsForSettings(source.data(), pixelCount, settings, gamma, configPath);
  // The writer's own failure is not a library status; the file is simply missing then.
  writePngRgb8(path, size[0], size[1], bytes.data());
  return status;
}

}  // namespace zvrs
