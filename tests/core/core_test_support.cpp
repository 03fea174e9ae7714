#include "tests/core/core_test_support.h"

#include <unistd.h>

#include <cstdlib>

namespace core_test {

::testing::AssertionResult fails(ZvrStatus got, ZvrStatus want, ZvrContext context, const std::string& words) {
  const std::string text = lastError(context);
  if (got == want && text.find(words) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "status " << got << " (wanted " << want << "), last error \"" << text
                                       << "\" (wanted \"" << words << "\" in it)";
}

std::string makeFolder() {
  std::string pattern = ::testing::TempDir() + "zvr_core_test_XXXXXX";
  if (!mkdtemp(pattern.data())) ADD_FAILURE() << "cannot make a temporary folder";
  return pattern;
}

int32_t testPluginId() {
  static const int32_t id = zvrRegisterPlugin("ZvrCoreTestPlugin.dll");
  return id;
}

std::vector<float> readPixels(ZvrFrameBuffer frameBuffer) {
  size_t size = 0;
  EXPECT_EQ(zvrFrameBufferGetInfo(frameBuffer, ZVR_FRAMEBUFFER_DATA, 0, nullptr, &size), ZVR_SUCCESS);
  std::vector<float> pixels(size / sizeof(float));
  EXPECT_EQ(zvrFrameBufferGetInfo(frameBuffer, ZVR_FRAMEBUFFER_DATA, size, pixels.data(), nullptr), ZVR_SUCCESS);
  return pixels;
}

ZvrFrameBuffer makeFrameBuffer(ZvrContext context, uint32_t width, uint32_t height, uint32_t componentType) {
  const ZvrFramebufferDesc desc{width, height};
  ZvrFrameBuffer frameBuffer = nullptr;
  EXPECT_EQ(zvrContextCreateFrameBuffer(context, {4, componentType}, &desc, &frameBuffer), ZVR_SUCCESS);
  return frameBuffer;
}

ZvrShape makeTriangle(ZvrContext context) {
  static const float positions[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  ZvrMeshDesc desc{};
  desc.positions = positions;
  desc.vertexCount = 3;
  ZvrShape shape = nullptr;
  EXPECT_EQ(zvrContextCreateMesh(context, &desc, &shape), ZVR_SUCCESS);
  return shape;
}

TestScene makeScene(ZvrContext context, int shapes, float fovY) {
  TestScene result;
  EXPECT_EQ(zvrContextCreateScene(context, &result.scene), ZVR_SUCCESS);
  EXPECT_EQ(zvrContextCreateCamera(context, &result.camera), ZVR_SUCCESS);
  EXPECT_EQ(zvrCameraSetFovY(result.camera, fovY), ZVR_SUCCESS);
  EXPECT_EQ(zvrSceneSetCamera(result.scene, result.camera), ZVR_SUCCESS);
  for (int i = 0; i < shapes; ++i) {
    result.shapes.push_back(makeTriangle(context));
    EXPECT_EQ(zvrSceneAttachShape(result.scene, result.shapes.back()), ZVR_SUCCESS);
  }
  EXPECT_EQ(zvrContextSetScene(context, result.scene), ZVR_SUCCESS);
  return result;
}

}  // namespace core_test
