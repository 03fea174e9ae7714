#include "core/context_settings.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "core/failure.h"
#include "core/info_reply.h"

namespace zvr::core {

ContextSettings::ContextSettings() {
  if (const char* ocio = std::getenv("OCIO")) ocioConfigPath = ocio;
}

namespace {

using UintField = uint32_t& (*)(ContextSettings&);
using FloatField = float& (*)(ContextSettings&);

enum class Range {
  Any, Positive, NonNegative, Unit, FilterType, Quality, AtLeastOne, TileSide, PreviewBlock, FrameHint,
  Switch, Degrees, LineWidth, Antialiasing
};

static_assert(ZVR_CONTOUR_LINEWIDTH_MAX == 64, "the range message names the widest line");

// Larger tiles buy nothing and overflow the per-tile block arithmetic of the plug-ins.
constexpr double kLargestTileSide = 65536;

struct StoredKey {
  uint32_t key;
  const char* label;
  KeyType type;
  Range range;
  UintField uintField;
  FloatField floatField;
};

#define ZVR_U(expr) [](ContextSettings& s) -> uint32_t& { return expr; }, nullptr
#define ZVR_F(expr) nullptr, [](ContextSettings& s) -> float& { return expr; }

const StoredKey kStoredKeys[] = {
    {ZVR_CONTEXT_ITERATIONS, "iterations", KeyType::Uint, Range::AtLeastOne, ZVR_U(s.iterations)},
    {ZVR_CONTEXT_IMAGE_FILTER_TYPE, "image filter type", KeyType::Uint, Range::FilterType, ZVR_U(s.params.imageFilterType)},
    {ZVR_CONTEXT_MAX_DEPTH, "max depth", KeyType::Uint, Range::Any, ZVR_U(s.params.maxDepth)},
    {ZVR_CONTEXT_RAY_CAST_EPSILON, "ray cast epsilon", KeyType::Float, Range::NonNegative, ZVR_F(s.params.rayEpsilon)},
    {ZVR_CONTEXT_RADIANCE_CLAMP, "radiance clamp", KeyType::Float, Range::Positive, ZVR_F(s.params.radianceClamp)},
    {ZVR_CONTEXT_KEY_287, "preview block side", KeyType::Uint, Range::PreviewBlock, ZVR_U(s.previewBlock)},
    {ZVR_CONTEXT_TEXTURE_GAMMA, "texture gamma", KeyType::Float, Range::Positive, ZVR_F(s.params.textureGamma)},
    {ZVR_CONTEXT_DISPLAY_GAMMA, "display gamma", KeyType::Float, Range::Positive, ZVR_F(s.params.displayGamma)},
    {ZVR_CONTEXT_FRAMECOUNT, "frame count", KeyType::Uint, Range::FrameHint, ZVR_U(s.frameHint)},
    {ZVR_CONTEXT_MAX_DEPTH_DIFFUSE, "max depth diffuse", KeyType::Uint, Range::Any, ZVR_U(s.params.maxDepthDiffuse)},
    {ZVR_CONTEXT_MAX_DEPTH_GLOSSY, "max depth glossy", KeyType::Uint, Range::Any, ZVR_U(s.params.maxDepthGlossy)},
    {ZVR_CONTEXT_MAX_DEPTH_REFRACTION, "max depth refraction", KeyType::Uint, Range::Any, ZVR_U(s.params.maxDepthRefraction)},
    {ZVR_CONTEXT_MAX_DEPTH_REFRACTION_GLOSSY, "max depth refraction glossy", KeyType::Uint, Range::Any,
     ZVR_U(s.params.maxDepthRefractionGlossy)},
    {ZVR_CONTEXT_MAX_DEPTH_SHADOW, "max depth shadow", KeyType::Uint, Range::Any, ZVR_U(s.params.maxDepthShadow)},
    {ZVR_CONTEXT_MIPMAP_LOD_OFFSET, "mipmap lod offset", KeyType::Float, Range::Any, ZVR_F(s.params.mipLodOffset)},
    {ZVR_CONTEXT_TILE_SIZE, "tile size", KeyType::Float4, Range::TileSide, nullptr, nullptr},
    {ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC, "render progress callback", KeyType::Pointer, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA, "render progress callback data", KeyType::Pointer, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_OCIO_CONFIG_PATH, "OCIO config path", KeyType::Text, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_CONTOUR_OBJECT_ID, "contour object id", KeyType::Uint, Range::Switch, ZVR_U(s.params.contourObjectId)},
    {ZVR_CONTEXT_CONTOUR_MATERIAL_ID, "contour material id", KeyType::Uint, Range::Switch,
     ZVR_U(s.params.contourMaterialId)},
    {ZVR_CONTEXT_CONTOUR_NORMAL, "contour normal", KeyType::Uint, Range::Switch, ZVR_U(s.params.contourNormal)},
    {ZVR_CONTEXT_CONTOUR_THRESHOLD_NORMAL, "contour threshold normal", KeyType::Float, Range::Degrees,
     ZVR_F(s.params.contourThresholdNormal)},
    {ZVR_CONTEXT_CONTOUR_LINEWIDTH_OBJECT_ID, "contour line width object id", KeyType::Float, Range::LineWidth,
     ZVR_F(s.params.contourLineWidthObjectId)},
    {ZVR_CONTEXT_CONTOUR_LINEWIDTH_MATERIAL_ID, "contour line width material id", KeyType::Float, Range::LineWidth,
     ZVR_F(s.params.contourLineWidthMaterialId)},
    {ZVR_CONTEXT_CONTOUR_LINEWIDTH_NORMAL, "contour line width normal", KeyType::Float, Range::LineWidth,
     ZVR_F(s.params.contourLineWidthNormal)},
    {ZVR_CONTEXT_CONTOUR_ANTIALIASING, "contour antialiasing", KeyType::Float, Range::Antialiasing,
     ZVR_F(s.params.contourAntialiasing)},
    {ZVR_CONTEXT_GPU_INTEGRATOR, "GPU integrator", KeyType::Text, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_CPU_INTEGRATOR, "CPU integrator", KeyType::Text, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_CAUSTICS_REDUCTION, "caustics reduction", KeyType::Float, Range::Unit, ZVR_F(s.params.causticsReduction)},
    {ZVR_CONTEXT_CONTOUR_DEBUG, "contour debug", KeyType::Uint, Range::Switch, ZVR_U(s.params.contourDebug)},
    {ZVR_CONTEXT_GPU_MEMORY_LIMIT, "GPU memory limit", KeyType::Float, Range::NonNegative, ZVR_F(s.params.gpuMemoryLimit)},
    {ZVR_CONTEXT_CONTOUR_UV, "contour uv", KeyType::Uint, Range::Switch, ZVR_U(s.params.contourUv)},
    {ZVR_CONTEXT_CONTOUR_THRESHOLD_UV, "contour threshold uv", KeyType::Float, Range::NonNegative,
     ZVR_F(s.params.contourThresholdUv)},
    {ZVR_CONTEXT_CONTOUR_LINEWIDTH_UV, "contour line width uv", KeyType::Float, Range::LineWidth,
     ZVR_F(s.params.contourLineWidthUv)},
    {ZVR_CONTEXT_CONTOUR_UV_SECONDARY, "contour uv secondary", KeyType::Uint, Range::Switch,
     ZVR_U(s.params.contourUvSecondary)},
    {ZVR_CONTEXT_FRAMEBUFFER_SAVE_FLOAT32, "framebuffer save float32", KeyType::Uint, Range::Any, ZVR_U(s.saveFloat32)},
    {ZVR_CONTEXT_UPDATE_TIME_CALLBACK_FUNC, "update time callback", KeyType::Pointer, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_UPDATE_TIME_CALLBACK_DATA, "update time callback data", KeyType::Pointer, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_IGNORED_TIME_CALLBACK_FUNC, "ignored time callback", KeyType::Pointer, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_IGNORED_TIME_CALLBACK_DATA, "ignored time callback data", KeyType::Pointer, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_RENDER_TIME_CALLBACK_FUNC, "render time callback", KeyType::Pointer, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_RENDER_TIME_CALLBACK_DATA, "render time callback data", KeyType::Pointer, Range::Any, nullptr, nullptr},
    {ZVR_CONTEXT_IMAGE_FILTER_RADIUS, "image filter radius", KeyType::Float, Range::Positive, ZVR_F(s.params.imageFilterRadius)},
    {ZVR_CONTEXT_NORMALIZE_LIGHT_INTENSITY_ENABLED, "normalize light intensity", KeyType::Uint, Range::Any,
     ZVR_U(s.params.normalizeLightIntensity)},
    {ZVR_CONTEXT_RENDER_QUALITY, "render quality", KeyType::Uint, Range::Quality, ZVR_U(s.params.renderQuality)},
    {ZVR_CONTEXT_OOC_TEXTURE_CACHE, "texture cache", KeyType::Uint, Range::Any, ZVR_U(s.params.textureCacheMB)},
    {ZVR_CONTEXT_FIRST_SAMPLE_INDEX, "first sample index", KeyType::Uint, Range::Any, ZVR_U(s.firstSampleIndex)},
};

#undef ZVR_U
#undef ZVR_F

// Keys answered by the context, named here so that their failures read the same way.
const struct { uint32_t key; const char* label; } kOtherLabels[] = {
    {ZVR_CONTEXT_MEMORY_INFO, "memory info"},
    {ZVR_CONTEXT_LAST_ERROR_MESSAGE, "last error message"},
    {ZVR_CONTEXT_API_VERSION, "api version"},
    {ZVR_CONTEXT_API_VERSION_MINOR, "api version minor"},
    {ZVR_CONTEXT_PLUGIN_VERSION, "plug-in version"},
    {ZVR_CONTEXT_API_TRACE_PATH, "API trace path"},
    {ZVR_CONTEXT_ACTIVE_PLUGIN, "active plug-in"},
    {ZVR_CONTEXT_SCENE, "scene"},
    {ZVR_CONTEXT_RENDER_LAYERS, "render layers"},
    {ZVR_CONTEXT_OWNED_FILE, "owned file"},
};

const StoredKey* find(uint32_t key) {
  for (const StoredKey& k : kStoredKeys)
    if (k.key == key) return &k;
  return nullptr;
}

const char* typeName(KeyType type) {
  switch (type) {
    case KeyType::Uint: return "an unsigned integer (1u)";
    case KeyType::Float: return "a float (1f)";
    case KeyType::Float4: return "four floats (4f)";
    case KeyType::Pointer: return "a pointer";
    case KeyType::Text: return "a text";
  }
  return "?";
}

const StoredKey& expect(uint32_t key, KeyType given) {
  const StoredKey* k = find(key);
  if (!k) {
    for (const auto& other : kOtherLabels)
      if (other.key == key) fail(ZVR_ERROR_INVALID_ARGUMENT, describeKey(key) + " cannot be set this way");
    fail(ZVR_ERROR_UNKNOWN_KEY, "unknown context key " + std::to_string(key));
  }
  if (k->type != given)
    fail(ZVR_ERROR_INVALID_ARGUMENT,
         describeKey(key) + " takes " + typeName(k->type) + ", not " + typeName(given));
  return *k;
}

void checkRange(const StoredKey& k, double value) {
  bool ok = true;
  const char* wanted = "";
  switch (k.range) {
    case Range::Any: ok = !std::isnan(value); wanted = "a number"; break;
    case Range::Positive: ok = value > 0; wanted = "greater than 0"; break;
    case Range::NonNegative: ok = value >= 0; wanted = "0 or more"; break;
    case Range::Unit: ok = value >= 0 && value <= 1; wanted = "between 0 and 1"; break;
    case Range::FilterType: ok = value <= 6; wanted = "0 (none) to 6 (blackman)"; break;
    case Range::Quality: ok = value <= 3; wanted = "0 to 3"; break;
    case Range::AtLeastOne: ok = value >= 1; wanted = "1 or more"; break;
    case Range::TileSide: ok = value >= 0 && value <= kLargestTileSide; wanted = "0 (chosen by the library) to 65536"; break;
    case Range::PreviewBlock: ok = value <= ZVR_PREVIEW_BLOCK_MAX; wanted = "0 (chosen by the library) to 16"; break;
    case Range::FrameHint:
      ok = value == ZVR_FRAMECOUNT_ACCUMULATE || value == ZVR_FRAMECOUNT_PROVISIONAL;
      wanted = "0 (accumulate) or 2 (provisional picture)";
      break;
    case Range::Switch: ok = value == 0 || value == 1; wanted = "0 (off) or 1 (on)"; break;
    case Range::Degrees: ok = value >= 0 && value <= 180; wanted = "0 to 180 degrees"; break;
    case Range::LineWidth:
      ok = value >= 0 && value <= ZVR_CONTOUR_LINEWIDTH_MAX;
      wanted = "0 to 64 pixels";
      break;
    case Range::Antialiasing:
      ok = value == -1 || (value >= 0 && value <= 1);
      wanted = "1 (antialiased), 0 to 1 (not antialiased, jitter radius 1) or -1 (not antialiased, no jitter)";
      break;
  }
  if (!ok || std::isnan(value))
    fail(ZVR_ERROR_INVALID_ARGUMENT,
         describeKey(k.key) + ": value " + std::to_string(value) + " is out of range, must be " + wanted);
}

}  // namespace

std::string describeKey(uint32_t key) {
  if (const StoredKey* k = find(key)) return "key " + std::to_string(key) + " (" + k->label + ")";
  for (const auto& other : kOtherLabels)
    if (other.key == key) return "key " + std::to_string(key) + " (" + other.label + ")";
  return "key " + std::to_string(key);
}

bool findStoredKey(uint32_t key, KeyType* type) {
  const StoredKey* k = find(key);
  if (k && type) *type = k->type;
  return k != nullptr;
}

void setUint(ContextSettings& settings, uint32_t key, uint32_t value) {
  const StoredKey& k = expect(key, KeyType::Uint);
  checkRange(k, value);
  k.uintField(settings) = value;
}

void setFloat(ContextSettings& settings, uint32_t key, float value) {
  const StoredKey& k = expect(key, KeyType::Float);
  checkRange(k, value);
  k.floatField(settings) = value;
}

void setFloat4(ContextSettings& settings, uint32_t key, const float values[4]) {
  const StoredKey& k = expect(key, KeyType::Float4);
  for (int i = 0; i < 4; ++i) checkRange(k, values[i]);
  std::memcpy(settings.tileSize, values, sizeof settings.tileSize);
  settings.params.tileSize[0] = values[0];
  settings.params.tileSize[1] = values[1];
}

void setPointer(ContextSettings& s, uint32_t key, void* pointer) {
  expect(key, KeyType::Pointer);
  switch (key) {
    case ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC:
      s.progressCallback = reinterpret_cast<ZvrProgressCallback>(pointer);
      break;
    case ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA: s.progressData = pointer; break;
    case ZVR_CONTEXT_UPDATE_TIME_CALLBACK_FUNC: s.updateTimeCallback = reinterpret_cast<ZvrTimeCallback>(pointer); break;
    case ZVR_CONTEXT_UPDATE_TIME_CALLBACK_DATA: s.updateTimeData = pointer; break;
    case ZVR_CONTEXT_IGNORED_TIME_CALLBACK_FUNC: s.ignoredTimeCallback = reinterpret_cast<ZvrTimeCallback>(pointer); break;
    case ZVR_CONTEXT_IGNORED_TIME_CALLBACK_DATA: s.ignoredTimeData = pointer; break;
    case ZVR_CONTEXT_RENDER_TIME_CALLBACK_FUNC: s.renderTimeCallback = reinterpret_cast<ZvrTimeCallback>(pointer); break;
    case ZVR_CONTEXT_RENDER_TIME_CALLBACK_DATA: s.renderTimeData = pointer; break;
  }
}

void setText(ContextSettings& settings, uint32_t key, const char* text) {
  expect(key, KeyType::Text);
  if (!text) fail(ZVR_ERROR_INVALID_ARGUMENT, describeKey(key) + ": the text is null");
  switch (key) {
    case ZVR_CONTEXT_OCIO_CONFIG_PATH: settings.ocioConfigPath = text; break;
    case ZVR_CONTEXT_GPU_INTEGRATOR: settings.params.gpuIntegrator = text; break;
    case ZVR_CONTEXT_CPU_INTEGRATOR: settings.params.cpuIntegrator = text; break;
  }
}

void getStored(const ContextSettings& constSettings, uint32_t key, size_t size, void* data, size_t* outSize) {
  const StoredKey* k = find(key);
  if (!k) fail(ZVR_ERROR_UNKNOWN_KEY, "unknown context key " + std::to_string(key));
  ContextSettings& s = const_cast<ContextSettings&>(constSettings);  // the field accessors are shared with setters
  const std::string what = describeKey(key);
  switch (k->type) {
    case KeyType::Uint: replyValue(what, k->uintField(s), size, data, outSize); return;
    case KeyType::Float: replyValue(what, k->floatField(s), size, data, outSize); return;
    case KeyType::Float4: replyBytes(what, s.tileSize, sizeof s.tileSize, size, data, outSize); return;
    case KeyType::Text: {
      const std::string& text = key == ZVR_CONTEXT_OCIO_CONFIG_PATH ? s.ocioConfigPath
                                : key == ZVR_CONTEXT_GPU_INTEGRATOR ? s.params.gpuIntegrator
                                                                    : s.params.cpuIntegrator;
      replyText(what, text, size, data, outSize);
      return;
    }
    case KeyType::Pointer: {
      void* pointer = nullptr;
      switch (key) {
        case ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC: pointer = reinterpret_cast<void*>(s.progressCallback); break;
        case ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA: pointer = s.progressData; break;
        case ZVR_CONTEXT_UPDATE_TIME_CALLBACK_FUNC: pointer = reinterpret_cast<void*>(s.updateTimeCallback); break;
        case ZVR_CONTEXT_UPDATE_TIME_CALLBACK_DATA: pointer = s.updateTimeData; break;
        case ZVR_CONTEXT_IGNORED_TIME_CALLBACK_FUNC: pointer = reinterpret_cast<void*>(s.ignoredTimeCallback); break;
        case ZVR_CONTEXT_IGNORED_TIME_CALLBACK_DATA: pointer = s.ignoredTimeData; break;
        case ZVR_CONTEXT_RENDER_TIME_CALLBACK_FUNC: pointer = reinterpret_cast<void*>(s.renderTimeCallback); break;
        case ZVR_CONTEXT_RENDER_TIME_CALLBACK_DATA: pointer = s.renderTimeData; break;
      }
      replyValue(what, pointer, size, data, outSize);
      return;
    }
  }
}

}  // namespace zvr::core
