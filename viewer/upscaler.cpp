#include "viewer/upscaler.h"

#include <cmath>
#include <cstdio>

#include "upscale_shader_source.h"  // generated from shaders/upscale.comp
#include "viewer/upscaler_constants.h"

namespace zvrs {

namespace {

constexpr char kDefinesMarker[] = "#______DEFINES______";

constexpr char kTovuDefines[] =
    "#define A_GPU 1\n\t\t\t#define A_GLSL 1\n\t\t\t#define SAMPLE_TOVU 1\n\t\t\t#define SAMPLE_NALT 0\n\t\t\t";
constexpr char kNaltDefines[] =
    "#define A_GPU 1\n\t\t\t#define A_GLSL 1\n\t\t\t#define SAMPLE_TOVU 0\n\t\t\t#define SAMPLE_NALT 1\n\t\t\t";

void createOutputTexture(GLuint& texture, int outputWidth, int outputHeight) {
  glGenTextures(1, &texture);
  glBindTexture(GL_TEXTURE_2D, texture);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glGenerateMipmap(GL_TEXTURE_2D);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, outputWidth, outputHeight, 0, GL_RGBA, GL_FLOAT, nullptr);
  glBindTexture(GL_TEXTURE_2D, 0);
}

void printComputeLimit(GLenum limit, const char* name) {
  GLint count[3] = {};
  for (GLuint axis = 0; axis < 3; ++axis) glGetIntegeri_v(limit, axis, &count[axis]);
  std::printf("%s:\n\tx:%u\n\ty:%u\n\tz:%u\n", name, static_cast<unsigned>(count[0]), static_cast<unsigned>(count[1]),
              static_cast<unsigned>(count[2]));
}

void printComputeLimits() {
  printComputeLimit(GL_MAX_COMPUTE_WORK_GROUP_COUNT, "GL_MAX_COMPUTE_WORK_GROUP_COUNT");
  printComputeLimit(GL_MAX_COMPUTE_WORK_GROUP_SIZE, "GL_MAX_COMPUTE_WORK_GROUP_SIZE");
  GLint invocations = 0;
  glGetIntegerv(GL_MAX_COMPUTE_WORK_GROUP_INVOCATIONS, &invocations);
  std::printf("GL_MAX_COMPUTE_WORK_GROUP_INVOCATIONS:\n\t%u\n", static_cast<unsigned>(invocations));
}

// One pass: input on texture unit 0, output on image unit 1, constants at storage binding 2.
void bindPass(GLuint program, GLuint outputTexture, GLuint inputTexture) {
  glUseProgram(program);
  glBindTexture(GL_TEXTURE_2D, outputTexture);
  glBindImageTexture(1, outputTexture, 0, GL_FALSE, 0, GL_WRITE_ONLY, GL_RGBA32F);
  glUniform1i(glGetUniformLocation(program, "InputSampler"), 0);
  glActiveTexture(GL_TEXTURE0);
  glEnable(GL_TEXTURE_2D);
  glBindTexture(GL_TEXTURE_2D, inputTexture);
}

void loadConstantsAndDispatch(GLuint constantBuffer, const UpscalerConstantBlock& constants, int groupsX, int groupsY) {
  glBindBuffer(GL_SHADER_STORAGE_BUFFER, constantBuffer);
  glBufferData(GL_SHADER_STORAGE_BUFFER, sizeof constants, constants.data(), GL_STREAM_READ);
  glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 2, constantBuffer);
  glBindBuffer(GL_SHADER_STORAGE_BUFFER, 0);
  glDispatchCompute(static_cast<GLuint>(groupsX), static_cast<GLuint>(groupsY), 1);
  // Image stores become visible to the next pass's texture reads and to the blit only with their
  // own bits; drivers that order everything anyway (llvmpipe) hide a missing one.
  glMemoryBarrier(GL_SHADER_IMAGE_ACCESS_BARRIER_BIT | GL_TEXTURE_FETCH_BARRIER_BIT | GL_FRAMEBUFFER_BARRIER_BIT);
  // Unit 0, not the pass's unit 1: the output stays bound there until the next pass rebinds it.
  glBindImageTexture(0, 0, 0, GL_FALSE, 0, GL_WRITE_ONLY, GL_RGBA32F);
  glBindTexture(GL_TEXTURE_2D, 0);
  glUseProgram(0);
}

template <typename Deleter>
void deleteIfSet(GLuint& name, Deleter deleter) {
  if (name == 0) return;
  deleter(name);
  name = 0;
}

}  // namespace

void upscalerConstruct(UpscalerState& state) { state = UpscalerState{}; }

void upscalerInit(UpscalerState& state, int /*width*/, int /*height*/, int outputWidth, int outputHeight,
                  bool naltEnable, float naltAttenuation) {
  if (outputWidth <= 0 || outputHeight <= 0) {
    std::fprintf(stderr, "upscalerInit: the output size %d x %d is not positive\n", outputWidth, outputHeight);
    return;
  }
  if (!std::isfinite(naltAttenuation)) {
    std::fprintf(stderr, "upscalerInit: the sharpening attenuation is not a finite number\n");
    return;
  }
  state.naltEnable = naltEnable ? 1 : 0;
  state.naltAttenuation = naltAttenuation;

  createOutputTexture(state.upscaledTexture, outputWidth, outputHeight);
  createOutputTexture(state.sharpenedTexture, outputWidth, outputHeight);
  glGenTextures(1, &state.inputTexture);
  glBindTexture(GL_TEXTURE_2D, state.inputTexture);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glBindTexture(GL_TEXTURE_2D, 0);

  printComputeLimits();

  const std::string source = kUpscaleShaderSource;
  state.tovuProgram = compileComputeProgram(source, kTovuDefines);
  state.naltProgram = compileComputeProgram(source, kNaltDefines);

  glGenFramebuffers(1, &state.readFramebuffer);
  glGenBuffers(1, &state.tovuConstants);
  glGenBuffers(1, &state.naltConstants);
}

GLuint compileComputeProgram(const std::string& sourceText, const char* defines) {
  const GLuint shader = glCreateShader(GL_COMPUTE_SHADER);
  std::string text = sourceText;
  const size_t marker = text.find(kDefinesMarker);
  if (marker != std::string::npos) text.replace(marker, sizeof kDefinesMarker - 1, defines ? defines : "");
  const char* textPointer = text.c_str();
  glShaderSource(shader, 1, &textPointer, nullptr);
  glCompileShader(shader);

  // The status is read but not acted on: a failed compile shows itself by its log.
  char log[1024] = {};
  GLint compiled = GL_FALSE;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
  glGetShaderInfoLog(shader, sizeof log, nullptr, log);
  if (log[0] != '\0') std::printf("%s\n", log);

  const GLuint program = glCreateProgram();
  glAttachShader(program, shader);
  glLinkProgram(program);
  glDeleteShader(shader);
  return program;
}

void upscalerRender(UpscalerState& state, int width, int height, int outputWidth, int outputHeight,
                    const float* pixels) {
  if (state.tovuProgram == 0) {
    std::fprintf(stderr, "upscalerRender: the upscaler was not initialised\n");
    return;
  }
  if (width <= 0 || height <= 0 || outputWidth <= 0 || outputHeight <= 0 || pixels == nullptr) {
    std::fprintf(stderr, "upscalerRender: needs positive sizes (got %d x %d to %d x %d) and pixels\n", width, height,
                 outputWidth, outputHeight);
    return;
  }
  const UpscalerConstantBlock tovuConstants = tovuConstantBlock(width, height, outputWidth, outputHeight);
  const int groupsX = upscalerGroupCount(outputWidth);
  const int groupsY = upscalerGroupCount(outputHeight);

  bindPass(state.tovuProgram, state.upscaledTexture, state.inputTexture);
  // The whole picture, every frame: the host holds no record of what changed.
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, width, height, 0, GL_RGBA, GL_FLOAT, pixels);
  loadConstantsAndDispatch(state.tovuConstants, tovuConstants, groupsX, groupsY);

  if (state.naltEnable) {
    const UpscalerConstantBlock naltConstants = naltConstantBlock(naltSharpness(state.naltAttenuation));
    bindPass(state.naltProgram, state.sharpenedTexture, state.upscaledTexture);
    loadConstantsAndDispatch(state.naltConstants, naltConstants, groupsX, groupsY);
  }

  // The textures hold the top row first; swapping the destination's y puts it at the top.
  glBindFramebuffer(GL_READ_FRAMEBUFFER, state.readFramebuffer);
  glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                         state.naltEnable ? state.sharpenedTexture : state.upscaledTexture, 0);
  glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
  glBlitFramebuffer(0, 0, outputWidth, outputHeight, 0, outputHeight, outputWidth, 0, GL_COLOR_BUFFER_BIT, GL_NEAREST);
}

void upscalerRelease(UpscalerState& state) {
  deleteIfSet(state.readFramebuffer, [](GLuint& name) { glDeleteFramebuffers(1, &name); });
  deleteIfSet(state.inputTexture, [](GLuint& name) { glDeleteTextures(1, &name); });
  deleteIfSet(state.upscaledTexture, [](GLuint& name) { glDeleteTextures(1, &name); });
  deleteIfSet(state.sharpenedTexture, [](GLuint& name) { glDeleteTextures(1, &name); });
  deleteIfSet(state.tovuProgram, [](GLuint& name) { glDeleteProgram(name); });
  deleteIfSet(state.naltProgram, [](GLuint& name) { glDeleteProgram(name); });
  deleteIfSet(state.tovuConstants, [](GLuint& name) { glDeleteBuffers(1, &name); });
  deleteIfSet(state.naltConstants, [](GLuint& name) { glDeleteBuffers(1, &name); });
}

}  // namespace zvrs
