// Helpers shared by the render library's tests.
#pragma once

#include <string>
#include <vector>

#include "engine/ZvrCore.h"
#include "tests/support/last_error.h"

namespace core_test {

// The id of the tests' plug-in, registered by its short name.
int32_t testPluginId();

// Deletes the context when the test ends, whatever happened.
class ScopedContext {
 public:
  explicit ScopedContext(uint32_t flags = ZVR_CREATION_FLAGS_ENABLE_CPU, std::vector<int32_t> plugins = {testPluginId()},
                         const ZvrContextProperties* properties = nullptr);
  ~ScopedContext();
  ScopedContext(const ScopedContext&) = delete;
  ScopedContext& operator=(const ScopedContext&) = delete;
  operator ZvrContext() const { return context_; }
  ZvrContext get() const { return context_; }
  ZvrStatus status() const { return status_; }
  // Forgets the context, for tests that delete it themselves.
  void release() { context_ = nullptr; }

 private:
  ZvrContext context_ = nullptr;
  ZvrStatus status_;
};

// A fresh folder under the system's temporary folder, removed with its contents at exit.
std::string makeTempFolder();
std::vector<std::string> folderEntries(const std::string& folder);
std::string binFolder();
std::vector<float> readPixels(ZvrFrameBuffer frameBuffer);

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
