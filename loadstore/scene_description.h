// The one intermediate description every reader fills and every writer or instantiator consumes.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace zvr::loadstore {

struct Trs {
  std::array<float, 3> translation{0.f, 0.f, 0.f};
  std::array<float, 4> rotation{0.f, 0.f, 0.f, 1.f};  // quaternion x, y, z, w
  std::array<float, 3> scale{1.f, 1.f, 1.f};
};

struct Node {
  std::string name;        // unique among the description's nodes
  int parent = -1;         // index into SceneDescription::nodes
  uint32_t sourceIndex = 0;  // index in the source file: the group id
  Trs local;
  int mesh = -1;
  int camera = -1;
  int light = -1;
  uint32_t catcher = 0;    // ZvrCatcherFlags of the node's shapes
};

// Triangle lists with every stream expanded per vertex; empty streams are absent.
struct Primitive {
  std::vector<float> positions;  // 3 a vertex
  std::vector<float> normals;    // 3
  std::vector<float> tangents;   // 4
  std::vector<float> texcoords0; // 2
  std::vector<float> texcoords1; // 2
  std::vector<float> colors;     // 4, linear RGBA
  std::vector<uint32_t> indices; // 3 a triangle
  int material = -1;
  size_t vertexCount() const { return positions.size() / 3; }
};

struct Mesh {
  std::string name;
  uint32_t sourceIndex = 0;  // index in the source file: the mesh id
  std::vector<Primitive> primitives;
};

enum class TextureSlot : uint32_t {
  BaseColor, MetallicRoughness, Normal, Occlusion, Emissive, Transmission, Thickness, Clearcoat,
  ClearcoatRoughness, ClearcoatNormal, Specular, SpecularColor, SheenColor, SheenRoughness, Count
};
constexpr size_t kTextureSlotCount = static_cast<size_t>(TextureSlot::Count);
const char* textureSlotName(TextureSlot slot);
bool textureSlotIsSrgb(TextureSlot slot);
bool textureSlotFromName(const std::string& name, TextureSlot* out);

struct TextureRef {
  int image = -1;  // -1: slot unused
  uint32_t texcoord = 0;
  uint32_t wrapS = 0, wrapT = 0;          // ZvrWrapMode
  uint32_t magFilter = 0, minFilter = 0;  // ZvrFilterMode
  std::array<float, 2> offset{0.f, 0.f};
  float rotation = 0.f;
  std::array<float, 2> scale{1.f, 1.f};
};

struct Material {
  std::string name;
  std::array<float, 4> baseColor{1.f, 1.f, 1.f, 1.f};
  float metallic = 1.f, roughness = 1.f;
  float normalScale = 1.f, occlusionStrength = 1.f;
  std::array<float, 3> emissive{0.f, 0.f, 0.f};
  float emissiveStrength = 1.f;
  uint32_t alphaMode = 0;  // ZvrAlphaMode
  float alphaCutoff = 0.5f;
  bool doubleSided = false, unlit = false;
  float ior = 1.5f, transmission = 0.f, thickness = 0.f;
  std::array<float, 3> attenuationColor{1.f, 1.f, 1.f};
  float attenuationDistance = 0.f;  // 0: infinite
  float clearcoat = 0.f, clearcoatRoughness = 0.f, clearcoatNormalScale = 1.f;
  float specular = 1.f;
  std::array<float, 3> specularColor{1.f, 1.f, 1.f};
  std::array<float, 3> sheenColor{0.f, 0.f, 0.f};
  float sheenRoughness = 0.f;
  std::array<TextureRef, kTextureSlotCount> textures;
  int lightGroup = -1;  // of its emission, 0..15; -1 none

  const TextureRef& texture(TextureSlot s) const { return textures[static_cast<size_t>(s)]; }
  TextureRef& texture(TextureSlot s) { return textures[static_cast<size_t>(s)]; }
  bool emits() const;
};

// Images stay encoded (PNG, JPEG, ...); the core decodes them in the colour space of each use.
struct Image {
  std::string name;
  std::string mimeType;
  std::vector<uint8_t> encoded;
};

struct Camera {
  std::string name;
  bool orthographic = false;
  float yfov = 0.8f;  // radians
  float xmag = 1.f, ymag = 1.f;
  float znear = 0.01f, zfar = 0.f;  // 0: infinite
};

enum class LightType : uint32_t { Point = 0, Spot = 1, Directional = 2 };

struct Light {
  std::string name;
  LightType type = LightType::Point;
  std::array<float, 3> color{1.f, 1.f, 1.f};
  float intensity = 1.f;
  float innerCone = 0.f, outerCone = 0.7853982f;
  int lightGroup = -1;  // 0..15; -1 none
};

// The scene's own sky (the XML document carries it; glTF has none): a constant colour, or a
// lat-long image times the colour.
struct Environment {
  bool present = false;
  std::array<float, 3> color{1.f, 1.f, 1.f};
  float intensity = 1.f;
  float rotation = 0.f;  // degrees about +y
  int image = -1;        // index into the images, linear values; -1 for a constant colour
};

// Linear keys only: readers convert STEP and CUBICSPLINE before they store a channel.
struct AnimationChannel {
  uint32_t animationIndex = 0;
  uint32_t sourceInterpolation = 0;  // ZvrsInterpolation
  int node = -1;
  uint32_t kind = 0;  // ZvrsAnimationKind
  std::vector<float> times;
  std::vector<float> values;
  uint32_t componentCount() const { return kind == 2 ? 4 : 3; }
};

struct OcioFile {
  std::string name;  // plain file name, no folders
  std::vector<uint8_t> bytes;
};

struct OcioConfig {
  std::string configText;  // empty: the scene carries none
  std::vector<OcioFile> files;
};

struct SceneDescription {
  std::vector<Node> nodes;  // parents before children
  std::vector<Mesh> meshes;
  std::vector<Material> materials;
  std::vector<Image> images;
  std::vector<Camera> cameras;
  std::vector<Light> lights;
  Environment environment;
  std::vector<AnimationChannel> animations;
  OcioConfig ocio;
};

}  // namespace zvr::loadstore
