// Cost of one displayed frame through the upscaler: upload of the render-sized picture, the
// scaling and sharpening passes, and the blit, at 1280x720 shown at 2560x1440. Run it with a
// display large enough for the window, e.g. xvfb-run -a -s "-screen 0 2560x1440x24".
#include <GL/glew.h>
#include <GLFW/glfw3.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

#include "viewer/upscaler.h"

using namespace zvrs;

namespace {

constexpr int kWidth = 1280, kHeight = 720;
constexpr int kOutputWidth = 2560, kOutputHeight = 1440;
constexpr int kWarmUpFrames = 3;
constexpr int kTimedFrames = 20;

double millisecondsPerCall(const std::function<void()>& call) {
  for (int i = 0; i < kWarmUpFrames; ++i) call();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kTimedFrames; ++i) call();
  const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
  return elapsed.count() / kTimedFrames;
}

// Something like a render: smooth shading, hard edges and a few values above 1.
std::vector<float> makePicture() {
  std::vector<float> rgba(static_cast<size_t>(kWidth) * kHeight * 4);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      float* p = &rgba[(static_cast<size_t>(y) * kWidth + x) * 4];
      const float shade = 0.5f + 0.5f * std::sin(x * 0.013f) * std::cos(y * 0.021f);
      const bool box = (x / 97 + y / 61) % 3 == 0;
      p[0] = box ? 3.0f * shade : shade;
      p[1] = box ? 0.2f : shade * 0.7f;
      p[2] = ((x ^ y) & 15) / 15.0f;
      p[3] = 1.0f;
    }
  return rgba;
}

}  // namespace

int main() {
  if (!glfwInit()) {
    std::fprintf(stderr, "upscaler_bench: no display (run it under xvfb-run)\n");
    return 1;
  }
  GLFWwindow* window = glfwCreateWindow(kOutputWidth, kOutputHeight, "upscaler bench", nullptr, nullptr);
  if (window == nullptr) {
    std::fprintf(stderr, "upscaler_bench: no OpenGL window\n");
    glfwTerminate();
    return 1;
  }
  glfwMakeContextCurrent(window);
  if (glewInit() != GLEW_OK || !GLEW_VERSION_4_3) {
    std::fprintf(stderr, "upscaler_bench: OpenGL 4.3 is not available\n");
    glfwTerminate();
    return 1;
  }
  std::printf("renderer: %s, OpenGL %s\n", glGetString(GL_RENDERER), glGetString(GL_VERSION));
  const std::vector<float> pixels = makePicture();

  for (bool naltEnable : {true, false}) {
    UpscalerState state;
    upscalerConstruct(state);
    upscalerInit(state, kWidth, kHeight, kOutputWidth, kOutputHeight, naltEnable, 0.25f);
    const double frame = millisecondsPerCall([&] {
      upscalerRender(state, kWidth, kHeight, kOutputWidth, kOutputHeight, pixels.data());
      glFinish();
    });
    const double upload = millisecondsPerCall([&] {
      glBindTexture(GL_TEXTURE_2D, state.inputTexture);
      glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, kWidth, kHeight, 0, GL_RGBA, GL_FLOAT, pixels.data());
      glBindTexture(GL_TEXTURE_2D, 0);
      glFinish();
    });
    std::printf(
        "%dx%d -> %dx%d, sharpening %s: %.2f ms per frame (upload + passes + blit), "
        "upload %.2f ms = %.1f%% of the frame\n",
        kWidth, kHeight, kOutputWidth, kOutputHeight, naltEnable ? "on " : "off", frame, upload,
        100.0 * upload / frame);
    upscalerRelease(state);
  }
  glfwDestroyWindow(window);
  glfwTerminate();
  return 0;
}
