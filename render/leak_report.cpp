#include "render/leak_report.h"

#include <cstdio>
#include <vector>

namespace zvrs {

namespace {

const char* kindWord(ZvrContextInfo key) {
  switch (key) {
    case ZVR_CONTEXT_LIST_CREATED_CAMERAS: return " cameras\n";
    case ZVR_CONTEXT_LIST_CREATED_MATERIALNODES: return " material nodes\n";
    case ZVR_CONTEXT_LIST_CREATED_LIGHTS: return " lights\n";
    case ZVR_CONTEXT_LIST_CREATED_SHAPES: return " shapes\n";
    case ZVR_CONTEXT_LIST_CREATED_POSTEFFECTS: return " postEffects\n";
    case ZVR_CONTEXT_LIST_CREATED_HETEROVOLUMES: return " heteroVolumes\n";
    case ZVR_CONTEXT_LIST_CREATED_GRIDS: return " grids\n";
    case ZVR_CONTEXT_LIST_CREATED_BUFFERS: return " buffers\n";
    case ZVR_CONTEXT_LIST_CREATED_IMAGES: return " images\n";
    case ZVR_CONTEXT_LIST_CREATED_FRAMEBUFFERS: return " framebuffers\n";
    case ZVR_CONTEXT_LIST_CREATED_SCENES: return " sceces\n";
    case ZVR_CONTEXT_LIST_CREATED_CURVES: return " curves\n";
    case ZVR_CONTEXT_LIST_CREATED_MATERIALSYSTEM: return " materialsystems\n";
    case ZVR_CONTEXT_LIST_CREATED_COMPOSITE: return " composites\n";
    case ZVR_CONTEXT_LIST_CREATED_LUT: return " luts\n";
    default: return " ???\n";
  }
}

}  // namespace

void reportContextLeaks(ZvrContext context) {
  if (context == nullptr) return;
  std::vector<void*> survivors;
  for (ZvrContextInfo key = ZVR_CONTEXT_LIST_CREATED_CAMERAS; key <= ZVR_CONTEXT_LIST_CREATED_LUT; ++key) {
    size_t size = 0;
    zvrContextGetInfo(context, key, 0, nullptr, &size);
    const size_t count = size / sizeof(void*);
    if (count == 0) continue;
    std::printf("leak of %zu%s", count, kindWord(key));
    const size_t first = survivors.size();
    survivors.resize(first + count, nullptr);
    zvrContextGetInfo(context, key, count * sizeof(void*), &survivors[first], nullptr);
  }
  if (!survivors.empty()) std::printf("Warning : this context has some leak\n");
}

}  // namespace zvrs
