#include "render/batch_render.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

#include "engine/ZvrCore.h"
#include "program/aov_names.h"
#include "program/failure.h"
#include "program/lower_case.h"
#include "program/shader_advice.h"
#include "render/output_elements.h"
#include "render/save_image.h"

namespace zvrs {

namespace {

void printPercent(float percent) {
  std::printf("%3.0f%%\n", percent);
  std::fflush(stdout);
}

uint32_t batchCount(uint32_t batchSize, uint32_t remaining) {
  return batchSize < 1 ? 1u : std::min(batchSize, remaining);
}

ZvrStatus renderIterations(ZvrContext context, const RenderSettings& settings, ProgressRecord& progress) {
  const uint32_t iterations = settings.iterations;
  uint32_t done = 0;
  while (done < iterations) {
    const float percent =
        std::min(99.0f, std::max(0.0f, static_cast<float>(done) * 100.0f / static_cast<float>(iterations)));
    if (settings.printProgress) printPercent(percent);
    const uint32_t count = batchCount(settings.batchSize, iterations - done);
    CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, count), context,
                 "ZVR context setting \"iterations\" failed.", Warning);
    progress.offset = percent;
    progress.scale = static_cast<float>(count) * 100.0f / static_cast<float>(iterations);
    const ZvrStatus status = zvrContextRender(context);
    if (status == ZVR_ERROR_SHADER_COMPILATION) printShaderCompilationAdvice();
    RETURN_ON_FAILURE(status, context, "ZVR rendering failed.");
    done += count;
  }
  return ZVR_SUCCESS;
}

bool isDorrik(const std::vector<int32_t>& pluginKinds) {
  return !pluginKinds.empty() && pluginKinds[0] == ZVR_PLUGIN_FAMILY_DORRIK;
}

uint32_t resolveFlag(const std::string& name) { return colorSet.count(name) != 0 ? 0u : 1u; }

ZvrStatus saveSingleFiles(const std::vector<int32_t>& pluginKinds, ZvrContext context, const RenderSettings& settings,
                          std::vector<OutputElement>& elements) {
  ZvrFrameBuffer shared = nullptr;
  const ZvrStatus created = createFramebuffer(context, settings.framebufferFormat, settings.framebufferDesc, &shared);
  if (created != ZVR_SUCCESS) return created;
  for (OutputElement& element : elements) {
    RETURN_ON_FAILURE(zvrFrameBufferClear(shared), context, "ZVR framebuffer operation failed.");
    CHECK_STATUS(zvrContextResolveFrameBuffer(context, element.framebuffer, shared, resolveFlag(element.name)),
                 context, "ZVR context resolving framebuffer failed.", Warning);
    const bool isColor = element.name == "color";
    for (const std::string& file : element.fileNames) {
      if (element.name == "deep.color") {
        zvrFrameBufferSaveToFile(element.framebuffer, file.c_str());
        continue;
      }
      // The preview family's framebuffers already hold final values, so the raw one is saved.
      ZvrFrameBuffer source = isDorrik(pluginKinds) ? element.framebuffer : shared;
      RETURN_ON_FAILURE(saveOutputImage(context, settings, source, file.c_str(), isColor), context, "ZVR framebuffer saving failed.");
    }
  }
  RETURN_ON_FAILURE(zvrObjectDelete(shared), context, "ZVR framebuffer deletion failed.");
  return ZVR_SUCCESS;
}

const std::map<uint32_t, std::string>& cryptoLayerNames() {
  static const std::map<uint32_t, std::string> names = {
      {48, "CryptoMaterial00"}, {49, "CryptoMaterial01"}, {50, "CryptoMaterial02"}, {51, "CryptoMaterial03"},
      {52, "CryptoMaterial04"}, {53, "CryptoMaterial05"}, {56, "CryptoObject00"},   {57, "CryptoObject01"},
      {58, "CryptoObject02"},   {59, "CryptoObject03"},   {60, "CryptoObject04"},   {61, "CryptoObject05"}};
  return names;
}

bool hasExrExtension(const std::string& file) {
  if (file.size() < 4) return false;
  return lowerCase(file.substr(file.size() - 4)) == ".exr";
}

ZvrStatus saveMultilayer(const std::vector<int32_t>& pluginKinds, ZvrContext context, const RenderSettings& settings,
                         std::vector<OutputElement>& elements) {
  std::vector<ZvrFrameBuffer> resolved;
  ZvrFrameBuffer colorBuffer = nullptr;
  for (OutputElement& element : elements) {
    const bool isColor = element.name == "color";
    if (element.name == "deep.color") {
      for (const std::string& file : element.fileNames) zvrFrameBufferSaveToFile(element.framebuffer, file.c_str());
      continue;
    }
    if (isDorrik(pluginKinds)) {
      resolved.push_back(element.framebuffer);
      if (isColor) colorBuffer = element.framebuffer;
      element.framebuffer = nullptr;
      continue;
    }
    ZvrFrameBuffer buffer = nullptr;
    const ZvrStatus created = createFramebuffer(context, settings.framebufferFormat, settings.framebufferDesc, &buffer);
    if (created != ZVR_SUCCESS) return created;
    RETURN_ON_FAILURE(zvrFrameBufferClear(buffer), context, "ZVR framebuffer operation failed.");
    std::string layerName = element.layerName;
    const auto id = aovNameToId.find(element.name);
    if (id != aovNameToId.end()) {
      const auto crypto = cryptoLayerNames().find(id->second);
      if (crypto != cryptoLayerNames().end()) layerName = crypto->second;
    }
    RETURN_ON_FAILURE(zvrObjectSetName(buffer, layerName.c_str()), context, "ZVR framebuffer operation failed.");
    CHECK_STATUS(zvrContextResolveFrameBuffer(context, element.framebuffer, buffer, resolveFlag(element.name)),
                 context, "ZVR context resolving framebuffer failed.", Warning);
    RETURN_ON_FAILURE(zvrObjectDelete(element.framebuffer), context, "ZVR framebuffer deletion failed.");
    element.framebuffer = nullptr;
    if (isColor) colorBuffer = buffer;
    resolved.push_back(buffer);
  }

  // The colour element always exists once main has run; without it there is nothing to write.
  const auto color = std::find_if(elements.begin(), elements.end(),
                                  [](const OutputElement& element) { return element.name == "color"; });
  if (color != elements.end()) {
    for (const std::string& file : color->fileNames) {
      ZvrStatus status = ZVR_SUCCESS;
      if (hasExrExtension(file)) {
        status = zvrFrameBufferSaveToFileEx(resolved.data(), static_cast<uint32_t>(resolved.size()), file.c_str(),
                                            nullptr);
      } else {
        status = zvrFrameBufferSaveToFile(colorBuffer, file.c_str());
      }
      RETURN_ON_FAILURE(status, context, "ZVR framebuffer saving failed.");
    }
  }
  for (ZvrFrameBuffer buffer : resolved) {
    RETURN_ON_FAILURE(zvrObjectDelete(buffer), context, "ZVR framebuffer deletion failed.");
  }
  return ZVR_SUCCESS;
}

bool multilayerRequested(const ConfigDocument& document) {
  const picojson::value& flag = document.get("multilayerexr");
  return flag.is<double>() && flag.get<double>() != 0.0;
}

}  // namespace

ZvrStatus renderTimedBatches(ZvrContext context, const RenderSettings& settings, ProgressRecord& progress,
                             TimingRecord& timing) {
  timing.stampCount = 1;
  timing.stamps[0] = readHighResolutionCounter();
  const ZvrStatus rendered = renderIterations(context, settings, progress);
  if (rendered != ZVR_SUCCESS) return rendered;
  timing.stamps[timing.stampCount] = readHighResolutionCounter();
  timing.stampCount = 2;
  if (settings.printProgress) printPercent(100.0f);
  return ZVR_SUCCESS;
}

ZvrStatus saveRenderedElements(const std::vector<int32_t>& pluginKinds, const ConfigDocument& document,
                               ZvrContext context, const RenderSettings& settings,
                               std::vector<OutputElement>& elements) {
  if (multilayerRequested(document)) return saveMultilayer(pluginKinds, context, settings, elements);
  return saveSingleFiles(pluginKinds, context, settings, elements);
}

ZvrStatus renderBatches(const std::vector<int32_t>& pluginKinds, const ConfigDocument& document, ZvrContext context,
                        const RenderSettings& settings, std::vector<OutputElement>& elements, ProgressRecord& progress,
                        TimingRecord& timing) {
  const ZvrStatus rendered = renderTimedBatches(context, settings, progress, timing);
  if (rendered != ZVR_SUCCESS) return rendered;
  return saveRenderedElements(pluginKinds, document, context, settings, elements);
}

}  // namespace zvrs
