#include "render/output_elements.h"

#include <string>

#include "program/aov_names.h"
#include "program/failure.h"
#include "render/index_colors.h"

namespace zvrs {

namespace {

const uint32_t kDeepColorId = 64;
const uint32_t kDeepComponentType = 5;
const uint32_t kFloatComponentType = 3;

bool isLpeName(const std::string& name) { return name.find("lpe") != std::string::npos; }
bool isCryptomatteName(const std::string& name) { return name.compare(0, 11, "cryptomatte") == 0; }

ZvrStatus createLpeElement(const std::string& name, uint32_t id, const picojson::value& entry, ZvrContext context,
                           const RenderSettings& settings, OutputElement& element) {
  element.name = name;
  entry.get<picojson::object>();  // the entry must be an object before its members are read
  element.fileNames.push_back(entry.get("output").get<std::string>());
  ZvrStatus status = createFramebuffer(context, settings.framebufferFormat, settings.framebufferDesc,
                                       &element.framebuffer);
  if (status != ZVR_SUCCESS) return status;
  zvrFrameBufferSetLPE(element.framebuffer, entry.get("lpe").get<std::string>().c_str());
  status = zvrContextSetAOV(context, id, element.framebuffer);
  REPORT_FAILURE(status, context, "ZVR context setting AOV failed.");
  return status;
}

ZvrStatus createPlainElement(const std::string& name, uint32_t id, const picojson::value& entry, ZvrContext context,
                             const RenderSettings& settings, OutputElement& element) {
  element.name = name;
  const std::string& fileName = entry.get<std::string>();
  element.fileNames.push_back(fileName);
  element.layerName = fileName;
  FramebufferFormat format = settings.framebufferFormat;
  format.componentType = id == kDeepColorId ? kDeepComponentType : kFloatComponentType;
  ZvrStatus status = createFramebuffer(context, format, settings.framebufferDesc, &element.framebuffer);
  if (status != ZVR_SUCCESS) return status;
  status = zvrContextSetAOV(context, id, element.framebuffer);
  REPORT_FAILURE(status, context, "ZVR context setting AOV failed.");
  return status;
}

}  // namespace

ZvrStatus createFramebuffer(ZvrContext context, const FramebufferFormat& format, const FramebufferDesc& desc,
                            ZvrFrameBuffer* framebuffer) {
  const ZvrFramebufferFormat libraryFormat = {format.numComponents, format.componentType};
  const ZvrFramebufferDesc libraryDesc = {desc.width, desc.height};
  *framebuffer = nullptr;
  ZvrStatus status = zvrContextCreateFrameBuffer(context, libraryFormat, &libraryDesc, framebuffer);
  if (REPORT_FAILURE(status, context, "ZVR framebuffer creation failed.")) return status;
  status = zvrFrameBufferClear(*framebuffer);
  REPORT_FAILURE(status, context, "ZVR framebuffer operation failed.");
  return status;
}

ZvrStatus createOutputElements(const ConfigDocument& document, ZvrContext context, const RenderSettings& settings,
                               std::vector<OutputElement>& elements) {
  elements.reserve(aovNameToId.size() + 1);

  const picojson::value& aovs = document.get("aovs");
  if (!aovs.is<picojson::null>()) {
    // Kept across entries: a cryptomatte entry without a numeric flag reuses the previous answer.
    bool multilayer = false;
    for (const auto& [name, entry] : aovs.get<picojson::object>()) {
      const auto known = aovNameToId.find(name);
      if (known == aovNameToId.end()) continue;
      const uint32_t id = known->second;
      OutputElement element;
      if (isLpeName(name)) {
        const ZvrStatus status = createLpeElement(name, id, entry, context, settings, element);
        if (status != ZVR_SUCCESS) return status;
        elements.push_back(element);
        continue;
      }
      if (isCryptomatteName(name)) {
        const picojson::value& flag = document.get("multilayerexr");
        if (flag.is<double>()) multilayer = flag.get<double>() != 0.0;
        if (!multilayer) {
          REPORT_ERROR(8, "cryptomatte requires multi layer exr. please use \"multilayerexr\" : 0");
          return ZVR_ERROR_INVALID_ARGUMENT;
        }
      }
      const ZvrStatus status = createPlainElement(name, id, entry, context, settings, element);
      if (status != ZVR_SUCCESS) return status;
      elements.push_back(element);
    }
  }

  if (settings.colorTable != 0) setIndicesLookup(context);
  return ZVR_SUCCESS;
}

void setIndicesLookup(ZvrContext context) {
  const std::vector<float> table = makeIndexColorTable();
  zvrContextSetAOVindicesLookup(context, 0, 65536, table.data());
}

}  // namespace zvrs
