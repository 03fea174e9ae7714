#include "viewer/render_thread.h"

#include "program/shader_advice.h"

namespace zvrs {

void renderJobBody(const RenderJob& job) {
  if (!job.skipRender) {
    if (zvrContextRender(job.context) == ZVR_ERROR_SHADER_COMPILATION) printShaderCompilationAdvice();
  }
  job.exchange->renderDone = 1;
}

std::thread startRenderThread(const RenderJob& job) {
  return std::thread([job] { renderJobBody(job); });
}

void renderUpdateCallback(float progress, void* data) {
  RenderExchange* exchange = static_cast<RenderExchange*>(data);
  exchange->progress = progress;
  exchange->updated = 1;
}

}  // namespace zvrs
