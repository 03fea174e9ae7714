#include "output_elements.h"

#include <string>

#include "program/aov_names.h"
#include "program/failure.h"
#include "index_colors.h"

namespace {

const uint32_t kDeepColorId = 64;
const uint32_t kDeepComponentType = 5;
const uint32_t kFloatComponentType = 3;

bool isLpeName(const std::string& name) { return name.find("lpe") != std::string::npos; }
bool isCryptomatteName(const std::string& name) { return name.compare(0, 11, "cryptomatte") == 0; }

OutputElement createLpeElement(const std::string& name, uint32_t id, const picojson::value& entry,
                               ZvrContext context, const RenderSettings& settings) {
  OutputElement element;
  element.name = name;
  entry.get<picojson::object>();  // the entry must be an object before its members are read
  element.fileNames.push_back(entry.get("output").get<std::string>());
  element.framebuffer = createFramebuffer(context, settings.framebufferFormat, settings.framebufferDesc);
  zvrFrameBufferSetLPE(element.framebuffer, entry.get("lpe").get<std::string>().c_str());
  CHECK_STATUS(zvrContextSetAOV(context, id, element.framebuffer), context, "ZVR context setting AOV failed.",
               Critical);
  return element;
}

OutputElement createPlainElement(const std::string& name, uint32_t id, const picojson::value& entry,
                                 ZvrContext context, const RenderSettings& settings) {
  OutputElement element;
  element.name = name;
  const std::string& fileName = entry.get<std::string>();
  element.fileNames.push_back(fileName);
  element.layerName = fileName;
  FramebufferFormat format = settings.framebufferFormat;
  format.componentType = id == kDeepColorId ? kDeepComponentType : kFloatComponentType;
  element.framebuffer = createFramebuffer(context, format, settings.framebufferDesc);
  CHECK_STATUS(zvrContextSetAOV(context, id, element.framebuffer), context, "ZVR context setting AOV failed.",
               Critical);
  return element;
}

}  // namespace

ZvrFrameBuffer createFramebuffer(ZvrContext context, const FramebufferFormat& format, const FramebufferDesc& desc) {
  const ZvrFramebufferFormat libraryFormat = {format.numComponents, format.componentType};
  const ZvrFramebufferDesc libraryDesc = {desc.width, desc.height};
  ZvrFrameBuffer framebuffer = nullptr;
  CHECK_STATUS(zvrContextCreateFrameBuffer(context, libraryFormat, &libraryDesc, &framebuffer), context,
               "ZVR framebuffer creation failed.", Critical);
  CHECK_STATUS(zvrFrameBufferClear(framebuffer), context, "ZVR framebuffer operation failed.", Critical);
  return framebuffer;
}

std::vector<OutputElement> createOutputElements(const ConfigDocument& document, ZvrContext context,
                                                const RenderSettings& settings) {
  std::vector<OutputElement> elements;
  elements.reserve(aovNameToId.size() + 1);

  const picojson::value& aovs = document.get("aovs");
  if (!aovs.is<picojson::null>()) {
    // Kept across entries: a cryptomatte entry without a numeric flag reuses the previous answer.
    bool multilayer = false;
    for (const auto& [name, entry] : aovs.get<picojson::object>()) {
      const auto known = aovNameToId.find(name);
      if (known == aovNameToId.end()) continue;
      const uint32_t id = known->second;
      if (isLpeName(name)) {
        elements.push_back(createLpeElement(name, id, entry, context, settings));
        continue;
      }
      if (isCryptomatteName(name)) {
        const picojson::value& flag = document.get("multilayerexr");
        if (flag.is<double>()) multilayer = flag.get<double>() != 0.0;
        if (!multilayer) FATAL_ERROR(8, "cryptomatte requires multi layer exr. please use \"multilayerexr\" : 0");
      }
      elements.push_back(createPlainElement(name, id, entry, context, settings));
    }
  }

  if (settings.colorTable != 0) setIndicesLookup(context);
  return elements;
}

void setIndicesLookup(ZvrContext context) {
  const std::vector<float> table = makeIndexColorTable();
  zvrContextSetAOVindicesLookup(context, 0, 65536, table.data());
}
