// The display upscaler of the interactive viewer: the render-sized picture is scaled to the
// window by an edge-adaptive compute pass, optionally sharpened by a second one, and blitted to
// the window upright. Every function runs on the window thread with the OpenGL context current,
// except upscalerConstruct and upscalerRelease of a record that holds no names.
#pragma once

#include <GL/glew.h>

#include <cstdint>
#include <string>

namespace zvrs {

struct UpscalerState {
  GLuint tovuProgram = 0;       // edge-adaptive scaling
  GLuint naltProgram = 0;       // sharpening
  GLuint upscaledTexture = 0;   // output size
  GLuint sharpenedTexture = 0;  // output size
  GLuint inputTexture = 0;      // render size, defined anew by every upload
  GLuint readFramebuffer = 0;   // the source of the blit
  GLuint tovuConstants = 0;     // 64-byte storage buffer
  GLuint naltConstants = 0;     // 64-byte storage buffer
  uint8_t naltEnable = 0;
  float naltAttenuation = 0.25f;  // in stops
};

// Puts the defaults in place: every name 0, sharpening off, attenuation 0.25.
void upscalerConstruct(UpscalerState& state);

// Creates the textures, programs, framebuffer and buffers for an output of
// outputWidth x outputHeight, and prints the compute limits. width and height are not used: the
// input is sized by each upload. On a bad argument it prints why and leaves the record as it was.
void upscalerInit(UpscalerState& state, int width, int height, int outputWidth, int outputHeight, bool naltEnable,
                  float naltAttenuation);

// Compiles a compute shader from sourceText with its first "#______DEFINES______" replaced by
// defines, and links it into a program, which it returns. A non-empty info log is printed; a
// failed compile still yields a program name, one that cannot run.
GLuint compileComputeProgram(const std::string& sourceText, const char* defines);

// Uploads pixels (width x height RGBA floats, top row first), runs the passes and blits the
// result to the window's lower-left outputWidth x outputHeight pixels, top row at the top. The
// output size is the one given to upscalerInit. Without a successful upscalerInit, or with a size
// that is not positive or no pixels, it prints why and draws nothing. The context must be a
// compatibility one: the passes enable GL_TEXTURE_2D.
void upscalerRender(UpscalerState& state, int width, int height, int outputWidth, int outputHeight,
                    const float* pixels);

// Deletes every name that is not 0 and zeroes it; safe on a record never initialised.
void upscalerRelease(UpscalerState& state);

}  // namespace zvrs
