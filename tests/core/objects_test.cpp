// Object lifetime, handle checks, scene objects, materials, images and plug-in registration.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <tuple>

#include "tests/core/core_test_support.h"

namespace {

using core_test::CoreTest;
using core_test::fails;
using core_test::info;

std::vector<ZvrObject> listed(ZvrContext context, uint32_t key) {
  size_t size = 0;
  EXPECT_EQ(zvrContextGetInfo(context, key, 0, nullptr, &size), ZVR_SUCCESS);
  std::vector<ZvrObject> handles(size / sizeof(ZvrObject));
  if (size) {
    EXPECT_EQ(zvrContextGetInfo(context, key, size, handles.data(), nullptr), ZVR_SUCCESS);
  }
  return handles;
}

std::vector<unsigned char> fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Lists of kinds the library does not make stay empty; the table of list keys is not repeated here.
TEST_F(CoreTest, ListsByKindHoldExactlyTheLiveObjects) {
  const std::pair<uint32_t, std::function<ZvrStatus(ZvrContext, ZvrObject*)>> kinds[] = {
      {ZVR_CONTEXT_LIST_CREATED_SCENES, zvrContextCreateScene},
      {ZVR_CONTEXT_LIST_CREATED_SHAPES, [](ZvrContext c, ZvrObject* o) { return (*o = core_test::makeTriangle(c)) ? 0 : -1; }},
      {ZVR_CONTEXT_LIST_CREATED_LIGHTS, [](ZvrContext c, ZvrObject* o) { return zvrContextCreateLight(c, ZVR_LIGHT_POINT, o); }},
      {ZVR_CONTEXT_LIST_CREATED_MATERIALSYSTEM, [](ZvrContext c, ZvrObject* o) { return zvrContextCreateMaterialSystem(c, 0, o); }},
  };
  for (const auto& [listKey, create] : kinds) {
    ZvrObject first = nullptr, second = nullptr;
    ASSERT_EQ(create(context, &first) | create(context, &second), ZVR_SUCCESS);
    EXPECT_EQ(listed(context, listKey), (std::vector<ZvrObject>{first, second})) << listKey;
    ASSERT_EQ(zvrObjectDelete(first), ZVR_SUCCESS);
    EXPECT_EQ(listed(context, listKey), (std::vector<ZvrObject>{second})) << listKey;
    EXPECT_TRUE(fails(zvrObjectDelete(first), ZVR_ERROR_INVALID_OBJECT, context, "is not a live object"));
  }
  EXPECT_TRUE(listed(context, ZVR_CONTEXT_LIST_CREATED_CAMERAS).empty());
  ZvrMaterialNode node = nullptr;
  ASSERT_EQ(zvrMaterialSystemCreateNode(listed(context, ZVR_CONTEXT_LIST_CREATED_MATERIALSYSTEM).at(0), ZVR_MATERIAL_NODE_PBR, &node), 0);
  EXPECT_EQ(listed(context, ZVR_CONTEXT_LIST_CREATED_MATERIALNODES), std::vector<ZvrObject>{node});
}

TEST_F(CoreTest, DeadForeignAndWrongKindHandlesAreRefusedAndDeletingClearsReferences) {
  int notAnObject = 0;
  EXPECT_EQ(zvrObjectDelete(nullptr), ZVR_ERROR_INVALID_OBJECT);
  EXPECT_TRUE(fails(zvrObjectDelete(&notAnObject), ZVR_ERROR_INVALID_OBJECT, context, "zvrObjectDelete: object 0x"));
  core_test::TestScene scene = core_test::makeScene(context, 1, 0.5f);
  EXPECT_TRUE(fails(zvrCameraSetMode(scene.scene, 3), ZVR_ERROR_INVALID_OBJECT, context,
                    "zvrCameraSetMode: camera is a scene, not a camera"));
  EXPECT_EQ(zvrContextCreateScene(scene.scene, &scene.scene), ZVR_ERROR_INVALID_OBJECT);
  ZvrContext other = nullptr;
  const int32_t plugin = core_test::testPluginId();
  ASSERT_EQ(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, nullptr, &other), ZVR_SUCCESS);
  ZvrShape foreign = core_test::makeTriangle(other);
  EXPECT_TRUE(fails(zvrSceneAttachShape(scene.scene, foreign), ZVR_ERROR_INVALID_OBJECT, context, "belongs to another context"));
  ASSERT_EQ(zvrObjectDelete(other), ZVR_SUCCESS);
  EXPECT_EQ(zvrObjectDelete(foreign), ZVR_ERROR_INVALID_OBJECT) << "deleting a context deletes what was made in it";

  ASSERT_EQ(zvrObjectDelete(scene.camera), ZVR_SUCCESS);
  ZvrCamera camera = scene.camera;
  ASSERT_EQ(zvrSceneGetCamera(scene.scene, &camera), ZVR_SUCCESS);
  EXPECT_EQ(camera, nullptr);
  ASSERT_EQ(zvrObjectDelete(scene.shapes[0]), ZVR_SUCCESS);
  EXPECT_EQ(zvrSceneDetachShape(scene.scene, scene.shapes[0]), ZVR_ERROR_INVALID_OBJECT);
  ASSERT_EQ(zvrObjectDelete(scene.scene), ZVR_SUCCESS);
  EXPECT_EQ(info<ZvrScene>(zvrContextGetInfo, context, ZVR_CONTEXT_SCENE), nullptr);
}

TEST_F(CoreTest, MeshCreationChecksEveryStream) {
  const float positions[12] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}, withNan[9] = {0, 0, 0, NAN, 0, 0, 0, 1, 0};
  const uint32_t indices[6] = {0, 1, 2, 1, 3, 2}, badIndices[3] = {0, 1, 4};
  // The change to a quad's description; the refusal's words, or "" and the triangles made.
  const std::tuple<std::function<void(ZvrMeshDesc&)>, const char*, uint32_t> cases[] = {
      {[&](ZvrMeshDesc& d) { d.indices = indices; d.indexCount = 6; }, "", 2},
      {[&](ZvrMeshDesc& d) { d.vertexCount = 3; }, "", 1},
      {[](ZvrMeshDesc& d) { d.positions = nullptr; }, "no positions", 0},
      {[&](ZvrMeshDesc& d) { d.indices = badIndices; d.indexCount = 3; }, "mesh index 2 is 4, past the last of 4 vertices", 0},
      {[&](ZvrMeshDesc& d) { d.indices = indices; d.indexCount = 4; }, "not a positive multiple of 3", 0},
      {[](ZvrMeshDesc&) {}, "multiple of 3", 0},
      {[&](ZvrMeshDesc& d) { d.positions = withNan; d.vertexCount = 3; }, "mesh position of vertex 1 is not a finite number", 0},
      {[&](ZvrMeshDesc& d) { d.positionStride = 8; d.vertexCount = 3; }, "stride 8", 0},
  };
  for (const auto& [change, words, triangles] : cases) {
    ZvrMeshDesc desc{positions, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, 4, nullptr, 0};
    change(desc);
    ZvrShape shape = nullptr;
    EXPECT_TRUE(fails(zvrContextCreateMesh(context, &desc, &shape), *words ? ZVR_ERROR_INVALID_ARGUMENT : ZVR_SUCCESS, context, words));
    EXPECT_EQ(shape ? info<uint32_t>(zvrShapeGetInfo, shape, ZVR_SHAPE_TRIANGLE_COUNT) : 0u, triangles) << words;
  }
  EXPECT_EQ(zvrContextCreateMesh(context, nullptr, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
}

// The camera's look-at is read back by the concurrency test, which moves it and sees the picture change.
TEST_F(CoreTest, TransformsAndCameraSettingsAreChecked) {
  ZvrShape shape = core_test::makeTriangle(context);
  ZvrCamera camera = nullptr;
  const float rowMajor[16] = {1, 0, 0, 7, 0, 1, 0, 8, 0, 0, 1, 9, 0, 0, 0, 1}, nan[16] = {NAN};
  ASSERT_EQ(zvrShapeSetTransform(shape, 1, rowMajor), ZVR_SUCCESS);
  const auto m = info<std::array<float, 16>>(zvrShapeGetInfo, shape, ZVR_SHAPE_TRANSFORM);
  EXPECT_EQ((std::array<float, 4>{m[12], m[13], m[14], m[3]}), (std::array<float, 4>{7, 8, 9, 0})) << "stored column by column";
  EXPECT_EQ(zvrShapeSetTransform(shape, 0, nan), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrContextCreateCamera(context, &camera), ZVR_SUCCESS);
  EXPECT_TRUE(fails(zvrCameraLookAt(camera, 0, 0, 0, 0, 0, 0, 0, 1, 0), ZVR_ERROR_INVALID_ARGUMENT, context,
                    "zvrCameraLookAt: the position and the look-at point are the same"));
  EXPECT_TRUE(fails(zvrCameraLookAt(camera, 0, 0, 1, 0, 0, 0, 0, 0, 1), ZVR_ERROR_INVALID_ARGUMENT, context,
                    "zvrCameraLookAt: the up vector is parallel to the view direction"));
  EXPECT_EQ(zvrCameraSetMode(camera, 5), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrCameraSetMode(camera, 4), ZVR_SUCCESS);
  EXPECT_EQ(info<uint32_t>(zvrCameraGetInfo, camera, ZVR_CAMERA_MODE), 4u);
}

// The scene's own sky: one at a time, gone with the scene, its settings checked and read back.
TEST_F(CoreTest, SceneEnvironmentLightIsOwnedByTheScene) {
  ZvrScene scene = nullptr;
  ASSERT_EQ(zvrContextCreateScene(context, &scene), ZVR_SUCCESS);
  ZvrLight first = nullptr, sky = nullptr, point = nullptr;
  ASSERT_EQ(zvrSceneCreateEnvironmentLight(scene, &first), ZVR_SUCCESS);
  ASSERT_EQ(zvrSceneCreateEnvironmentLight(scene, &sky), ZVR_SUCCESS);
  EXPECT_EQ(listed(context, ZVR_CONTEXT_LIST_CREATED_LIGHTS), std::vector<ZvrObject>{sky}) << "the second replaces the first";
  EXPECT_TRUE(fails(zvrLightSetIntensity(sky, -1), ZVR_ERROR_INVALID_ARGUMENT, context, "light intensity -1"));
  ASSERT_EQ(zvrLightSetIntensity(sky, 2.5f), ZVR_SUCCESS);
  ASSERT_EQ(zvrLightSetRotation(sky, -30), ZVR_SUCCESS);
  EXPECT_EQ(info<float>(zvrLightGetInfo, sky, ZVR_LIGHT_INTENSITY), 2.5f);
  EXPECT_EQ(info<float>(zvrLightGetInfo, sky, ZVR_LIGHT_ROTATION), -30.0f);
  EXPECT_TRUE(fails(zvrLightSetImagePath(sky, "/nonexistent/sky.exr"), ZVR_ERROR_IO, context, "/nonexistent/sky.exr"));
  ASSERT_EQ(zvrContextCreateLight(context, ZVR_LIGHT_POINT, &point), ZVR_SUCCESS);
  EXPECT_EQ(zvrLightSetRotation(point, 10), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrLightSetImagePath(point, "sky.hdr"), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrObjectDelete(scene), ZVR_SUCCESS);
  EXPECT_EQ(listed(context, ZVR_CONTEXT_LIST_CREATED_LIGHTS), std::vector<ZvrObject>{point}) << "the sky goes with its scene";
}

// One name of each arity: the names themselves are the glTF importer's to exercise.
TEST_F(CoreTest, MaterialParametersAndTexturesByName) {
  ZvrMaterialSystem system = nullptr;
  ZvrMaterialNode node = nullptr;
  ZvrImage image = nullptr;
  ASSERT_EQ(zvrContextCreateMaterialSystem(context, 0, &system), ZVR_SUCCESS);
  ASSERT_EQ(zvrMaterialSystemCreateNode(system, ZVR_MATERIAL_NODE_PBR, &node), ZVR_SUCCESS);
  EXPECT_EQ(zvrMaterialNodeSetParameter4f(node, "emissive", 0.25f, 0.5f, 0.75f, 1), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrMaterialNodeSetParameter4f(node, "base_color", 0.25f, 0.5f, 0.75f, 1), ZVR_SUCCESS);
  ASSERT_EQ(zvrMaterialNodeSetParameter3f(node, "emissive", 0.25f, 0.5f, 0.75f), ZVR_SUCCESS);
  ASSERT_EQ(zvrMaterialNodeSetParameter1u(node, "double_sided", 1), ZVR_SUCCESS);
  using Color = std::array<float, 4>;
  using Rgb = std::array<float, 3>;
  EXPECT_EQ(info<Color>(zvrMaterialNodeGetParameter, node, "base_color"), (Color{0.25f, 0.5f, 0.75f, 1}));
  EXPECT_EQ(info<Rgb>(zvrMaterialNodeGetParameter, node, "emissive"), (Rgb{0.25f, 0.5f, 0.75f}));
  EXPECT_EQ(info<uint32_t>(zvrMaterialNodeGetParameter, node, "double_sided"), 1u);
  EXPECT_EQ(zvrMaterialNodeSetParameter1f(node, "double_sided", 1), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(zvrMaterialNodeSetParameter1u(node, "alpha_mode", 3), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_TRUE(fails(zvrMaterialNodeSetParameter1f(node, "glossiness", 1), ZVR_ERROR_UNKNOWN_KEY, context,
                    "zvrMaterialNodeSetParameter1f: material node has no parameter \"glossiness\""));
  EXPECT_EQ(zvrMaterialNodeSetParameter1f(node, "roughness", NAN), ZVR_ERROR_INVALID_ARGUMENT);

  const float pixels[2 * 2 * 3] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1};
  const ZvrImageDesc desc{2, 2, 3, ZVR_COMPONENT_TYPE_FLOAT32, ZVR_IMAGE_COLORSPACE_LINEAR};
  ASSERT_EQ(zvrContextCreateImage(context, &desc, pixels, &image), ZVR_SUCCESS);
  ZvrTextureSlot sampling{1, ZVR_WRAP_CLAMP, ZVR_WRAP_MIRROR, ZVR_FILTER_NEAREST, ZVR_FILTER_LINEAR, {0, 0}, 0, {1, 1}};
  ASSERT_EQ(zvrMaterialNodeSetTexture(node, "metallic_roughness", image, &sampling), ZVR_SUCCESS);
  EXPECT_EQ(info<ZvrImage>(zvrMaterialNodeGetParameter, node, "metallic_roughness"), image);
  EXPECT_EQ(zvrMaterialNodeSetTexture(node, "bump", image, nullptr), ZVR_ERROR_UNKNOWN_KEY);
  sampling.wrapS = 9;
  EXPECT_EQ(zvrMaterialNodeSetTexture(node, "normal", image, &sampling), ZVR_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(zvrObjectDelete(image), ZVR_SUCCESS);
  EXPECT_EQ(info<ZvrImage>(zvrMaterialNodeGetParameter, node, "metallic_roughness"), nullptr) << "a deleted image leaves its slots";
}

uint32_t readBigEndian(const std::vector<unsigned char>& bytes, size_t at) {
  return uint32_t(bytes[at]) << 24 | uint32_t(bytes[at + 1]) << 16 | uint32_t(bytes[at + 2]) << 8 | bytes[at + 3];
}

void writeBigEndian(std::vector<unsigned char>& bytes, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[at + i] = uint8_t(value >> (24 - 8 * i));
}

// The PNG with its header claiming another size, and the header's checksum made right again.
std::vector<unsigned char> claiming(std::vector<unsigned char> png, uint32_t width, uint32_t height) {
  writeBigEndian(png, 16, width);
  writeBigEndian(png, 20, height);
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 12; i < 29; ++i) {
    crc ^= png[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  writeBigEndian(png, 29, ~crc);
  return png;
}

// Sizes are refused before anything is allocated for them: a 60-byte header could otherwise ask
// for 68 GB, and 2^31 x 2^31 x 4 components wrapped to an empty pixel array. A chunk length past
// the end made the decoder run out of bytes mid-row, and libpng's jump out of the read callback
// then leaked (the sanitizer build reports it); libpng's own complaints went to standard error.
TEST_F(CoreTest, ImagesAreDecodedAlikeFromFileAndMemoryOrRefusedWithTheReason) {
  const std::string uv = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/TextureTransformTest/UV.png", missing = folder + "/no.png";
  const std::vector<unsigned char> original = fileBytes(uv);
  ZvrImage fromFile = nullptr, fromMemory = nullptr;
  ASSERT_EQ(zvrContextCreateImageFromFile(context, uv.c_str(), ZVR_IMAGE_COLORSPACE_SRGB, &fromFile), ZVR_SUCCESS);
  ASSERT_EQ(zvrContextCreateImageFromMemory(context, original.data(), original.size(), ZVR_IMAGE_COLORSPACE_SRGB, &fromMemory),
            ZVR_SUCCESS);
  for (ZvrImage image : {fromFile, fromMemory}) {
    const auto desc = info<ZvrImageDesc>(zvrImageGetInfo, image, ZVR_IMAGE_DESC);
    EXPECT_EQ(std::vector<uint32_t>({desc.width, desc.height, desc.numComponents, desc.colorSpace}),
              std::vector<uint32_t>({256, 256, 4, ZVR_IMAGE_COLORSPACE_SRGB}));
  }
  EXPECT_GT((info<std::array<uint64_t, 4>>(zvrContextGetInfo, context, ZVR_CONTEXT_MEMORY_INFO)[0]), 256u * 256u)
      << "decoded images count as held memory";
  EXPECT_TRUE(fails(zvrContextCreateImageFromFile(context, missing.c_str(), 0, &fromFile), ZVR_ERROR_IO, context, missing));
  const float pixel[4] = {};
  const ZvrImageDesc badPixels[] = {{0x80000000u, 0x80000000u, 4, ZVR_COMPONENT_TYPE_FLOAT32, 0},
                                    {0xFFFFFFFFu, 1, 1, ZVR_COMPONENT_TYPE_UINT8, 0}};
  for (const ZvrImageDesc& desc : badPixels)
    EXPECT_TRUE(fails(zvrContextCreateImage(context, &desc, pixel, &fromFile), ZVR_ERROR_INVALID_ARGUMENT, context, "16384 x 16384"));
  const ZvrImageDesc fiveComponents{2, 2, 5, ZVR_COMPONENT_TYPE_UINT8, 0};
  EXPECT_EQ(zvrContextCreateImage(context, &fiveComponents, pixel, &fromFile), ZVR_ERROR_INVALID_ARGUMENT);

  std::vector<unsigned char> damagedData = original, truncated(original.begin(), original.begin() + original.size() / 2);
  const auto idat = std::search(damagedData.begin(), damagedData.end(), "IDAT", "IDAT" + 4);
  ASSERT_LT(idat + 20, damagedData.end());
  idat[10] ^= 0xff;
  std::vector<std::pair<std::vector<unsigned char>, const char*>> cases = {
      {claiming(original, 65535, 65535), "16384 x 16384"}, {claiming(original, 16385, 16384), "16384 x 16384"},
      {claiming(original, 0, 256), "Image width is zero in IHDR; Invalid IHDR data"},
      {claiming(original, 2000000, 1), "Invalid IHDR data"}, {damagedData, "IDAT: invalid code lengths set"},
      {truncated, "truncated"}, {{'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e'}, ""}};
  // The header chunk, the first and the last data chunk grown past the end of the file.
  for (const auto& [chunk, added] : {std::pair<size_t, uint32_t>{0, 0x10000}, {1, 0x200000}, {2, 0xF0000000u}}) {
    std::vector<unsigned char> png = original;
    size_t at = 8;
    for (size_t k = 0; k < chunk; ++k) at += 12 + readBigEndian(png, at);
    writeBigEndian(png, at, readBigEndian(png, at) + added);
    cases.push_back({png, "does not fit the file"});
  }
  for (const auto& [png, words] : cases) {
    ZvrImage image = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(fails(zvrContextCreateImageFromMemory(context, png.data(), png.size(), 0, &image), ZVR_ERROR_IO, context, words));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << words << ": the decoder's messages belong in the last error";
    EXPECT_EQ(image, nullptr);
  }
}

// Names are read back where they name the layers of a multilayer EXR.
TEST_F(CoreTest, NamesRenderLayersAndOwnedFiles) {
  const std::string owned = folder + "/scene.ocio";
  std::ofstream(owned) << "ocio_profile_version: 2\n";
  {
    ScopedContext local({core_test::testPluginId()});
    ZvrShape shape = core_test::makeTriangle(local);
    EXPECT_EQ(info<uint32_t>(zvrObjectGetInfo, shape, ZVR_OBJECT_TYPE), uint32_t(ZVR_OBJECT_SHAPE));
    EXPECT_EQ(zvrObjectSetName(shape, std::string(300, 'x').c_str()), ZVR_ERROR_INVALID_ARGUMENT);
    ASSERT_EQ(zvrContextSetParameterByKeyString(local, ZVR_CONTEXT_OWNED_FILE, owned.c_str()), ZVR_SUCCESS);
    EXPECT_TRUE(std::filesystem::exists(owned));
  }
  EXPECT_FALSE(std::filesystem::exists(owned)) << "the context's owned file goes with it";

  for (const char* layer : {"front", "back", "front"}) ASSERT_EQ(zvrContextAttachRenderLayer(context, layer), ZVR_SUCCESS);
  EXPECT_STREQ(info<core_test::Text>(zvrContextGetInfo, context, ZVR_CONTEXT_RENDER_LAYERS).data(), "front\nback\n");
  ASSERT_EQ(zvrContextDetachRenderLayer(context, "front"), ZVR_SUCCESS);
  EXPECT_STREQ(info<core_test::Text>(zvrContextGetInfo, context, ZVR_CONTEXT_RENDER_LAYERS).data(), "back\n");
  EXPECT_EQ(zvrContextAttachRenderLayer(context, nullptr), ZVR_ERROR_INVALID_ARGUMENT);
}

TEST_F(CoreTest, PluginNamesResolveBesideTheLibraryAndOnThePluginPath) {
  const int32_t id = core_test::testPluginId();
  ASSERT_GE(id, 0);
  EXPECT_EQ(zvrRegisterPlugin("libZvrCoreTestPlugin.so"), id);
  EXPECT_EQ(zvrRegisterPlugin(ZVR_BIN_DIR "/libZvrCoreTestPlugin.so"), id);
  EXPECT_EQ(zvrRegisterPlugin("NoSuchPlugin64.dll"), -1);
  EXPECT_EQ(zvrRegisterPlugin(nullptr), -1);
  EXPECT_EQ(zvrRegisterPlugin("ZvrCoreTestPluginOld.dll"), -1) << "an entry point of another version is refused";
  std::ofstream(folder + "/libPathOnly64.so", std::ios::binary) << std::ifstream(ZVR_BIN_DIR "/libZvrCoreTestPlugin.so").rdbuf();
  EXPECT_EQ(zvrRegisterPlugin("PathOnly64.dll"), -1);
  setenv("ZVR_PLUGIN_PATH", ("/nonexistent:" + folder).c_str(), 1);
  const int32_t pathId = zvrRegisterPlugin("PathOnly64.dll");
  unsetenv("ZVR_PLUGIN_PATH");
  EXPECT_GE(pathId, 0);
  EXPECT_NE(pathId, id);
}

}  // namespace
