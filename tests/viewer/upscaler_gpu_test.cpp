// The upscaler's passes run for real in a GLFW window (under xvfb-run on Mesa's llvmpipe) and are
// held against the CPU passes; without a display or OpenGL 4.3 every test here is skipped.
#include <GL/glew.h>
#include <GLFW/glfw3.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <functional>
#include <string>
#include <vector>

#include "tests/render/image_file.h"
#include "viewer/upscaler.h"
#include "viewer/upscaler_constants.h"
#include "tests/viewer/upscaler_reference.h"

using namespace zvrs;

namespace {

constexpr int kWindowWidth = 640;
constexpr int kWindowHeight = 480;

// Largest |gpu - cpu| allowed, relative to max(1, |cpu|). Both sides run the same float
// formulas, bit-trick reciprocals included, and the texel choice (floor of x * scale + bias) is
// kept unfused on both, so what is left is rounding: the driver may fuse a multiply and add,
// reorder or use its own exact reciprocal, an ulp (6e-8) here and there. The scaling sums twelve
// taps whose weights of both signs are divided by their sum, which amplifies that by the ratio of
// the absolute weights to the sum; the sharpening divides by 4 * lobe + 1, as low as 0.25, after
// a sum of five terms. On llvmpipe the worst seen is 1.1e-6 for scaling (a rendered scene, values
// above 1) and 4.8e-7 for sharpening; the bounds leave three times that. A wrong tap, weight or
// lobe constant shows at 1e-4 and above, a wrong low bit in a reciprocal's constant at 2e-6.
constexpr float kScalingTolerance = 4e-6f;
constexpr float kSharpeningTolerance = 1.5e-6f;

// Every OpenGL error with the driver's words for it, collected through the debug output.
std::vector<std::string> glErrors;

void GLAPIENTRY recordGlError(GLenum, GLenum type, GLuint, GLenum, GLsizei, const GLchar* message, const void*) {
  if (type == GL_DEBUG_TYPE_ERROR) glErrors.emplace_back(message);
}

std::string takeGlErrors() {
  std::string text;
  for (const std::string& error : glErrors) text += error + "\n";
  glErrors.clear();
  return text;
}

// Set-up calls glGenerateMipmap on the output textures before they have storage, which does
// nothing but raise GL_INVALID_OPERATION; any other error is a fault.
void expectOnlyEarlyMipmapErrors() {
  for (const std::string& error : glErrors) EXPECT_NE(error.find("glGenerateMipmap"), std::string::npos) << error;
  EXPECT_LE(glErrors.size(), 2u);
  glErrors.clear();
}

class UpscalerGpu : public ::testing::Test {
 protected:
  // The window with its OpenGL 4.3 context current, or why there is none.
  static std::string openWindow() {
    if (!glfwInit()) return "no display: GLFW could not start (run under xvfb-run)";
    window = glfwCreateWindow(kWindowWidth, kWindowHeight, "upscaler test", nullptr, nullptr);
    if (window == nullptr) return "no OpenGL window could be created";
    glfwMakeContextCurrent(window);
    if (glewInit() == GLEW_OK && GLEW_VERSION_4_3) return "";
    const std::string version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    glfwDestroyWindow(window);
    window = nullptr;
    return "OpenGL 4.3 is not available: " + version;
  }
  static void SetUpTestSuite() {
    skipReason = openWindow();
    if (window == nullptr) return;
    glEnable(GL_DEBUG_OUTPUT);
    glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    glDebugMessageCallback(recordGlError, nullptr);
  }
  static void TearDownTestSuite() {
    if (window) glfwDestroyWindow(window);
    window = nullptr;
    glfwTerminate();
  }
  void SetUp() override {
    if (window == nullptr) GTEST_SKIP() << skipReason;
    glErrors.clear();
  }

  static GLFWwindow* window;
  static std::string skipReason;
};
GLFWwindow* UpscalerGpu::window = nullptr;
std::string UpscalerGpu::skipReason;

Picture readTexture(GLuint texture, int width, int height) {
  Picture picture(width, height);
  glBindTexture(GL_TEXTURE_2D, texture);
  glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_FLOAT, picture.rgba.data());
  glBindTexture(GL_TEXTURE_2D, 0);
  return picture;
}

// What set-up prints first: the compute limits as the driver reports them.
std::string expectedLimits() {
  std::string expected;
  char line[256];
  for (auto [limit, name] : {std::make_pair(GL_MAX_COMPUTE_WORK_GROUP_COUNT, "GL_MAX_COMPUTE_WORK_GROUP_COUNT"),
                             std::make_pair(GL_MAX_COMPUTE_WORK_GROUP_SIZE, "GL_MAX_COMPUTE_WORK_GROUP_SIZE")}) {
    GLint v[3];
    for (GLuint i = 0; i < 3; ++i) glGetIntegeri_v(limit, i, &v[i]);
    std::snprintf(line, sizeof line, "%s:\n\tx:%d\n\ty:%d\n\tz:%d\n", name, v[0], v[1], v[2]);
    expected += line;
  }
  GLint invocations;
  glGetIntegerv(GL_MAX_COMPUTE_WORK_GROUP_INVOCATIONS, &invocations);
  std::snprintf(line, sizeof line, "GL_MAX_COMPUTE_WORK_GROUP_INVOCATIONS:\n\t%d\n", invocations);
  return expected + line;
}

// Whether OpenGL knows each name the upscaler holds. The sharpening's constants buffer is left out:
// with the sharpening off it is named but never bound, which glIsBuffer does not see.
std::vector<int> liveNames(const UpscalerState& state) {
  const GLboolean names[] = {glIsTexture(state.upscaledTexture), glIsTexture(state.sharpenedTexture),
                             glIsTexture(state.inputTexture),    glIsProgram(state.tovuProgram),
                             glIsProgram(state.naltProgram),     glIsBuffer(state.tovuConstants),
                             glIsFramebuffer(state.readFramebuffer)};
  return std::vector<int>(std::begin(names), std::end(names));
}

struct GpuResult {
  Picture upscaled;
  Picture sharpened;
  Picture window;  // the whole window after the frame, bottom row first as OpenGL reads it
};

// One frame through the upscaler; both outputs read back from their textures, and the window. Set-up
// prints the limits, and the release deletes every name it made.
GpuResult runUpscaler(const Picture& input, int outputWidth, int outputHeight, bool naltEnable, float attenuation) {
  UpscalerState state;
  upscalerConstruct(state);
  testing::internal::CaptureStdout();
  upscalerInit(state, input.width, input.height, outputWidth, outputHeight, naltEnable, attenuation);
  const std::string printed = testing::internal::GetCapturedStdout();
  const std::string limits = expectedLimits();
  EXPECT_EQ(printed.substr(0, limits.size()), limits) << "compiler remarks may follow";
  expectOnlyEarlyMipmapErrors();
  glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT);
  upscalerRender(state, input.width, input.height, outputWidth, outputHeight, input.rgba.data());
  glFinish();
  GpuResult result{readTexture(state.upscaledTexture, outputWidth, outputHeight),
                   readTexture(state.sharpenedTexture, outputWidth, outputHeight), Picture(kWindowWidth, kWindowHeight)};
  glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
  glReadBuffer(GL_BACK);
  glReadPixels(0, 0, kWindowWidth, kWindowHeight, GL_RGBA, GL_FLOAT, result.window.rgba.data());
  EXPECT_EQ(takeGlErrors(), "");
  const UpscalerState created = state;
  EXPECT_EQ(liveNames(created), std::vector<int>(7, GL_TRUE));
  upscalerRelease(state);
  EXPECT_EQ(liveNames(created), std::vector<int>(7, GL_FALSE));
  EXPECT_FALSE(glIsBuffer(created.naltConstants));
  EXPECT_EQ(state.tovuProgram | state.naltProgram | state.upscaledTexture | state.sharpenedTexture |
                state.inputTexture | state.readFramebuffer | state.tovuConstants | state.naltConstants, 0u);
  return result;
}

// Largest relative difference over RGBA, skipping `border` pixels at each edge.
float largestDifference(const Picture& gpu, const Picture& cpu, int border, std::string& where) {
  float largest = 0.0f;
  for (int y = border; y < cpu.height - border; ++y)
    for (int x = border; x < cpu.width - border; ++x)
      for (int ch = 0; ch < 4; ++ch) {
        const float a = gpu.at(x, y)[ch], b = cpu.at(x, y)[ch];
        const float difference = std::isnan(a) != std::isnan(b) ? INFINITY
                                 : std::isnan(a)                ? 0.0f
                                                                : std::fabs(a - b) / std::max(1.0f, std::fabs(b));
        if (difference > largest) {
          largest = difference;
          where = "(" + std::to_string(x) + ", " + std::to_string(y) + ") channel " + std::to_string(ch) + ": gpu " +
                  std::to_string(a) + ", cpu " + std::to_string(b);
        }
      }
  return largest;
}

using Rgb = std::array<float, 3>;

Picture makePicture(int width, int height, const std::function<Rgb(int, int)>& colour) {
  Picture picture(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const Rgb rgb = colour(x, y);
      std::copy(rgb.begin(), rgb.end(), picture.at(x, y));
      picture.at(x, y)[3] = 0.5f;  // the passes write alpha 1 whatever comes in
    }
  return picture;
}

Picture loadRenderedPicture() {
  const ImageFile file = readImageFile(std::string(ZVR_SHARED_DIR) + "/reference/cornell-cycles-1024spp.exr");
  const int last = file.nchannels - 1;
  return makePicture(file.values.empty() ? 0 : file.width, file.height, [&](int x, int y) {
    return Rgb{file.at(x, y, 0), file.at(x, y, std::min(1, last)), file.at(x, y, std::min(2, last))};
  });
}

TEST_F(UpscalerGpu, PassesMatchTheCpuPasses) {
  struct Case {
    const char* name;
    Picture input;
    int outputWidth, outputHeight;
    float attenuation;
    bool naltEnable = true;
    float scalingTolerance = kScalingTolerance;  // a flat field scales exactly
  };
  const Case cases[] = {
      {"flat, scaled only", makePicture(40, 30, [](int, int) { return Rgb{0.37f, 1.7f, 0}; }), 100, 70, 0, false, 0},
      {"vertical step",
       makePicture(37, 23, [](int x, int) { return x < 17 ? Rgb{0.1f, 0.05f, 0.3f} : Rgb{0.9f, 0.45f, 0.3f}; }), 83, 61, 0},
      {"diagonal step",
       makePicture(48, 32, [](int x, int y) { return x + y < 40 ? Rgb{0.05f, 0.05f, 0.95f} : Rgb{0.8f, 0.8f, 0.2f}; }),
       101, 67, 0.5f},
      {"one-pixel line", makePicture(33, 33, [](int x, int y) {
         const float v = x == 2 * y / 3 + 5 || y == 20 ? 0.95f : 0.05f;
         return Rgb{v, 0.2f, v};
       }), 70, 90, 0},
      {"above one", makePicture(45, 29, [](int x, int y) {
         const bool spot = (x - 20) * (x - 20) + (y - 14) * (y - 14) < 30;
         return spot ? Rgb{24.0f, 11.0f, 3.5f} : Rgb{0.02f * x, 0.5f, 0.03f * y};
       }), 91, 73, 0},
      {"same size", makePicture(40, 24, [](int x, int y) {
         return Rgb{(x * 7 % 11) / 11.0f, (y * 5 % 7) / 7.0f, ((x + y) % 3) / 2.0f};
       }), 40, 24, 1.0f},
      {"rendered scene", loadRenderedPicture(), 1000, 500, 0.0f},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_GT(c.input.width, 0) << "the picture could not be made or read";
    const GpuResult gpu = runUpscaler(c.input, c.outputWidth, c.outputHeight, c.naltEnable, c.attenuation);
    std::string where;
    const Picture upscaled = referenceTovu(c.input, c.outputWidth, c.outputHeight);
    const float upscaleDifference = largestDifference(gpu.upscaled, upscaled, 0, where);
    EXPECT_LE(upscaleDifference, c.scalingTolerance) << "scaling, worst at " << where;
    // The sharpening's own input is the GPU's scaled picture, so that its error is its own;
    // the fetch beyond the edge is the driver's business, so the border ring is left out.
    const Picture sharpened = referenceNalt(gpu.upscaled, std::exp2(-c.attenuation));
    const float sharpenDifference = c.naltEnable ? largestDifference(gpu.sharpened, sharpened, 1, where) : 0.0f;
    EXPECT_LE(sharpenDifference, kSharpeningTolerance) << "sharpening, worst at " << where;
    std::printf("%-16s largest relative difference: scaling %.3g, sharpening %.3g\n", c.name, upscaleDifference,
                sharpenDifference);
    // The window shows the last pass upright from its lower-left corner, 8 bits a channel.
    const Picture& shown = c.naltEnable ? gpu.sharpened : gpu.upscaled;
    for (int y = 0; y < std::min(c.outputHeight, kWindowHeight); ++y)
      for (int x = 0; x < std::min(c.outputWidth, kWindowWidth); ++x)
        for (int ch = 0; ch < 3; ++ch)
          ASSERT_NEAR(gpu.window.at(x, y)[ch], std::clamp(shown.at(x, c.outputHeight - 1 - y)[ch], 0.0f, 1.0f), 1.0f / 255)
              << "window pixel " << x << ", " << y << " from the bottom, channel " << ch;
  }
}

TEST_F(UpscalerGpu, CompileReplacesTheMarkerAndPrintsTheLog) {
  const std::string needsDefine =
      "#version 430\n#______DEFINES______\nlayout(local_size_x = 1) in;\nvoid main() { int v = ZVR_VALUE; }\n";
  struct Case {
    const char* name;
    std::string source;
    const char* defines;
    bool links;
  };
  const Case cases[] = {
      {"marker replaced", needsDefine, "#define ZVR_VALUE 1\n", true},
      {"no marker", "#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n", "#error not inserted\n", true},
      {"defines missing", needsDefine, "\n", false},
  };
  for (const Case& c : cases) {
    testing::internal::CaptureStdout();
    const GLuint program = compileComputeProgram(c.source, c.defines);
    const std::string printed = testing::internal::GetCapturedStdout();
    GLint linked = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    EXPECT_NE(program, 0u) << c.name;
    EXPECT_EQ(linked == GL_TRUE, c.links) << c.name;
    if (!c.links) {
      EXPECT_NE(printed.find("ZVR_VALUE"), std::string::npos) << c.name << ": the log was not printed";
      EXPECT_EQ(printed.back(), '\n');
    }
    glDeleteProgram(program);
    const std::string errors = takeGlErrors();  // the driver reports a failed compile here too
    if (c.links) {
      EXPECT_EQ(errors, "") << c.name;
    }
  }
}

// The sharpness travels as packed halves; the shader's inputs never reach these edges.
TEST(HalfConversion, Truncates) {
  const float inf = std::numeric_limits<float>::infinity();
  const std::pair<float, uint16_t> cases[] = {
      {1.0f, 0x3C00},     {-2.0f, 0xC000},    {65504.0f, 0x7BFF}, {1.0f / 3.0f, 0x3555} /* truncated */,
      {0x1p-14f, 0x0400}, {0x1p-15f, 0x0200}, {0x1p-24f, 0x0001}, {0x1.8p-20f, 0x0018} /* subnormal */,
      {0x1p-25f, 0x0000}, {0.0f, 0x0000},     {-0.0f, 0x8000},    {65536.0f, 0x7C00} /* overflow */,
      {inf, 0x7C00},      {-inf, 0xFC00},     {std::numeric_limits<float>::quiet_NaN(), 0x7E00},
  };
  for (const auto& [value, half] : cases) EXPECT_EQ(floatToHalfTruncating(value), half) << value;
}

}  // namespace
