#include "bench/library_scene.h"

#include <cstring>
#include <vector>

#include "engine/ZvrLoadStore.h"

namespace zvr::bench {
namespace {

// Composes a group chain into a world matrix (row vectors: p * local * parent * ...).
void multiplyInto(float out[16], const float a[16], const float b[16]) {
  float r[16];
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) {
      float s = 0;
      for (int k = 0; k < 4; ++k) s += a[4 * i + k] * b[4 * k + j];
      r[4 * i + j] = s;
    }
  std::memcpy(out, r, sizeof(r));
}

void groupMatrix(const ZvrsTransformGroupBlock& g, float m[16]) {
  double x = g.rotation[0], y = g.rotation[1], z = g.rotation[2], w = g.rotation[3];
  double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
                    {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
                    {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) m[4 * i + j] = float(r[i][j] * g.scale[i]);
    m[4 * i + 3] = 0;
  }
  m[12] = g.translation[0], m[13] = g.translation[1], m[14] = g.translation[2], m[15] = 1;
}

bool composeParents(std::string group, float world[16]) {
  char name[1024];
  for (int guard = 0; !group.empty() && guard < 1000; ++guard) {
    ZvrsTransformGroupBlock block;
    if (zvrsGetTransformGroup(group.c_str(), &block) != 0) return false;
    float g[16];
    groupMatrix(block, g);
    multiplyInto(world, world, g);
    name[0] = 0;
    if (zvrsGetParentGroupFromGroup(group.c_str(), sizeof(name), name, nullptr) != 0) return false;
    group = name;
  }
  return true;
}

}  // namespace

std::string libraryFailure(const LibraryScene& scene, const char* call, ZvrStatus status) {
  char text[1024] = "";
  if (scene.context) zvrContextGetInfo(scene.context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, sizeof(text), text, nullptr);
  return std::string(call) + " failed with " + std::to_string(status) + ": " + text;
}

#define BENCH_CHECK(call)                                      \
  do {                                                         \
    ZvrStatus status_ = (call);                                \
    if (status_ != 0) {                                        \
      *error = libraryFailure(out, #call, status_);            \
      return false;                                            \
    }                                                          \
  } while (0)

bool openLibraryScene(const std::string& path, uint32_t threads, LibraryScene& out, std::string* error) {
  int32_t plugin = zvrRegisterPlugin("Velder64.dll");
  if (plugin < 0) {
    *error = "Velder64 could not be registered";
    return false;
  }
  ZvrContextProperties props[16] = {ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT, ZvrContextProperties(threads), 0};
  BENCH_CHECK(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, props, nullptr, &out.context));
  BENCH_CHECK(zvrContextSetActivePlugin(out.context, plugin));
  BENCH_CHECK(zvrContextCreateMaterialSystem(out.context, 0, &out.materials));
  BENCH_CHECK(zvrsImport(path.c_str(), out.context, out.materials, &out.scene, 0, nullptr));
  uint32_t count = 0;
  BENCH_CHECK(zvrsListImportedShapes(nullptr, 0, &count));
  std::vector<ZvrShape> shapes(count);
  if (count) BENCH_CHECK(zvrsListImportedShapes(shapes.data(), count * sizeof(ZvrShape), nullptr));
  char name[1024];
  for (ZvrShape s : shapes) {
    float m[16];
    BENCH_CHECK(zvrShapeGetInfo(s, ZVR_SHAPE_TRANSFORM, sizeof(m), m, nullptr));
    name[0] = 0;
    BENCH_CHECK(zvrsGetParentGroupFromShape(s, sizeof(name), name, nullptr));
    if (!composeParents(name, m)) {
      *error = path + ": the groups above a shape cannot be read";
      return false;
    }
    BENCH_CHECK(zvrShapeSetTransform(s, 0, m));
  }
  BENCH_CHECK(zvrsListImportedCameras(nullptr, 0, &count));
  std::vector<ZvrCamera> cameras(count);
  if (count) BENCH_CHECK(zvrsListImportedCameras(cameras.data(), count * sizeof(ZvrCamera), nullptr));
  for (ZvrCamera c : cameras) {
    float m[32];
    BENCH_CHECK(zvrCameraGetInfo(c, ZVR_CAMERA_TRANSFORM, sizeof(m), m, nullptr));
    name[0] = 0;
    BENCH_CHECK(zvrsGetParentGroupFromCamera(c, sizeof(name), name, nullptr));
    if (!composeParents(name, m)) {
      *error = path + ": the groups above a camera cannot be read";
      return false;
    }
    BENCH_CHECK(zvrCameraSetTransform(c, 0, m));
  }
  return true;
}

LibraryScene::~LibraryScene() {
  if (!context) return;
  zvrsDeleteListImportedObjects(context);
  zvrObjectDelete(context);
}

bool prepareReferenceRender(LibraryScene& out, uint32_t size, ZvrFrameBuffer* colour, std::string* error) {
  BENCH_CHECK(zvrContextSetParameterByKey1u(out.context, ZVR_CONTEXT_MAX_DEPTH, 8));
  BENCH_CHECK(zvrContextSetParameterByKey1u(out.context, ZVR_CONTEXT_IMAGE_FILTER_TYPE, 3));
  BENCH_CHECK(zvrContextSetParameterByKey1f(out.context, ZVR_CONTEXT_IMAGE_FILTER_RADIUS, 1.125f));
  ZvrFramebufferDesc desc{size, size};
  BENCH_CHECK(zvrContextCreateFrameBuffer(out.context, ZvrFramebufferFormat{4, ZVR_COMPONENT_TYPE_FLOAT32}, &desc, colour));
  BENCH_CHECK(zvrContextSetAOV(out.context, 0, *colour));
  return true;
}

}  // namespace zvr::bench
