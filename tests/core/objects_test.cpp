// Object lifetime, handle checks, scene objects, materials, images and plug-in registration.
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <tuple>

#include "tests/core/core_test_support.h"

using core_test::ScopedContext;

namespace {

std::vector<ZvrObject> listed(ZvrContext context, uint32_t key) {
  size_t size = 0;
  EXPECT_EQ(zvrContextGetInfo(context, key, 0, nullptr, &size), ZVR_SUCCESS);
  std::vector<ZvrObject> handles(size / sizeof(ZvrObject));
  if (size) {
    EXPECT_EQ(zvrContextGetInfo(context, key, size, handles.data(), nullptr), ZVR_SUCCESS);
  }
  return handles;
}

bool fileExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

TEST(CoreObjects, ListsByKindHoldExactlyTheLiveObjects) {
  ScopedContext context;
  struct Kind {
    uint32_t listKey;
    std::function<ZvrObject(ZvrContext)> create;
  };
  const ZvrFramebufferDesc desc{4, 4};
  const Kind kinds[] = {
      {ZVR_CONTEXT_LIST_CREATED_SCENES, [](ZvrContext c) { ZvrScene s = nullptr; zvrContextCreateScene(c, &s); return s; }},
      {ZVR_CONTEXT_LIST_CREATED_CAMERAS, [](ZvrContext c) { ZvrCamera s = nullptr; zvrContextCreateCamera(c, &s); return s; }},
      {ZVR_CONTEXT_LIST_CREATED_SHAPES, [](ZvrContext c) { return core_test::makeTriangle(c); }},
      {ZVR_CONTEXT_LIST_CREATED_LIGHTS, [](ZvrContext c) { ZvrLight s = nullptr; zvrContextCreateLight(c, ZVR_LIGHT_POINT, &s); return s; }},
      {ZVR_CONTEXT_LIST_CREATED_POSTEFFECTS, [](ZvrContext c) { ZvrPostEffect s = nullptr; zvrContextCreatePostEffect(c, 3, &s); return s; }},
      {ZVR_CONTEXT_LIST_CREATED_FRAMEBUFFERS, [&](ZvrContext c) { ZvrFrameBuffer s = nullptr; zvrContextCreateFrameBuffer(c, {4, 3}, &desc, &s); return s; }},
      {ZVR_CONTEXT_LIST_CREATED_MATERIALSYSTEM, [](ZvrContext c) { ZvrMaterialSystem s = nullptr; zvrContextCreateMaterialSystem(c, 0, &s); return s; }},
      {ZVR_CONTEXT_LIST_CREATED_IMAGES, [](ZvrContext c) {
         const uint8_t pixel[4] = {1, 2, 3, 4};
         ZvrImageDesc d{1, 1, 4, ZVR_COMPONENT_TYPE_UINT8, 0};
         ZvrImage s = nullptr;
         zvrContextCreateImage(c, &d, pixel, &s);
         return s;
       }},
  };
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.listKey);
    EXPECT_TRUE(listed(context, kind.listKey).empty());
    ZvrObject first = kind.create(context), second = kind.create(context);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(listed(context, kind.listKey), (std::vector<ZvrObject>{first, second}));
    ASSERT_EQ(zvrObjectDelete(first), ZVR_SUCCESS);
    EXPECT_EQ(listed(context, kind.listKey), (std::vector<ZvrObject>{second}));
    EXPECT_EQ(zvrObjectDelete(first), ZVR_ERROR_INVALID_OBJECT);
    EXPECT_NE(lastError(context).find("is not a live object"), std::string::npos) << lastError(context);
  }
  for (uint32_t key : {ZVR_CONTEXT_LIST_CREATED_HETEROVOLUMES, ZVR_CONTEXT_LIST_CREATED_GRIDS, ZVR_CONTEXT_LIST_CREATED_BUFFERS,
                       ZVR_CONTEXT_LIST_CREATED_CURVES, ZVR_CONTEXT_LIST_CREATED_COMPOSITE, ZVR_CONTEXT_LIST_CREATED_LUT})
    EXPECT_TRUE(listed(context, key).empty()) << key;
  ZvrMaterialSystem system = listed(context, ZVR_CONTEXT_LIST_CREATED_MATERIALSYSTEM).at(0);
  ZvrMaterialNode node = nullptr;
  ASSERT_EQ(zvrMaterialSystemCreateNode(system, ZVR_MATERIAL_NODE_PBR, &node), ZVR_SUCCESS);
  EXPECT_EQ(listed(context, ZVR_CONTEXT_LIST_CREATED_MATERIALNODES), std::vector<ZvrObject>{node});
}

TEST(CoreObjects, DeadForeignAndWrongKindHandlesAreRefused) {
  ScopedContext context;
  int notAnObject = 0;
  EXPECT_EQ(zvrObjectDelete(nullptr), ZVR_ERROR_INVALID_OBJECT);
  EXPECT_EQ(zvrObjectDelete(&notAnObject), ZVR_ERROR_INVALID_OBJECT);
  EXPECT_NE(lastError(context).find("zvrObjectDelete: object 0x"), std::string::npos) << lastError(context);
  ZvrScene scene = nullptr;
  ASSERT_EQ(zvrContextCreateScene(context, &scene), ZVR_SUCCESS);
  EXPECT_EQ(zvrCameraSetMode(scene, 3), ZVR_ERROR_INVALID_OBJECT);
  EXPECT_EQ(lastError(context), "zvrCameraSetMode: camera is a scene, not a camera");
  EXPECT_EQ(zvrContextCreateScene(scene, &scene), ZVR_ERROR_INVALID_OBJECT);

  ZvrContext other = nullptr;
  const int32_t plugin = core_test::testPluginId();
  ASSERT_EQ(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, nullptr, &other), ZVR_SUCCESS);
  ZvrShape foreign = core_test::makeTriangle(other);
  EXPECT_EQ(zvrSceneAttachShape(scene, foreign), ZVR_ERROR_INVALID_OBJECT);
  EXPECT_NE(lastError(context).find("belongs to another context"), std::string::npos);
  ASSERT_EQ(zvrObjectDelete(other), ZVR_SUCCESS);
  // Deleting a context deletes what was made in it.
  EXPECT_EQ(zvrObjectDelete(foreign), ZVR_ERROR_INVALID_OBJECT);
  EXPECT_EQ(zvrObjectDelete(other), ZVR_ERROR_INVALID_OBJECT);
}

TEST(CoreObjects, DeletingAnObjectRemovesEveryReferenceToIt) {
  ScopedContext context;
  core_test::TestScene scene = core_test::makeScene(context, 1, 0.5f);
  ZvrMaterialSystem system = nullptr;
  ZvrMaterialNode node = nullptr;
  ASSERT_EQ(zvrContextCreateMaterialSystem(context, 0, &system), ZVR_SUCCESS);
  ASSERT_EQ(zvrMaterialSystemCreateNode(system, ZVR_MATERIAL_NODE_PBR, &node), ZVR_SUCCESS);
  ASSERT_EQ(zvrShapeSetMaterial(scene.shapes[0], node), ZVR_SUCCESS);
  ZvrMaterialNode readBack = nullptr;
  ASSERT_EQ(zvrShapeGetInfo(scene.shapes[0], ZVR_SHAPE_MATERIAL, 8, &readBack, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(readBack, node);
  ASSERT_EQ(zvrObjectDelete(node), ZVR_SUCCESS);
  ASSERT_EQ(zvrShapeGetInfo(scene.shapes[0], ZVR_SHAPE_MATERIAL, 8, &readBack, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(readBack, nullptr);

  ASSERT_EQ(zvrObjectDelete(scene.camera), ZVR_SUCCESS);
  ZvrCamera camera = scene.camera;
  ASSERT_EQ(zvrSceneGetCamera(scene.scene, &camera), ZVR_SUCCESS);
  EXPECT_EQ(camera, nullptr);
  ASSERT_EQ(zvrObjectDelete(scene.shapes[0]), ZVR_SUCCESS);
  EXPECT_EQ(zvrSceneDetachShape(scene.scene, scene.shapes[0]), ZVR_ERROR_INVALID_OBJECT);
  ASSERT_EQ(zvrObjectDelete(scene.scene), ZVR_SUCCESS);
  ZvrScene current = scene.scene;
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_SCENE, 8, &current, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(current, nullptr);
}

TEST(CoreObjects, MeshCreationChecksEveryStream) {
  const float positions[12] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
  const float withNan[9] = {0, 0, 0, NAN, 0, 0, 0, 1, 0};
  const uint32_t indices[6] = {0, 1, 2, 1, 3, 2};
  const uint32_t badIndices[3] = {0, 1, 4};
  struct Case {
    const char* name;
    std::function<void(ZvrMeshDesc&)> change;
    ZvrStatus status;
    const char* message;
    uint32_t triangles;
  };
  const Case cases[] = {
      {"indexed quad", [&](ZvrMeshDesc& d) { d.indices = indices; d.indexCount = 6; }, ZVR_SUCCESS, "", 2},
      {"implicit indices", [&](ZvrMeshDesc& d) { d.vertexCount = 3; }, ZVR_SUCCESS, "", 1},
      {"no positions", [](ZvrMeshDesc& d) { d.positions = nullptr; }, ZVR_ERROR_INVALID_ARGUMENT, "no positions", 0},
      {"index past the end", [&](ZvrMeshDesc& d) { d.indices = badIndices; d.indexCount = 3; }, ZVR_ERROR_INVALID_ARGUMENT,
       "mesh index 2 is 4, past the last of 4 vertices", 0},
      {"index count not a multiple of 3", [&](ZvrMeshDesc& d) { d.indices = indices; d.indexCount = 4; },
       ZVR_ERROR_INVALID_ARGUMENT, "not a positive multiple of 3", 0},
      {"implicit indices of 4 vertices", [](ZvrMeshDesc&) {}, ZVR_ERROR_INVALID_ARGUMENT, "multiple of 3", 0},
      {"NaN position", [&](ZvrMeshDesc& d) { d.positions = withNan; d.vertexCount = 3; }, ZVR_ERROR_INVALID_ARGUMENT,
       "mesh position of vertex 1 is not a finite number", 0},
      {"stride too small", [&](ZvrMeshDesc& d) { d.positionStride = 8; d.vertexCount = 3; }, ZVR_ERROR_INVALID_ARGUMENT,
       "stride 8", 0},
  };
  ScopedContext context;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ZvrMeshDesc desc{};
    desc.positions = positions;
    desc.vertexCount = 4;
    c.change(desc);
    ZvrShape shape = nullptr;
    ASSERT_EQ(zvrContextCreateMesh(context, &desc, &shape), c.status) << lastError(context);
    if (c.status != ZVR_SUCCESS) {
      EXPECT_EQ(shape, nullptr);
      EXPECT_NE(lastError(context).find(c.message), std::string::npos) << lastError(context);
      continue;
    }
    uint32_t triangles = 0;
    ASSERT_EQ(zvrShapeGetInfo(shape, ZVR_SHAPE_TRIANGLE_COUNT, 4, &triangles, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(triangles, c.triangles);
  }
  EXPECT_EQ(zvrContextCreateMesh(context, nullptr, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
}

TEST(CoreObjects, TransformsTakeBothLayouts) {
  ScopedContext context;
  ZvrShape shape = core_test::makeTriangle(context);
  const float rowMajor[16] = {1, 0, 0, 7, 0, 1, 0, 8, 0, 0, 1, 9, 0, 0, 0, 1};
  ASSERT_EQ(zvrShapeSetTransform(shape, 1, rowMajor), ZVR_SUCCESS);
  float m[16] = {};
  ASSERT_EQ(zvrShapeGetInfo(shape, ZVR_SHAPE_TRANSFORM, sizeof m, m, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(m[12], 7);
  EXPECT_EQ(m[13], 8);
  EXPECT_EQ(m[14], 9);
  EXPECT_EQ(m[3], 0);
  const float nan[16] = {NAN};
  EXPECT_EQ(zvrShapeSetTransform(shape, 0, nan), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrShapeSetTransform(shape, 0, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
  ZvrLight light = nullptr;
  ASSERT_EQ(zvrContextCreateLight(context, ZVR_LIGHT_SPOT, &light), ZVR_SUCCESS);
  ASSERT_EQ(zvrLightSetTransform(light, 1, rowMajor), ZVR_SUCCESS);
  ASSERT_EQ(zvrLightGetInfo(light, ZVR_LIGHT_TRANSFORM, sizeof m, m, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(m[13], 8);
}

// The scene's own sky: one at a time, gone with the scene, its settings checked and read back.
TEST(CoreObjects, SceneEnvironmentLightIsOwnedByTheScene) {
  ScopedContext context;
  ZvrScene scene = nullptr;
  ASSERT_EQ(zvrContextCreateScene(context, &scene), ZVR_SUCCESS);
  ZvrLight first = nullptr, second = nullptr;
  ASSERT_EQ(zvrSceneCreateEnvironmentLight(scene, &first), ZVR_SUCCESS);
  ASSERT_EQ(zvrSceneCreateEnvironmentLight(scene, &second), ZVR_SUCCESS);
  EXPECT_EQ(listed(context, ZVR_CONTEXT_LIST_CREATED_LIGHTS), std::vector<ZvrObject>{second}) << "the second replaces the first";

  EXPECT_EQ(zvrLightSetIntensity(second, -1), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(lastError(context).find("light intensity -1"), std::string::npos) << lastError(context);
  ASSERT_EQ(zvrLightSetIntensity(second, 2.5f), ZVR_SUCCESS);
  ASSERT_EQ(zvrLightSetRotation(second, -30), ZVR_SUCCESS);
  float intensity = 0, rotation = 0;
  ASSERT_EQ(zvrLightGetInfo(second, ZVR_LIGHT_INTENSITY, sizeof intensity, &intensity, nullptr), ZVR_SUCCESS);
  ASSERT_EQ(zvrLightGetInfo(second, ZVR_LIGHT_ROTATION, sizeof rotation, &rotation, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(intensity, 2.5f);
  EXPECT_EQ(rotation, -30.0f);
  EXPECT_EQ(zvrLightSetImagePath(second, "/nonexistent/sky.exr"), ZVR_ERROR_IO);
  EXPECT_NE(lastError(context).find("/nonexistent/sky.exr"), std::string::npos) << lastError(context);

  ZvrLight point = nullptr;
  ASSERT_EQ(zvrContextCreateLight(context, ZVR_LIGHT_POINT, &point), ZVR_SUCCESS);
  EXPECT_EQ(zvrLightSetRotation(point, 10), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrLightSetImagePath(point, "sky.hdr"), ZVR_ERROR_INVALID_ARGUMENT);

  ASSERT_EQ(zvrObjectDelete(scene), ZVR_SUCCESS);
  EXPECT_EQ(listed(context, ZVR_CONTEXT_LIST_CREATED_LIGHTS), std::vector<ZvrObject>{point}) << "the sky goes with its scene";
  EXPECT_EQ(zvrObjectDelete(point), ZVR_SUCCESS);
}

TEST(CoreObjects, CameraLookAtIsReadBackAsPositionTargetAndUp) {
  ScopedContext context;
  ZvrCamera camera = nullptr;
  ASSERT_EQ(zvrContextCreateCamera(context, &camera), ZVR_SUCCESS);
  ASSERT_EQ(zvrCameraLookAt(camera, 1, 2, 7, 1, 2, 3, 0, 1, 0), ZVR_SUCCESS);
  struct Expected {
    uint32_t key;
    float value[4];
  };
  const Expected expected[] = {
      {ZVR_CAMERA_POSITION, {1, 2, 7, 1}}, {ZVR_CAMERA_LOOKAT, {1, 2, 3, 1}}, {ZVR_CAMERA_UP, {0, 1, 0, 0}}};
  for (const Expected& e : expected) {
    float v[4] = {};
    ASSERT_EQ(zvrCameraGetInfo(camera, e.key, sizeof v, v, nullptr), ZVR_SUCCESS);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(v[i], e.value[i], 1e-5f) << e.key << " " << i;
  }
  float big[32] = {};
  ASSERT_EQ(zvrCameraGetInfo(camera, ZVR_CAMERA_TRANSFORM, sizeof big, big, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(big[14], 7);
  EXPECT_EQ(big[10], 1) << "the camera looks along its -z axis";
  EXPECT_EQ(zvrCameraGetInfo(camera, ZVR_CAMERA_TRANSFORM, 32, big, nullptr), ZVR_ERROR_INVALID_SIZE);
  EXPECT_EQ(zvrCameraLookAt(camera, 0, 0, 0, 0, 0, 0, 0, 1, 0), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(lastError(context), "zvrCameraLookAt: the position and the look-at point are the same");
  EXPECT_EQ(zvrCameraLookAt(camera, 0, 0, 1, 0, 0, 0, 0, 0, 1), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(lastError(context), "zvrCameraLookAt: the up vector is parallel to the view direction");
  EXPECT_EQ(zvrCameraLookAt(camera, NAN, 0, 1, 0, 0, 0, 0, 1, 0), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(lastError(context), "zvrCameraLookAt: the arguments must be finite numbers");
  EXPECT_EQ(zvrCameraSetMode(camera, 5), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrCameraSetMode(camera, 4), ZVR_SUCCESS);
  uint32_t mode = 0;
  ASSERT_EQ(zvrCameraGetInfo(camera, ZVR_CAMERA_MODE, 4, &mode, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(mode, 4u);
}

TEST(CoreObjects, MaterialParametersByNameWithTheirArity) {
  ScopedContext context;
  ZvrMaterialSystem system = nullptr;
  ZvrMaterialNode node = nullptr;
  ASSERT_EQ(zvrContextCreateMaterialSystem(context, 0, &system), ZVR_SUCCESS);
  ASSERT_EQ(zvrMaterialSystemCreateNode(system, ZVR_MATERIAL_NODE_PBR, &node), ZVR_SUCCESS);
  const std::pair<const char*, int> floats[] = {
      {"base_color", 4}, {"metallic", 1}, {"roughness", 1}, {"normal_scale", 1}, {"occlusion_strength", 1},
      {"emissive", 3}, {"attenuation_color", 3}, {"specular_color", 3}, {"sheen_color", 3}, {"emissive_strength", 1},
      {"alpha_cutoff", 1}, {"ior", 1}, {"transmission", 1}, {"thickness", 1}, {"attenuation_distance", 1},
      {"clearcoat", 1}, {"clearcoat_roughness", 1}, {"clearcoat_normal_scale", 1}, {"specular", 1}, {"sheen_roughness", 1}};
  for (const auto& [name, arity] : floats) {
    SCOPED_TRACE(name);
    ZvrStatus set1 = zvrMaterialNodeSetParameter1f(node, name, 0.25f);
    ZvrStatus set3 = zvrMaterialNodeSetParameter3f(node, name, 0.25f, 0.5f, 0.75f);
    ZvrStatus set4 = zvrMaterialNodeSetParameter4f(node, name, 0.25f, 0.5f, 0.75f, 1.0f);
    EXPECT_EQ(set1 == ZVR_SUCCESS, arity == 1);
    EXPECT_EQ(set3 == ZVR_SUCCESS, arity == 3);
    EXPECT_EQ(set4 == ZVR_SUCCESS, arity == 4);
    EXPECT_EQ(zvrMaterialNodeSetParameter1u(node, name, 1), ZVR_ERROR_INVALID_ARGUMENT);
    float value[4] = {};
    size_t size = 0;
    ASSERT_EQ(zvrMaterialNodeGetParameter(node, name, sizeof(float) * arity, value, &size), ZVR_SUCCESS);
    EXPECT_EQ(size, sizeof(float) * arity);
    EXPECT_EQ(value[0], 0.25f);
    if (arity > 1) {
      EXPECT_EQ(value[arity - 1], arity == 4 ? 1.0f : 0.75f);
    }
  }
  for (const char* name : {"alpha_mode", "double_sided", "unlit", "material_id"}) {
    EXPECT_EQ(zvrMaterialNodeSetParameter1u(node, name, 1), ZVR_SUCCESS) << name;
    EXPECT_EQ(zvrMaterialNodeSetParameter1f(node, name, 1), ZVR_ERROR_INVALID_ARGUMENT) << name;
    uint32_t value = 0;
    ASSERT_EQ(zvrMaterialNodeGetParameter(node, name, 4, &value, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(value, 1u) << name;
  }
  EXPECT_EQ(zvrMaterialNodeSetParameter1u(node, "alpha_mode", 3), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrMaterialNodeSetParameter1f(node, "glossiness", 1), ZVR_ERROR_UNKNOWN_KEY);
  EXPECT_EQ(lastError(context), "zvrMaterialNodeSetParameter1f: material node has no parameter \"glossiness\"");
  EXPECT_EQ(zvrMaterialNodeSetParameter1f(node, "roughness", NAN), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrMaterialNodeSetParameter1f(node, nullptr, 1), ZVR_ERROR_INVALID_ARGUMENT);
}

TEST(CoreObjects, TextureSlotsHoldImagesUntilTheImageIsDeleted) {
  ScopedContext context;
  ZvrMaterialSystem system = nullptr;
  ZvrMaterialNode node = nullptr;
  ASSERT_EQ(zvrContextCreateMaterialSystem(context, 0, &system), ZVR_SUCCESS);
  ASSERT_EQ(zvrMaterialSystemCreateNode(system, ZVR_MATERIAL_NODE_PBR, &node), ZVR_SUCCESS);
  const float pixels[2 * 2 * 3] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1};
  ZvrImageDesc desc{2, 2, 3, ZVR_COMPONENT_TYPE_FLOAT32, ZVR_IMAGE_COLORSPACE_LINEAR};
  ZvrImage image = nullptr;
  ASSERT_EQ(zvrContextCreateImage(context, &desc, pixels, &image), ZVR_SUCCESS);
  const char* slots[] = {"base_color", "metallic_roughness", "normal", "occlusion", "emissive", "transmission",
                         "thickness", "clearcoat", "clearcoat_roughness", "clearcoat_normal", "specular",
                         "specular_color", "sheen_color", "sheen_roughness"};
  ZvrTextureSlot sampling{1, ZVR_WRAP_CLAMP, ZVR_WRAP_MIRROR, ZVR_FILTER_NEAREST, ZVR_FILTER_LINEAR, {0, 0}, 0, {1, 1}};
  for (const char* slot : slots) {
    ASSERT_EQ(zvrMaterialNodeSetTexture(node, slot, image, &sampling), ZVR_SUCCESS) << slot;
    ZvrImage readBack = nullptr;
    ASSERT_EQ(zvrMaterialNodeGetParameter(node, slot, sizeof readBack, &readBack, nullptr), ZVR_SUCCESS) << slot;
    EXPECT_EQ(readBack, image) << slot;
  }
  EXPECT_EQ(zvrMaterialNodeSetTexture(node, "bump", image, nullptr), ZVR_ERROR_UNKNOWN_KEY);
  sampling.wrapS = 9;
  EXPECT_EQ(zvrMaterialNodeSetTexture(node, "normal", image, &sampling), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrObjectDelete(image), ZVR_SUCCESS);
  ZvrImage readBack = image;
  ASSERT_EQ(zvrMaterialNodeGetParameter(node, "normal", sizeof readBack, &readBack, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(readBack, nullptr);
}

TEST(CoreObjects, ImagesFromPixelsFilesAndMemory) {
  ScopedContext context;
  const std::string folder = core_test::makeTempFolder();
  const std::string png = folder + "/checker.png";
  {
    const uint8_t pixels[3 * 2 * 3] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30, 40, 50, 60, 70, 80, 90};
    auto out = OIIO::ImageOutput::create(png);
    ASSERT_TRUE(out);
    ASSERT_TRUE(out->open(png, OIIO::ImageSpec(3, 2, 3, OIIO::TypeDesc::UINT8)));
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::UINT8, pixels));
    out->close();
  }
  ZvrImage fromFile = nullptr;
  ASSERT_EQ(zvrContextCreateImageFromFile(context, png.c_str(), ZVR_IMAGE_COLORSPACE_SRGB, &fromFile), ZVR_SUCCESS)
      << lastError(context);
  ZvrImageDesc desc{};
  ASSERT_EQ(zvrImageGetInfo(fromFile, ZVR_IMAGE_DESC, sizeof desc, &desc, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(desc.width, 3u);
  EXPECT_EQ(desc.height, 2u);
  EXPECT_EQ(desc.numComponents, 3u);
  EXPECT_EQ(desc.colorSpace, uint32_t(ZVR_IMAGE_COLORSPACE_SRGB));

  std::ifstream file(png, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  ZvrImage fromMemory = nullptr;
  ASSERT_EQ(zvrContextCreateImageFromMemory(context, bytes.data(), bytes.size(), 0, &fromMemory), ZVR_SUCCESS)
      << lastError(context);
  ASSERT_EQ(zvrImageGetInfo(fromMemory, ZVR_IMAGE_DESC, sizeof desc, &desc, nullptr), ZVR_SUCCESS);
  EXPECT_EQ(desc.width, 3u);

  const char garbage[] = "definitely not an image";
  EXPECT_EQ(zvrContextCreateImageFromMemory(context, garbage, sizeof garbage, 0, &fromMemory), ZVR_ERROR_IO);
  bytes.resize(bytes.size() / 2);
  EXPECT_EQ(zvrContextCreateImageFromMemory(context, bytes.data(), bytes.size(), 0, &fromMemory), ZVR_ERROR_IO);
  EXPECT_NE(lastError(context).find("truncated"), std::string::npos) << lastError(context);
  const std::string missing = folder + "/missing.png";
  EXPECT_EQ(zvrContextCreateImageFromFile(context, missing.c_str(), 0, &fromFile), ZVR_ERROR_IO);
  EXPECT_NE(lastError(context).find(missing), std::string::npos) << lastError(context);
  ZvrImageDesc bad{2, 2, 5, ZVR_COMPONENT_TYPE_UINT8, 0};
  EXPECT_EQ(zvrContextCreateImage(context, &bad, garbage, &fromFile), ZVR_ERROR_INVALID_ARGUMENT);
}

uint32_t pngCrc(const unsigned char* data, size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// A real PNG whose header claims another size, with the header's checksum made right again.
std::vector<unsigned char> pngClaiming(uint32_t width, uint32_t height) {
  std::ifstream file(std::string(ZVR_SHARED_DIR) + "/scenes/gltf/TextureTransformTest/UV.png", std::ios::binary);
  std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const unsigned char size[8] = {uint8_t(width >> 24), uint8_t(width >> 16), uint8_t(width >> 8), uint8_t(width),
                                 uint8_t(height >> 24), uint8_t(height >> 16), uint8_t(height >> 8), uint8_t(height)};
  std::copy(size, size + 8, bytes.begin() + 16);
  const uint32_t crc = pngCrc(bytes.data() + 12, 17);
  const unsigned char crcBytes[4] = {uint8_t(crc >> 24), uint8_t(crc >> 16), uint8_t(crc >> 8), uint8_t(crc)};
  std::copy(crcBytes, crcBytes + 4, bytes.begin() + 29);
  return bytes;
}

// Sizes are refused before anything is allocated for them: a 60-byte header could otherwise ask
// for 68 GB, and 2^31 x 2^31 x 4 components wrapped to an empty pixel array.
TEST(CoreObjects, ImagesBeyond16384SquaredAreRefusedBeforeAllocation) {
  ScopedContext context;
  struct Case {
    const char* name;
    std::function<ZvrStatus(ZvrImage*)> create;
    ZvrStatus status;
  };
  const float pixel[4] = {};
  const Case cases[] = {
      {"PNG header of 65535 x 65535",
       [&](ZvrImage* out) {
         const auto png = pngClaiming(65535, 65535);
         return zvrContextCreateImageFromMemory(context, png.data(), png.size(), 0, out);
       },
       ZVR_ERROR_IO},
      {"PNG header of 16385 x 16384",
       [&](ZvrImage* out) {
         const auto png = pngClaiming(16385, 16384);
         return zvrContextCreateImageFromMemory(context, png.data(), png.size(), 0, out);
       },
       ZVR_ERROR_IO},
      {"pixels of 2^31 x 2^31 x 4",
       [&](ZvrImage* out) {
         const ZvrImageDesc desc{0x80000000u, 0x80000000u, 4, ZVR_COMPONENT_TYPE_FLOAT32, 0};
         return zvrContextCreateImage(context, &desc, pixel, out);
       },
       ZVR_ERROR_INVALID_ARGUMENT},
      {"pixels of 2^32-1 x 1",
       [&](ZvrImage* out) {
         const ZvrImageDesc desc{0xFFFFFFFFu, 1, 1, ZVR_COMPONENT_TYPE_UINT8, 0};
         return zvrContextCreateImage(context, &desc, pixel, out);
       },
       ZVR_ERROR_INVALID_ARGUMENT},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ZvrImage image = nullptr;
    EXPECT_EQ(c.create(&image), c.status);
    EXPECT_EQ(image, nullptr);
    EXPECT_NE(lastError(context).find("16384 x 16384"), std::string::npos) << lastError(context);
  }
}

// A chunk length past the end made the decoder run out of bytes mid-row; libpng's jump out of
// the read callback then leaked (the sanitizer build reports it). libpng's own complaints were
// printed on standard error.
TEST(CoreObjects, CorruptPngsAreRefusedWithTheDecodersText) {
  struct Case {
    const char* name;
    size_t chunk;         // which chunk's length to change, counted from the first
    uint32_t lengthAdded;
  };
  const Case cases[] = {{"header chunk grown", 0, 0x10000}, {"first data chunk grown by 2 MB", 1, 0x200000},
                        {"last data chunk of nearly 4 GB", 2, 0xF0000000u}};
  const std::vector<unsigned char> original = pngClaiming(256, 256);  // UV.png's own size
  ScopedContext context;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<unsigned char> png = original;
    size_t at = 8;
    for (size_t k = 0; k < c.chunk; ++k)
      at += 12 + (size_t(png[at]) << 24 | size_t(png[at + 1]) << 16 | size_t(png[at + 2]) << 8 | png[at + 3]);
    ASSERT_LT(at + 8, png.size());
    const uint32_t length =
        (uint32_t(png[at]) << 24 | uint32_t(png[at + 1]) << 16 | uint32_t(png[at + 2]) << 8 | png[at + 3]) + c.lengthAdded;
    const unsigned char lengthBytes[4] = {uint8_t(length >> 24), uint8_t(length >> 16), uint8_t(length >> 8), uint8_t(length)};
    std::copy(lengthBytes, lengthBytes + 4, png.begin() + long(at));
    ZvrImage image = nullptr;
    EXPECT_EQ(zvrContextCreateImageFromMemory(context, png.data(), png.size(), 0, &image), ZVR_ERROR_IO);
    EXPECT_NE(lastError(context).find("does not fit the file"), std::string::npos) << lastError(context);
  }
  std::vector<unsigned char> damagedData = original;
  const auto idat = std::search(damagedData.begin(), damagedData.end(), "IDAT", "IDAT" + 4);
  ASSERT_LT(idat + 20, damagedData.end());
  idat[10] ^= 0xff;
  const struct {
    const char* name;
    std::vector<unsigned char> png;
    const char* words;
  } decoderCases[] = {{"zero width", pngClaiming(0, 256), "Image width is zero in IHDR; Invalid IHDR data"},
                      {"width beyond libpng's limit", pngClaiming(2000000, 1), "Invalid IHDR data"},
                      {"damaged data chunk", damagedData, "IDAT: invalid code lengths set"}};
  for (const auto& c : decoderCases) {
    SCOPED_TRACE(c.name);
    ZvrImage image = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(zvrContextCreateImageFromMemory(context, c.png.data(), c.png.size(), 0, &image), ZVR_ERROR_IO);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the decoder's messages belong in the last error";
    EXPECT_NE(lastError(context).find(c.words), std::string::npos) << lastError(context);
  }
  ZvrImage image = nullptr;
  EXPECT_EQ(zvrContextCreateImageFromMemory(context, original.data(), original.size(), 0, &image), ZVR_SUCCESS)
      << lastError(context);
}

TEST(CoreObjects, RealSceneTexturesDecodeFromFileAndMemoryAlike) {
  const std::string scenes = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/";
  const char* files[] = {"LightsPunctualLamp/material0_basecolor.jpeg", "LightsPunctualLamp/material1_normal.png",
                         "TextureTransformTest/UV.png", "CornellBox/checker-meter.png"};
  ScopedContext context;
  for (const char* name : files) {
    SCOPED_TRACE(name);
    const std::string path = scenes + name;
    auto reference = OIIO::ImageInput::open(path);
    if (!reference) GTEST_SKIP() << path << " is not in the shared folder";
    ZvrImage fromFile = nullptr, fromMemory = nullptr;
    ASSERT_EQ(zvrContextCreateImageFromFile(context, path.c_str(), ZVR_IMAGE_COLORSPACE_SRGB, &fromFile), ZVR_SUCCESS)
        << lastError(context);
    std::ifstream file(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    ASSERT_EQ(zvrContextCreateImageFromMemory(context, bytes.data(), bytes.size(), ZVR_IMAGE_COLORSPACE_SRGB, &fromMemory),
              ZVR_SUCCESS)
        << lastError(context);
    ZvrImageDesc a{}, b{};
    ASSERT_EQ(zvrImageGetInfo(fromFile, ZVR_IMAGE_DESC, sizeof a, &a, nullptr), ZVR_SUCCESS);
    ASSERT_EQ(zvrImageGetInfo(fromMemory, ZVR_IMAGE_DESC, sizeof b, &b, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(a.width, uint32_t(reference->spec().width));
    EXPECT_EQ(a.height, uint32_t(reference->spec().height));
    EXPECT_EQ(a.numComponents, uint32_t(std::min(reference->spec().nchannels, 4)));
    EXPECT_EQ(std::make_tuple(a.width, a.height, a.numComponents, a.colorSpace),
              std::make_tuple(b.width, b.height, b.numComponents, b.colorSpace));
  }
  uint64_t memory[4] = {};
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_MEMORY_INFO, sizeof memory, memory, nullptr), ZVR_SUCCESS);
  EXPECT_GT(memory[0], 0u) << "decoded textures count as held memory";
}

TEST(CoreObjects, NamesAndOwnedFiles) {
  const std::string folder = core_test::makeTempFolder();
  const std::string owned = folder + "/scene.ocio";
  std::ofstream(owned) << "ocio_profile_version: 2\n";
  {
    ScopedContext context;
    ZvrShape shape = core_test::makeTriangle(context);
    ASSERT_EQ(zvrObjectSetName(shape, "wheel"), ZVR_SUCCESS);
    char name[256] = {};
    ASSERT_EQ(zvrShapeGetInfo(shape, ZVR_OBJECT_NAME, sizeof name, name, nullptr), ZVR_SUCCESS);
    EXPECT_STREQ(name, "wheel");
    uint32_t type = 0;
    ASSERT_EQ(zvrObjectGetInfo(shape, ZVR_OBJECT_TYPE, 4, &type, nullptr), ZVR_SUCCESS);
    EXPECT_EQ(type, uint32_t(ZVR_OBJECT_SHAPE));
    EXPECT_EQ(zvrObjectSetName(shape, std::string(300, 'x').c_str()), ZVR_ERROR_INVALID_ARGUMENT);
    ASSERT_EQ(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_OWNED_FILE, owned.c_str()), ZVR_SUCCESS);
    EXPECT_TRUE(fileExists(owned));
  }
  EXPECT_FALSE(fileExists(owned));
}

TEST(CoreObjects, RenderLayersAttachOnceAndDetach) {
  ScopedContext context;
  for (const char* layer : {"front", "back", "front"}) ASSERT_EQ(zvrContextAttachRenderLayer(context, layer), ZVR_SUCCESS);
  char text[256] = {};
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_RENDER_LAYERS, sizeof text, text, nullptr), ZVR_SUCCESS);
  EXPECT_STREQ(text, "front\nback\n");
  ASSERT_EQ(zvrContextDetachRenderLayer(context, "front"), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextGetInfo(context, ZVR_CONTEXT_RENDER_LAYERS, sizeof text, text, nullptr), ZVR_SUCCESS);
  EXPECT_STREQ(text, "back\n");
  EXPECT_EQ(zvrContextAttachRenderLayer(context, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
}

TEST(CoreObjects, PluginNamesResolveBesideTheLibraryAndOnThePluginPath) {
  const int32_t id = core_test::testPluginId();
  ASSERT_GE(id, 0);
  EXPECT_EQ(zvrRegisterPlugin("libZvrCoreTestPlugin.so"), id);
  EXPECT_EQ(zvrRegisterPlugin((core_test::binFolder() + "/libZvrCoreTestPlugin.so").c_str()), id);
  EXPECT_EQ(zvrRegisterPlugin("NoSuchPlugin64.dll"), -1);
  EXPECT_EQ(zvrRegisterPlugin(nullptr), -1);
  EXPECT_EQ(zvrRegisterPlugin("ZvrCoreTestPluginOld.dll"), -1) << "an entry point of another version is refused";

  const std::string folder = core_test::makeTempFolder();
  {
    std::ifstream source(core_test::binFolder() + "/libZvrCoreTestPlugin.so", std::ios::binary);
    std::ofstream copy(folder + "/libPathOnly64.so", std::ios::binary);
    copy << source.rdbuf();
  }
  EXPECT_EQ(zvrRegisterPlugin("PathOnly64.dll"), -1);
  setenv("ZVR_PLUGIN_PATH", ("/nonexistent:" + folder).c_str(), 1);
  const int32_t pathId = zvrRegisterPlugin("PathOnly64.dll");
  unsetenv("ZVR_PLUGIN_PATH");
  EXPECT_GE(pathId, 0);
  EXPECT_NE(pathId, id);
}

}  // namespace
