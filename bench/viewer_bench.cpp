// The viewer's cost, run under a display (xvfb-run): rendering in the window against the batch loop,
// and how interactive Dorrik's preview is while the camera moves. Prints numbers, asserts nothing.
//   xvfb-run -a -s "-screen 0 1920x1080x24" build/bin/viewer_bench [runs]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>
#include <algorithm>
#include <unistd.h>

#include "tests/support/process_runner.h"
#include "tests/viewer/x11_session.h"

namespace {

const std::string kScene = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/CornellBox/cornellBox-2.80-Eevee-gltf.gltf";

double secondsAfter(const std::string& text, const std::string& marker, double scale) {
  const size_t at = text.find(marker);
  return at == std::string::npos ? -1.0 : std::atof(text.c_str() + at + marker.size()) * scale;
}

std::string workFolder() {
  std::string folder = "/tmp/zvrs_viewer_bench_" + std::to_string(getpid());
  std::system(("mkdir -p " + folder).c_str());
  return folder;
}

// 1, 1, 31, 31: the viewer asks exactly 64 iterations before its stop, as the batch loop's 31, 31, 2.
// "iterations" matters to the viewer too: the batch size is clamped to it.
double batchSeconds(const std::string& folder) {
  ProcessOptions options;
  options.workingDirectory = folder;
  const ProcessResult run = runProcess(renderProgramPath(), {kScene, R"({"plugin":"velder","width":1280,"height":720,)"
      R"("gui":0,"iterations":64,"batchsize":31,"print.progress":0,"print.millisec":1,"output":"b.png"})"}, options);
  return secondsAfter(run.out, "Total Render Time = ", 0.001);
}

double viewerSeconds(const std::string& folder, X11Session& x11) {
  ProcessOptions options;
  options.workingDirectory = folder;
  ChildProcess viewer(renderProgramPath(), {kScene, R"({"plugin":"velder","width":1280,"height":720,)"
      R"("gui":1,"gui.stop_at_iterations":64,"iterations":64,"batchsize":31,"print.progress":0})"}, options);
  if (!viewer.waitForOutput("ZVR Render finish after ", 600.0) || !x11.findWindow("ZvrsRender", 10.0)) return -1.0;
  x11.requestClose();
  return secondsAfter(viewer.finish(60.0).out, "ZVR Render finish after ", 1.0);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0.0 : values[values.size() / 2];
}

void interactivity(const std::string& folder, X11Session& x11) {
  ProcessOptions options;
  options.workingDirectory = folder;
  options.environment = {{"ZVR_TRACE", folder + "/dorrik.trace"}};
  std::remove((folder + "/dorrik.trace").c_str());
  ChildProcess viewer(renderProgramPath(), {kScene, R"({"plugin":"dorrik","width":640,"height":360,)"
      R"("gui":1,"batchsize":1,"print.progress":0})"}, options);
  if (!x11.findWindow("ZvrsRender", 60.0)) return;
  std::this_thread::sleep_for(std::chrono::seconds(2));

  // Key press to the first changed picture, five times.
  std::vector<double> latencies;
  for (int trial = 0; trial < 5; ++trial) {
    const WindowPixels before = x11.capture();
    const auto start = std::chrono::steady_clock::now();
    x11.pressKey("s");
    double latency = -1.0;
    while (latency < 0.0) {
      const WindowPixels now = x11.capture();
      const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      if (now.rgb != before.rgb || elapsed > 5.0) latency = elapsed;
    }
    x11.releaseKey("s");
    latencies.push_back(latency * 1000.0);
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }

  // Pictures while moving: each batch that follows a move sends one camera to the engine.
  auto countLookAts = [&] {
    std::ifstream trace(folder + "/dorrik.trace");
    int count = 0;
    for (std::string line; std::getline(trace, line);) count += line.rfind("zvrCameraLookAt(", 0) == 0;
    return count;
  };
  const int before = countLookAts();
  x11.holdKey("a", 3000);
  const int moving = countLookAts() - before;
  x11.requestClose();
  viewer.finish(60.0);

  std::printf("dorrik 640x360, key press to the first new picture: median %.1f ms (", median(latencies));
  for (double value : latencies) std::printf(" %.1f", value);
  std::printf(" )\n");
  std::printf("dorrik 640x360, pictures per second while the camera moves: %.1f\n", moving / 3.0);
}

}  // namespace

int main(int argc, char** argv) {
  X11Session x11;
  if (!x11.available()) {
    std::fprintf(stderr, "viewer_bench needs a display: run it under xvfb-run\n");
    return 1;
  }
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 2;
  const std::string folder = workFolder();
  for (int run = 0; run < runs; ++run) {
    const double batch = batchSeconds(folder);
    const double window = viewerSeconds(folder, x11);
    std::printf("velder 1280x720, 64 iterations: batch loop %.3f s, viewer %.3f s, viewer/batch %.3f\n", batch, window,
                window / batch);
    std::fflush(stdout);
  }
  interactivity(folder, x11);
  std::system(("rm -rf " + folder).c_str());
  return 0;
}
