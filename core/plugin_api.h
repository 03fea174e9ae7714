// The contract between libZvrCore64 and its render plug-ins.
//
// A plug-in is a shared library exporting `extern "C" zvr::RenderPlugin* ZVR_PLUGIN_ENTRY()`. The
// entry's name carries kPluginInterfaceVersion, so a plug-in built against another version of
// this header is not found and is refused. Core and plug-ins are built together with one
// toolchain, so C++ types cross the boundary; no symbols of the core are linked by a plug-in:
// everything it needs from the core reaches it through this header (plain data and virtual calls).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/matrix4.h"
#include "engine/ZvrCore.h"

namespace zvr {

// Raised with every change to the types below; kernel/plugin.map names the entry too.
constexpr int kPluginInterfaceVersion = 2;  // 2: light groups, catchers, deep and light-path targets
#define ZVR_PLUGIN_ENTRY zvrPluginCreate_v2
#define ZVR_PLUGIN_ENTRY_NAME "zvrPluginCreate_v2"

enum class ColorSpace : uint32_t { Linear = 0, SRGB = 1 };

// Decoded texture pixels, immutable once created. Values are as stored in the source (sRGB-encoded
// for ColorSpace::SRGB); the kernel linearises.
struct ImageData {
  uint64_t id = 0;                 // unique for the life of the process
  uint32_t width = 0, height = 0;
  uint32_t channels = 0;           // 1 to 4
  ColorSpace colorSpace = ColorSpace::Linear;
  std::vector<float> pixels;       // width * height * channels, rows top to bottom
};

struct TextureBinding {
  std::shared_ptr<const ImageData> image;  // null: no texture
  uint32_t texcoord = 0;
  uint32_t wrapS = 0, wrapT = 0;           // ZvrWrapMode
  uint32_t magFilter = 0, minFilter = 0;   // ZvrFilterMode
  float offset[2] = {0, 0};
  float rotation = 0;
  float scale[2] = {1, 1};
};

// The glTF 2.0 metallic-roughness model with its common extensions; factors multiply textures.
struct MaterialData {
  uint64_t id = 0;                 // unique per material node
  uint32_t materialId = 0;         // value of the material.id AOV
  float baseColor[4] = {1, 1, 1, 1};
  float metallic = 1, roughness = 1;
  float normalScale = 1, occlusionStrength = 1;
  float emissive[3] = {0, 0, 0};
  float emissiveStrength = 1;
  uint32_t alphaMode = 0;          // ZvrAlphaMode
  float alphaCutoff = 0.5f;
  bool doubleSided = false;
  bool unlit = false;
  float ior = 1.5f;
  float transmission = 0;
  float thickness = 0;
  float attenuationDistance = 0;   // 0: infinite (no absorption)
  float attenuationColor[3] = {1, 1, 1};
  float clearcoat = 0, clearcoatRoughness = 0, clearcoatNormalScale = 1;
  float specular = 1;
  float specularColor[3] = {1, 1, 1};
  float sheenColor[3] = {0, 0, 0};
  float sheenRoughness = 0;
  TextureBinding baseColorTexture, metallicRoughnessTexture, normalTexture, occlusionTexture, emissiveTexture,
      transmissionTexture, thicknessTexture, clearcoatTexture, clearcoatRoughnessTexture, clearcoatNormalTexture,
      specularTexture, specularColorTexture, sheenColorTexture, sheenRoughnessTexture;
};

// Triangle mesh streams in object space. Optional streams are empty.
struct MeshData {
  std::vector<float> positions;    // 3 per vertex
  std::vector<float> normals;      // 3 per vertex
  std::vector<float> tangents;     // 4 per vertex
  std::vector<float> texcoords0;   // 2 per vertex
  std::vector<float> texcoords1;   // 2 per vertex
  std::vector<float> colors;       // 4 per vertex
  std::vector<uint32_t> indices;   // 3 per triangle
};

struct ShapeData {
  uint64_t id = 0;                               // unique per shape object
  std::shared_ptr<const MeshData> mesh;          // geometry changes replace the pointer
  std::shared_ptr<const MaterialData> material;  // null: the default material
  Matrix4 transform;                             // object to world as the renderer uses it
  bool visible = true;
  uint32_t objectId = 0, meshId = 0, groupId = 0;
  std::vector<std::string> layers;               // render layers the shape belongs to
  // The shape's object name (cryptomatte, custom labels of light paths) and its material's; empty:
  // not named.
  std::string name, materialName;
  uint32_t catcher = 0;                          // ZvrCatcherFlags: shadow and reflection catcher
  int32_t lightGroup = -1;                       // light group 0..15 of its emission, -1 none
};

enum class LightType : uint32_t { Point = 0, Spot = 1, Directional = 2, Environment = 3 };

struct LightData {
  uint64_t id = 0;
  LightType type = LightType::Point;
  Matrix4 transform;                             // spot and directional lights shine along -z
  float radiance[3] = {1, 1, 1};                 // colour times intensity
  float innerCone = 0, outerCone = 0.785398f;    // spot half-angles, radians
  std::shared_ptr<const ImageData> image;        // environment: lat-long image, may be null
  int32_t group = -1;                            // light group 0..15, -1 none
  std::string name;                              // the object's name (custom labels of light paths)
};

struct CameraData {
  uint32_t type = 0;                             // ZvrCameraType
  Matrix4 transform;                             // camera to world; looks along -z, y up
  float fovY = 0.785398f;                        // radians
  float orthoHeight = 2;                         // world units
  float nearPlane = 0.001f, farPlane = 1e30f;
  uint32_t mode = 0;                             // 0 plain, 3 lat-long, 4 stereo lat-long, 7 fisheye
  float postScale = 1;
};

// An immutable snapshot of what one render call sees. The revisions grow whenever that part of the
// scene changes, so a plug-in can keep its acceleration structures and rebuild only what changed.
struct SceneSnapshot {
  std::vector<ShapeData> shapes;                 // visible or not, layer filtering not applied
  std::vector<LightData> lights;
  CameraData camera;
  bool hasCamera = false;
  uint64_t geometryRevision = 0;                 // shapes added, removed, meshes replaced
  uint64_t transformRevision = 0;                // transforms or visibility changed
  uint64_t materialRevision = 0;                 // materials changed or reassigned
  uint64_t lightRevision = 0;                    // lights added, removed or changed
};

// Context parameters that change the picture, with the library's defaults.
struct RenderParams {
  uint32_t maxDepth = 8, maxDepthDiffuse = 8, maxDepthGlossy = 8, maxDepthRefraction = 8,
           maxDepthRefractionGlossy = 8, maxDepthShadow = 8;
  float radianceClamp = 3.4028235e38f;
  float rayEpsilon = 1e-4f;                      // scaled by the scene's size
  uint32_t imageFilterType = 3;                  // 0 none .. 6 blackman
  float imageFilterRadius = 1.5f;
  float displayGamma = 2.2f, textureGamma = 1.0f;
  float mipLodOffset = 0;
  float tileSize[2] = {0, 0};
  float causticsReduction = 1;
  float gpuMemoryLimit = 1;
  uint32_t textureCacheMB = 0;                   // 0: unlimited
  uint32_t normalizeLightIntensity = 0;
  uint32_t renderQuality = 3;
  std::string cpuIntegrator, gpuIntegrator;
  std::vector<std::string> attachedLayers;       // layers attached to the context
  bool anyLayerAttached = false;
  // Contour extraction.
  uint32_t contourObjectId = 1, contourMaterialId = 1, contourNormal = 1, contourUv = 1, contourUvSecondary = 0,
           contourDebug = 0;
  float contourThresholdNormal = 45, contourThresholdUv = 1;
  float contourLineWidthObjectId = 1, contourLineWidthMaterialId = 1, contourLineWidthNormal = 1,
        contourLineWidthUv = 1, contourAntialiasing = 1;
  std::vector<float> indexColors;                // 4 floats per id from zvrContextSetAOVindicesLookup; empty: ids as values
  uint32_t threadCount = 0;                      // worker threads; 0: hardware concurrency
};

// A framebuffer bound to an AOV, as a render target. Calls are thread-safe; each one applies a
// whole iteration at once under the framebuffer's lock, so readers never see part of one.
class FrameBufferTarget {
 public:
  virtual ~FrameBufferTarget() = default;
  virtual uint32_t width() const = 0;
  virtual uint32_t height() const = 0;
  // Adds one iteration: RGB sums of filtered sample values, A the sum of filter weights.
  virtual void addIteration(const float* rgba) = 0;
  // Folds one iteration into a running average (for plug-ins whose buffers hold final values).
  virtual void averageIteration(const float* rgba) = 0;
  // Iterations applied since the framebuffer was last cleared.
  virtual uint32_t iterations() const = 0;
  // The light path expression set on the framebuffer, empty when none.
  virtual std::string lightPathExpression() const = 0;

  // Deep targets (the deep.color AOV, component type 5) also keep each sample's depth, for deep
  // EXR files. A plug-in that renders into a deep target adds the flat sums with addIteration as
  // usual and, for the same iteration, the samples with addDeepSamples: pixel p (row by row) has
  // counts[p] samples, stored one after another in `samples`. Flat targets keep no depth and
  // ignore the call, so these two have bodies and stay last in the class.
  struct DeepSample {
    float depth;    // distance along the camera ray
    float rgba[4];  // filtered value and filter weight, as in addIteration
    // Samples of one surface (the same non-zero value) fold into one sample spanning depth to
    // depthBack; 0 folds samples by nearly equal depth instead.
    uint32_t surface = 0;
    float depthBack = 0;
  };
  virtual bool isDeep() const { return false; }
  virtual void addDeepSamples(const uint32_t* counts, const DeepSample* samples) {
    (void)counts;
    (void)samples;
  }
  // Replaces the pixels with final values that no post effect may change (cryptomatte ranks: ids
  // and coverages in all four channels) and counts `iterationsAdded` more iterations.
  virtual void replaceWithFinalValues(const float* rgba, uint32_t iterationsAdded) {
    (void)rgba;
    (void)iterationsAdded;
  }
};

struct AovTarget {
  uint32_t aov = 0;                              // id of the AOV table
  FrameBufferTarget* target = nullptr;
};

// Services of the core during one render call.
class RenderHost {
 public:
  virtual ~RenderHost() = default;
  virtual void reportProgress(float fraction) = 0;      // fraction of this call, 0 to 1
  virtual void reportUpdateTime(float milliseconds) = 0;        // scene update (BVH, textures)
  virtual void reportFirstIterationTime(float milliseconds) = 0;
  virtual bool abortRequested() const = 0;
};

struct RenderRequest {
  const SceneSnapshot* scene = nullptr;
  const RenderParams* params = nullptr;
  std::vector<AovTarget> targets;
  uint32_t iterations = 1;                       // iterations in this call
  uint64_t firstSampleIndex = 0;                 // sample index of the first iteration of this call
  uint32_t width = 0, height = 0;                // of the colour target (all targets share a size)
  // Side in pixels of the square blocks that share one sample (a cheap provisional picture); 1
  // renders every pixel.
  uint32_t previewBlock = 1;
  RenderHost* host = nullptr;
};

// One render plug-in instance; a context creates one per registered plug-in.
class RenderPlugin {
 public:
  virtual ~RenderPlugin() = default;
  virtual const char* name() const = 0;          // "Velder", "Quillon", "Dorrik"
  virtual ZvrPluginFamily family() const = 0;
  virtual uint32_t version() const = 0;          // ZVR_CONTEXT_PLUGIN_VERSION
  // Whether the plug-in can fill this AOV id; `why` says otherwise.
  virtual bool supportsAov(uint32_t aov, std::string* why) const = 0;
  // Chooses the integrator for a device kind ("cpu" or "gpu" key); false with `error` when unknown.
  virtual bool setIntegrator(bool gpuKey, const std::string& name, std::string* error) = 0;
  // Whether the plug-in supports render layers.
  virtual bool supportsRenderLayers() const = 0;
  // Renders; returns 0 or a negative ZvrStatus with `error` set. Returns 0 after an abort.
  virtual int32_t render(const RenderRequest& request, std::string* error) = 0;
};

}  // namespace zvr

extern "C" typedef zvr::RenderPlugin* (*ZvrPluginEntryFn)();
