#include "Apps/ZvrsRender/common.h"

#include <cstdio>
#include <limits>

#include "engine/ZvrLoadStore.h"
#include "program/failure.h"

namespace zvrs {

namespace {

bool isQuillon(const std::vector<int32_t>& pluginKinds) {
  return !pluginKinds.empty() && pluginKinds[0] == ZVR_PLUGIN_FAMILY_QUILLON;
}

struct EngineRead {
  ZvrContextInfo key;
  void* field;
  const char* message;
};

void readAll(ZvrContext context, const EngineRead* rows, size_t count) {
  // Four bytes whatever the field's type: every field read here is a 32-bit value.
  for (size_t index = 0; index < count; ++index)
    CHECK_STATUS(zvrContextGetInfo(context, rows[index].key, 4, rows[index].field, nullptr), context,
                 rows[index].message, Warning);
}

// Lines kept for debugging the transfer; composed like the rest of the trace but not printed.
template <typename Value>
void composeDebugLine(const char* format, Value value) {
  char line[512];
  std::snprintf(line, sizeof line, format, value);
}

}  // namespace

void readSettingsFromEngine(RenderSettings& settings, ZvrContext context, const std::vector<int32_t>& pluginKinds) {
  const EngineRead rows[] = {
      {ZVR_CONTEXT_DISPLAY_GAMMA, &settings.displayGamma, "ZVR context getting \"displaygamma\" failed."},
      {ZVR_CONTEXT_TEXTURE_GAMMA, &settings.textureGamma, "ZVR context getting \"texturegamma\" failed."},
      {ZVR_CONTEXT_RADIANCE_CLAMP, &settings.radianceClamp, "ZVR context getting \"radianceclamp\" failed."},
      {ZVR_CONTEXT_FRAMEBUFFER_SAVE_FLOAT32, &settings.framebufferSaveFloat32,
       "ZVR context getting \"framebufferSaveFloat32\" failed."},
      {ZVR_CONTEXT_MAX_DEPTH, &settings.maxDepth, "ZVR context getting \"maxdepth\" failed."},
      {ZVR_CONTEXT_MAX_DEPTH_SHADOW, &settings.maxDepthShadow, "ZVR context getting \"maxdepth.shadow\" failed."},
      {ZVR_CONTEXT_MAX_DEPTH_DIFFUSE, &settings.maxDepthDiffuse, "ZVR context getting \"maxdepth.diffuse\" failed."},
      {ZVR_CONTEXT_MAX_DEPTH_GLOSSY, &settings.maxDepthGlossy, "ZVR context getting \"maxdepth.glossy\" failed."},
      {ZVR_CONTEXT_MAX_DEPTH_REFRACTION, &settings.maxDepthRefraction,
       "ZVR context getting \"maxdepth.refraction\" failed."},
      {ZVR_CONTEXT_MAX_DEPTH_REFRACTION_GLOSSY, &settings.maxDepthRefractionGlossy,
       "ZVR context getting \"maxdepth.refraction.glossy\" failed."},
      {ZVR_CONTEXT_MIPMAP_LOD_OFFSET, &settings.mipOffset, "ZVR context getting \"mipmaplodoffset\" failed."},
      {ZVR_CONTEXT_RAY_CAST_EPSILON, &settings.rayCastEpsilon, "ZVR context getting \"raycastepsilon\" failed."},
      {ZVR_CONTEXT_IMAGE_FILTER_TYPE, &settings.imageFilterType, "ZVR context getting \"imagefiltertype\" failed."},
      {ZVR_CONTEXT_IMAGE_FILTER_RADIUS, &settings.imageFilterRadius,
       "ZVR context getting \"imagefilterradius\" failed."},
  };
  readAll(context, rows, sizeof rows / sizeof rows[0]);

  if (isQuillon(pluginKinds)) {
    const EngineRead quillonRows[] = {
        {ZVR_CONTEXT_CAUSTICS_REDUCTION, &settings.causticsReduction,
         "ZVR context getting \"causticsreduction\" failed."},
        {ZVR_CONTEXT_GPU_MEMORY_LIMIT, &settings.gpuMemoryLimit, "ZVR context getting \"gpumemorylimit\" failed."},
    };
    readAll(context, quillonRows, sizeof quillonRows / sizeof quillonRows[0]);
  } else {
    settings.causticsReduction = 1.0f;
    settings.gpuMemoryLimit = 1.0f;
  }
}

namespace {

void applyContourSettings(const RenderSettings& settings, ZvrContext context) {
  CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_CONTOUR_OBJECT_ID, settings.contourObjectId), context,
               "ZVR context setting \"contour.objid\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_CONTOUR_MATERIAL_ID, settings.contourMaterialId),
               context, "ZVR context setting \"contour.matid\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_CONTOUR_NORMAL, settings.contourNormal), context,
               "ZVR context setting \"contour.normal\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_CONTOUR_UV, settings.contourUv), context,
               "ZVR context setting \"contour.uv\" failed.", Warning);
  CHECK_STATUS(
      zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_CONTOUR_THRESHOLD_NORMAL, settings.contourThresholdNormal),
      context, "ZVR context setting \"contour.threshold.normal\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_CONTOUR_THRESHOLD_UV, settings.contourThresholdUv),
               context, "ZVR context setting \"contour.threshold.uv\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_CONTOUR_UV_SECONDARY, settings.contourUvSecondary),
               context, "ZVR context setting \"contour.uv.secondary\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_CONTOUR_LINEWIDTH_OBJECT_ID,
                                             settings.contourLineWidthObjectId),
               context, "ZVR context setting \"contour.linewidth.objid\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_CONTOUR_LINEWIDTH_MATERIAL_ID,
                                             settings.contourLineWidthMaterialId),
               context, "ZVR context setting \"contour.linewidth.matid\" failed.", Warning);
  CHECK_STATUS(
      zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_CONTOUR_LINEWIDTH_NORMAL, settings.contourLineWidthNormal),
      context, "ZVR context setting \"contour.linewidth.normal\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_CONTOUR_LINEWIDTH_UV, settings.contourLineWidthUv),
               context, "ZVR context setting \"contour.linewidth.uv\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_CONTOUR_ANTIALIASING, settings.contourAntialiasing),
               context, "ZVR context setting \"contour.antialiasing\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_CONTOUR_DEBUG, settings.contourDebug), context,
               "ZVR context setting \"contour.debug\" failed.", Warning);
}

}  // namespace

void applySettingsToEngine(const RenderSettings& settings, ZvrContext context, const std::vector<int32_t>& pluginKinds) {
  // Key 267 is the library's iterations per render call, so it takes the batch size.
  CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, settings.batchSize), context,
               "ZVR context setting \"iterations\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameter1f(context, "displaygamma", settings.displayGamma), context,
               "ZVR context setting \"displaygamma\" failed.", Critical);
  CHECK_STATUS(zvrContextSetParameter1f(context, "texturegamma", settings.textureGamma), context,
               "ZVR context setting \"texturegamma\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameter1f(context, "mipmaplodoffset", settings.mipOffset), context,
               "ZVR context setting \"mipmaplodoffset\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_RAY_CAST_EPSILON, settings.rayCastEpsilon), context,
               "ZVR context setting \"raycastepsilon\" failed.", Warning);
  CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_IMAGE_FILTER_TYPE, settings.imageFilterType), context,
               "ZVR context setting \"imagefiltertype\" failed.", Warning);
  // Scripts match this message as it has always read.
  CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_IMAGE_FILTER_RADIUS, settings.imageFilterRadius),
               context, "ZVR context setting \"raycastimagefilterradiusepsilon\" failed.", Warning);

  if (settings.radianceClamp != std::numeric_limits<float>::max()) {
    composeDebugLine("radianceclamp: %g\n", settings.radianceClamp);
    CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_RADIANCE_CLAMP, settings.radianceClamp), context,
                 "ZVR context setting \"radianceclamp\" failed.", Warning);
  }
  if (settings.maxDepth > 0) {
    composeDebugLine("maxdepth: %d\n", settings.maxDepth);
    CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_MAX_DEPTH, settings.maxDepth), context,
                 "ZVR context setting \"maxdepth\" failed.", Critical);
  }
  if (settings.framebufferSaveFloat32 >= 0) {
    composeDebugLine("framebufferSaveFloat32: %d\n", settings.framebufferSaveFloat32);
    // A library without 32-bit EXR support keeps writing half floats; that is no reason to stop.
    zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_FRAMEBUFFER_SAVE_FLOAT32, settings.framebufferSaveFloat32);
  }
  if (settings.maxDepthShadow > 0) {
    composeDebugLine("maxdepth.shadow: %d\n", settings.maxDepthShadow);
    CHECK_STATUS(zvrContextSetParameter1u(context, "maxdepth.shadow", settings.maxDepthShadow), context,
                 "ZVR context setting \"maxdepth.shadow\" failed.", Critical);
  }
  if (settings.maxDepthDiffuse > 0) {
    composeDebugLine("maxdepth.diffuse: %d\n", settings.maxDepthDiffuse);
    CHECK_STATUS(zvrContextSetParameter1u(context, "maxdepth.diffuse", settings.maxDepthDiffuse), context,
                 "ZVR context setting \"maxdepth.diffuse\" failed.", Critical);
  }
  if (settings.maxDepthGlossy > 0) {
    composeDebugLine("maxdepth.glossy: %d\n", settings.maxDepthGlossy);
    CHECK_STATUS(zvrContextSetParameter1u(context, "maxdepth.glossy", settings.maxDepthGlossy), context,
                 "ZVR context setting \"maxdepth.glossy\" failed.", Critical);
  }
  if (settings.maxDepthRefraction > 0) {
    composeDebugLine("maxdepth.refraction: %d\n", settings.maxDepthRefraction);
    CHECK_STATUS(zvrContextSetParameter1u(context, "maxdepth.refraction", settings.maxDepthRefraction), context,
                 "ZVR context setting \"maxdepth.refraction\" failed.", Critical);
  }
  if (settings.maxDepthRefractionGlossy > 0) {
    composeDebugLine("maxdepth.refraction.glossy: %d\n", settings.maxDepthRefractionGlossy);
    CHECK_STATUS(zvrContextSetParameter1u(context, "maxdepth.refraction.glossy", settings.maxDepthRefractionGlossy),
                 context, "ZVR context setting \"maxdepth.refraction.glossy\" failed.", Critical);
  }
  if (settings.textureCache > 0)
    CHECK_STATUS(zvrContextSetParameter1u(context, "ooctexcache", settings.textureCache), context,
                 "ZVR context setting \"ooctexcache\" failed.", Critical);
  if (settings.normalizeLightIntensity >= 0)
    CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_NORMALIZE_LIGHT_INTENSITY_ENABLED,
                                               settings.normalizeLightIntensity),
                 context, "ZVR context setting \"normalizelightintensityenabled\" failed.", Critical);
  if (settings.renderQuality > 0)
    CHECK_STATUS(zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_RENDER_QUALITY, settings.renderQuality), context,
                 "ZVR context setting \"render_quality\" failed.", Warning);
  if (settings.causticsReduction != 1.0f) {
    composeDebugLine("causticsreduction: %g\n", settings.causticsReduction);
    CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_CAUSTICS_REDUCTION, settings.causticsReduction),
                 context, "ZVR context setting \"causticsreduction\" failed.", Warning);
  }
  if (isQuillon(pluginKinds)) {
    composeDebugLine("gpumemorylimit: %g\n", settings.gpuMemoryLimit);
    CHECK_STATUS(zvrContextSetParameterByKey1f(context, ZVR_CONTEXT_GPU_MEMORY_LIMIT, settings.gpuMemoryLimit), context,
                 "ZVR context setting \"gpumemorylimit\" failed.", Warning);
  }

  if (settings.contourEnable == 1) applyContourSettings(settings, context);

  // Sent on every run, also as 0 and 0, which lets the library choose.
  CHECK_STATUS(zvrContextSetParameterByKey4f(context, ZVR_CONTEXT_TILE_SIZE, static_cast<float>(settings.tileWidth),
                                             static_cast<float>(settings.tileHeight), 0.0f, 0.0f),
               context, "ZVR context setting \"tilesize\" failed.", Warning);
}

}  // namespace zvrs
