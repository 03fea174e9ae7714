// The library side of sharding: key 4104 continues the sample sequence, and raw accumulation files
// added together give back the same sums, bit for bit; damaged or unfit files are refused.
#include <fstream>
#include <string>
#include <vector>

#include "engine/ZvrLoadStore.h"
#include "tests/render/engine_fixture.h"
#include "tests/support/last_error.h"

namespace {

const std::string kBox = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/Box/Box.glb";

class Accumulation : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    ZvrMaterialSystem materials = nullptr;
    ASSERT_EQ(zvrContextCreateMaterialSystem(context_, 0, &materials), ZVR_SUCCESS);
    ZvrScene scene = nullptr;
    ASSERT_EQ(zvrsImport(kBox.c_str(), context_, materials, &scene, false, nullptr), ZVR_SUCCESS);
  }
  // Renders `iterations` samples from `first` into a fresh colour framebuffer.
  ZvrFrameBuffer render(uint32_t first, uint32_t iterations) {
    ZvrFrameBuffer buffer = framebuffer(24, 16);
    EXPECT_EQ(zvrContextSetAOV(context_, 0, buffer), ZVR_SUCCESS);
    EXPECT_EQ(zvrContextSetParameterByKey1u(context_, ZVR_CONTEXT_FIRST_SAMPLE_INDEX, first), ZVR_SUCCESS);
    EXPECT_EQ(zvrContextSetParameterByKey1u(context_, ZVR_CONTEXT_ITERATIONS, iterations), ZVR_SUCCESS);
    EXPECT_EQ(zvrContextRender(context_), ZVR_SUCCESS);
    return buffer;
  }
  std::vector<float> pixels(ZvrFrameBuffer buffer) {
    std::vector<float> data(24 * 16 * 4);
    EXPECT_EQ(zvrFrameBufferGetInfo(buffer, ZVR_FRAMEBUFFER_DATA, data.size() * sizeof(float), data.data(), nullptr), 0);
    return data;
  }
};

TEST_F(Accumulation, ShardsAddedEqualOneRenderOfAllTheirSamples) {
  const std::vector<float> whole = pixels(render(0, 6));
  const std::string first = tempFile("first.zacc"), second = tempFile("second.zacc");
  ASSERT_EQ(zvrFrameBufferSaveAccumulation(render(0, 2), first.c_str()), ZVR_SUCCESS);
  ZvrFrameBuffer later = render(2, 4);
  EXPECT_NE(pixels(later), pixels(render(0, 4))) << "key 4104 must move the samples on";
  ASSERT_EQ(zvrFrameBufferSaveAccumulation(later, second.c_str()), ZVR_SUCCESS);

  ZvrFrameBuffer merged = framebuffer(24, 16);
  ASSERT_EQ(zvrFrameBufferAddAccumulation(merged, first.c_str()), ZVR_SUCCESS) << lastError(context_);
  ASSERT_EQ(zvrFrameBufferAddAccumulation(merged, second.c_str()), ZVR_SUCCESS) << lastError(context_);
  EXPECT_EQ(pixels(merged), whole);
  uint32_t iterations = 0;
  ASSERT_EQ(zvrFrameBufferGetInfo(merged, ZVR_FRAMEBUFFER_ITERATIONS, sizeof iterations, &iterations, nullptr), 0);
  EXPECT_EQ(iterations, 6u);
}

TEST_F(Accumulation, UnfitFilesAndFramebuffersAreRefused) {
  const std::string good = tempFile("good.zacc");
  ASSERT_EQ(zvrFrameBufferSaveAccumulation(render(0, 1), good.c_str()), ZVR_SUCCESS);
  const std::string bytes = readWholeFile(good);
  const std::string damaged = tempFile("damaged.zacc"), truncated = tempFile("truncated.zacc");
  std::string flipped = bytes;
  flipped[bytes.size() - 3] ^= 0x10;
  std::ofstream(damaged, std::ios::binary) << flipped;
  std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() - 8);
  ZvrFrameBuffer resolved = framebuffer(24, 16);
  ASSERT_EQ(zvrContextResolveFrameBuffer(context_, render(0, 1), resolved, 0), ZVR_SUCCESS);

  const struct {
    const char* label;
    ZvrFrameBuffer target;
    std::string file;
    ZvrStatus status;
    const char* message;
  } cases[] = {
      {"flipped bit", framebuffer(24, 16), damaged, ZVR_ERROR_IO, "checksum mismatch, the file is damaged"},
      {"cut short", framebuffer(24, 16), truncated, ZVR_ERROR_IO, ": truncated"},
      {"no such file", framebuffer(24, 16), good + ".none", ZVR_ERROR_IO, "cannot be read: No such file"},
      {"not an accumulation", framebuffer(24, 16), kBox, ZVR_ERROR_IO, "not an accumulation file"},
      {"another size", framebuffer(8, 8), good, ZVR_ERROR_INVALID_ARGUMENT,
       "holds 24x16 pixels but the framebuffer is 8x8"},
      {"resolved values", resolved, good, ZVR_ERROR_UNSUPPORTED, "holds resolved values or running averages"},
      {"deep framebuffer", framebuffer(24, 16, ZVR_COMPONENT_TYPE_DEEP), good, ZVR_ERROR_UNSUPPORTED,
       "deep framebuffer"},
  };
  for (const auto& c : cases) {
    const std::vector<float> before = pixels(c.target);
    EXPECT_EQ(zvrFrameBufferAddAccumulation(c.target, c.file.c_str()), c.status) << c.label;
    EXPECT_NE(lastError(context_).find(c.message), std::string::npos) << c.label << ": " << lastError(context_);
    EXPECT_EQ(pixels(c.target), before) << c.label << ": nothing is added";
  }
  EXPECT_EQ(zvrFrameBufferSaveAccumulation(resolved, tempFile("resolved.zacc").c_str()), ZVR_ERROR_UNSUPPORTED);
}

}  // namespace
