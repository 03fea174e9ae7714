// Helpers shared by the render library's tests.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "tests/support/last_error.h"
#include "tests/support/scoped_context.h"

namespace core_test {

// The id of the tests' plug-in, registered by its short name.
int32_t testPluginId();

std::string makeFolder();

// The folder's one fixture: a fresh context on the tests' plug-in and a fresh folder, removed
// with its contents, for every test.
class CoreTest : public ::testing::Test {
 protected:
  ~CoreTest() override { std::filesystem::remove_all(folder); }
  ScopedContext context{{testPluginId()}};
  const std::string folder = makeFolder();
};

// A fixed-size value read through any of the library's get-info calls.
template <class T, class Get, class Key>
T info(Get get, ZvrObject object, Key key) {
  T value{};
  EXPECT_EQ(get(object, key, sizeof value, &value, nullptr), ZVR_SUCCESS) << "key " << key;
  return value;
}

using Text = std::array<char, 256>;

// The call returned `want` and the context's last error holds `words`.
::testing::AssertionResult fails(ZvrStatus got, ZvrStatus want, ZvrContext context, const std::string& words);

std::vector<float> readPixels(ZvrFrameBuffer frameBuffer);
ZvrFrameBuffer makeFrameBuffer(ZvrContext context, uint32_t width, uint32_t height,
                               uint32_t componentType = ZVR_COMPONENT_TYPE_FLOAT32);

// A scene of `shapes` visible triangles and a camera of the given field of view, set as the
// context's scene.
struct TestScene {
  ZvrScene scene = nullptr;
  ZvrCamera camera = nullptr;
  std::vector<ZvrShape> shapes;
};
TestScene makeScene(ZvrContext context, int shapes, float fovY);
ZvrShape makeTriangle(ZvrContext context);

}  // namespace core_test
