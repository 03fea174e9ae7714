#include "viewer/viewer.h"

#include <GL/glew.h>
#include <GLFW/glfw3.h>
#include <backends/imgui_impl_glfw.h>
#include <backends/imgui_impl_opengl2.h>
#include <imgui.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "engine/ZvrCore.h"
#include "viewer/batch_schedule.h"
#include "viewer/camera_navigation.h"
#include "viewer/overlay_panel.h"
#include "viewer/render_thread.h"
#include "viewer/upscaler.h"

namespace zvrs {

namespace {

constexpr auto kIdleSleep = std::chrono::milliseconds(50);

int64_t systemTicks() {
  using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10000000>>;
  return std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string glfwFailure(const char* what) {
  const char* description = nullptr;
  glfwGetError(&description);
  return std::string(what) + (description != nullptr ? std::string(": ") + description : std::string());
}

void readCamera(ViewerState& viewer, ZvrCamera camera) {
  float matrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  zvrCameraGetInfo(camera, ZVR_CAMERA_TRANSFORM, sizeof matrix, matrix, nullptr);
  zvrCameraGetInfo(camera, ZVR_CAMERA_LOOKAT, sizeof viewer.lookAt, viewer.lookAt, nullptr);
  zvrCameraGetInfo(camera, ZVR_CAMERA_UP, sizeof viewer.up, viewer.up, nullptr);
  zvrCameraGetInfo(camera, ZVR_CAMERA_POSITION, sizeof viewer.position, viewer.position, nullptr);
}

void handCameraToEngine(const ViewerState& viewer, ZvrCamera camera) {
  const float* p = viewer.position;
  const float* a = viewer.lookAt;
  const float* u = viewer.up;
  zvrCameraLookAt(camera, p[0], p[1], p[2], a[0], a[1], a[2], u[0], u[1], u[2]);
}

// The preview family's framebuffers hold final values; the others are resolved first.
void readBack(ZvrContext context, const ViewerState& viewer, bool needsResolve, std::vector<float>& pixels) {
  ZvrFrameBuffer source = viewer.colorFramebuffer;
  if (needsResolve) {
    zvrContextResolveFrameBuffer(context, viewer.colorFramebuffer, viewer.resolvedFramebuffer, 0);
    source = viewer.resolvedFramebuffer;
  }
  size_t size = 0;
  zvrFrameBufferGetInfo(source, ZVR_FRAMEBUFFER_DATA, 0, nullptr, &size);
  // Never past the host buffer, whatever size the framebuffer reports.
  if (size > pixels.size() * sizeof(float)) size = pixels.size() * sizeof(float);
  zvrFrameBufferGetInfo(source, ZVR_FRAMEBUFFER_DATA, size, pixels.data(), nullptr);
}

// Framebuffers hold the top row first: drawn downward from the picture's top-left corner, the
// picture stands upright in the window's lower-left corner.
void drawPicture(uint32_t width, uint32_t height, const std::vector<float>& pixels) {
  glWindowPos2i(0, static_cast<GLint>(height));
  glPixelZoom(1.0f, -1.0f);
  glDrawPixels(static_cast<GLsizei>(width), static_cast<GLsizei>(height), GL_RGBA, GL_FLOAT, pixels.data());
  glPixelZoom(1.0f, 1.0f);
}

}  // namespace

void viewerConstruct(ViewerState& viewer) { viewer = ViewerState(); }

void viewerInit(ViewerState& viewer) { setNavigationTarget(&viewer); }

ViewerResult viewerMain(ViewerState& viewer, const std::vector<int32_t>& pluginKinds, const ConfigDocument&,
                        ZvrContext context, ZvrScene scene, const RenderSettings& settings,
                        std::vector<OutputElement>& elements, TimingRecord& timing) {
  RenderExchange exchange;
  UpscalerState upscaler;
  upscalerConstruct(upscaler);
  PanelState panel;
  listShapes(panel);

  zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_KEY_287, 0);
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC,
                                 reinterpret_cast<void*>(&renderUpdateCallback));
  zvrContextSetParameterByKeyPtr(context, ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA, &exchange);
  const FramebufferFormat& format = settings.framebufferFormat;
  const FramebufferDesc& desc = settings.framebufferDesc;
  const ZvrFramebufferFormat libraryFormat = {format.numComponents, format.componentType};
  const ZvrFramebufferDesc libraryDesc = {desc.width, desc.height};
  zvrContextCreateFrameBuffer(context, libraryFormat, &libraryDesc, &viewer.resolvedFramebuffer);
  for (const OutputElement& element : elements)
    if (element.name == "color") viewer.colorFramebuffer = element.framebuffer;

  if (!glfwInit()) return {-1, glfwFailure("no window system could be initialised")};
  const bool upscale = settings.vskEnable != 0;
  const int windowWidth = upscale ? settings.vskWidth : static_cast<int>(settings.width);
  const int windowHeight = upscale ? settings.vskHeight : static_cast<int>(settings.height);
  GLFWwindow* window = glfwCreateWindow(windowWidth, windowHeight, "ZvrsRender", nullptr, nullptr);
  if (window == nullptr) {
    ViewerResult failed = {-1, glfwFailure("the window could not be created")};
    glfwTerminate();
    return failed;
  }
  glfwSetKeyCallback(window, keyCallback);
  ImGui::CreateContext();
  ImGui_ImplGlfw_InitForOpenGL(window, false);
  glfwSetCharCallback(window, ImGui_ImplGlfw_CharCallback);
  glfwMakeContextCurrent(window);
  glewInit();
  ImGui_ImplOpenGL2_Init();
  if (upscale)
    upscalerInit(upscaler, static_cast<int>(settings.width), static_cast<int>(settings.height), windowWidth,
                 windowHeight, settings.vskNaltEnable != 0, settings.vskNaltAttenuation);

  const int32_t pluginKind = pluginKinds.empty() ? ZVR_PLUGIN_FAMILY_NONE : pluginKinds[0];
  const bool needsResolve = pluginKind == ZVR_PLUGIN_FAMILY_VELDER || pluginKind == ZVR_PLUGIN_FAMILY_QUILLON;
  const uint32_t firstFrames = firstFramesValue(settings.guiStopAtIterations);
  ZvrCamera camera = nullptr;
  zvrSceneGetCamera(scene, &camera);
  readCamera(viewer, camera);
  const int64_t startTicks = systemTicks();
  std::vector<float> pixels(static_cast<size_t>(settings.width) * settings.height * 4, 0.0f);

  BatchCounters counters;
  bool cameraMoved = false;
  PanelFigures figures;
  while (glfwWindowShouldClose(window) == 0) {
    const BatchCounters atHead = counters;
    if (reachesStop(counters, settings.guiStopAtIterations)) {
      const double seconds = static_cast<double>(systemTicks() - startTicks) / 10000000.0;
      std::printf("ZVR Render finish after %gs\n", seconds);
      std::fflush(stdout);
      counters.finished = true;
    }
    const BatchChoice batch = chooseBatch(cameraMoved, counters.frameCount, settings.batchSize, firstFrames);
    figures.batchIterations = batch.iterations;
    zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, batch.iterations);
    zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_FRAMECOUNT, batch.frameValue);
    exchange.updated = 0;
    exchange.renderDone = 0;
    exchange.restart = 0;
    exchange.cameraChanged = 0;

    RenderJob job;
    job.skipRender = counters.finished;
    job.exchange = &exchange;
    job.context = context;
    std::thread renderThread = startRenderThread(job);
    // Velder and Dorrik wait out every batch; Quillon keeps drawing during it, except right after a
    // camera move, so that a moving camera gets one picture per frame.
    bool joined = false;
    if (pluginKind != ZVR_PLUGIN_FAMILY_QUILLON || cameraMoved) {
      renderThread.join();
      joined = true;
    }
    timing.stampCount = 1;
    timing.stamps[0] = readHighResolutionCounter();

    do {
      glClear(GL_COLOR_BUFFER_BIT);
      if (exchange.updated == 0 && exchange.renderDone == 0 && pluginKind == ZVR_PLUGIN_FAMILY_QUILLON) {
        std::this_thread::sleep_for(kIdleSleep);
      } else {
        readBack(context, viewer, needsResolve, pixels);
        exchange.updated = 0;
      }
      ImGui_ImplOpenGL2_NewFrame();
      ImGui_ImplGlfw_NewFrame();
      ImGui::NewFrame();
      figures.frameCount = counters.frameCount;
      cameraMoved = drawPanel(panel, figures, viewer, exchange, context);
      if (cameraMoved) {
        exchange.cameraChanged = 1;
        exchange.restart = 1;
        if (!joined) zvrContextAbortRender(context);
      }
      if (upscale)
        upscalerRender(upscaler, static_cast<int>(settings.width), static_cast<int>(settings.height), windowWidth,
                       windowHeight, pixels.data());
      else
        drawPicture(settings.width, settings.height, pixels);
      ImGui::Render();
      ImGui_ImplOpenGL2_RenderDrawData(ImGui::GetDrawData());
      glfwSwapBuffers(window);
      glfwPollEvents();
    } while (exchange.renderDone == 0);

    timing.stamps[1] = readHighResolutionCounter();
    timing.stampCount = 2;
    figures.frameTimeMs = static_cast<float>(static_cast<double>(timing.stamps[1]) * 1000.0 -
                                             static_cast<double>(timing.stamps[0]) * 1000.0) /
                          static_cast<float>(timing.frequency);
    countBatch(counters, atHead, batch.iterations);
    if (exchange.restart != 0) {
      if (exchange.cameraChanged != 0) handCameraToEngine(viewer, camera);
      zvrFrameBufferClear(viewer.colorFramebuffer);
      counters.frameCount = 0;
    }
    if (!joined) renderThread.join();
  }

  ImGui_ImplOpenGL2_Shutdown();
  ImGui_ImplGlfw_Shutdown();
  ImGui::DestroyContext();
  glfwTerminate();
  upscalerRelease(upscaler);
  setNavigationTarget(nullptr);
  return {};
}

}  // namespace zvrs
