#include "Apps/ZvrsRender/help.h"

#include <cstdio>

#include "engine/ZvrCore.h"
#include "program/aov_names.h"

namespace zvrs {

namespace {

// The highest device key and the device count named in the text.
constexpr int kLastGpuIndex = 11;
constexpr int kMaxGpuCount = 12;

const char kDocumentSketch[] =
    "# spec of the cfg.json \n"
    "{\n"
    R"("width":1280, // render target width)" "\n"
    R"("height":720, // render target height)" "\n"
    R"("tilesize.width": 320, // render tile width (lower size decreases gpu memory usage, but may cause slower rendering time) )" "\n"
    R"("tilesize.height": 180, // render tile height (lower size decreases gpu memory usage, but may cause slower rendering time) )" "\n"
    R"("iterations":100, // number of iterations (the higher the value is, the less the noise will be))" "\n"
    R"("batchsize":32, // number of iterations per render call (use higher value to get throughput. use smaller value to get more response(more frequent progress report) ))" "\n"
    R"("radianceclamp":2.0, // radiance clamp value to avoid firefly)" "\n"
    R"("gamma": 2.2, // display gamma value)" "\n"
    R"("camera":"persp",// camera type. persp, 360, 360vr, fisyeye)" "\n"
    R"("maxdepth":4, // max ray bounce level)" "\n"
    R"("maxdepth.diffuse":2,)" "\n"
    R"("maxdepth.glossy":2,)" "\n"
    R"("maxdepth.refraction":2,)" "\n"
    R"("maxdepth.refraction.glossy":2,)" "\n"
    R"("maxdepth.shadow":2,)" "\n"
    R"("texturecache":1024, // if this value is set, out of core texturing is enabled. GPU cache size in MB (1024MB))" "\n"
    R"("mipoffset":1, // mipmap offset value)" "\n"
    R"("raycastepsilon":0.0001, // ray cast epsilon value)" "\n"
    R"("imagefilter.type":"gaussian", // image filter type. ("none", "box", "triangle", "gaussian", "mitchell", "lanczos", "blackman")" "\n"
    R"("imagefilter.radius":2.0, // image filter radius)" "\n"
    R"("output":"test.exr", // path to the image file to be saved. if png is used, it's gamma corrected)" "\n"
    R"("output.json":"output.json", // path to the json file storing rendering statistics)" "\n"
    R"("layers":{ // select render layers to render out)" "\n"
    "\t" R"("render.layer1":1, // set 1 to render that layer)" "\n"
    "\t" R"("render.layer2":0,)" "\n"
    "\t...\n"
    "\t},\n"
    R"("context":{)" "\n"
    "\t" R"("gpu0":1, // set 1 to turn the GPU on (gpu0 to gpu%d, max %d gpus))" "\n"
    "\t" R"("gpu1":0,)" "\n"
    "\t...\n"
    "\t" R"("gpu%d":0,)" "\n"
    "\t" R"("cpu":0, // set 1 to turn the CPU on)" "\n"
    "\t" R"("threads":16, // number of threads to be used for rendering)" "\n"
    "\t" R"("debug":0 // debug flag. set 1 to enable debug layer, dump debug info in velder.log)" "\n"
    "\t},\n"
    R"("aovs": { // output elements and image filepaths)" "\n";

const char kContourSketch[] =
    "\t},\n"
    R"("contour":{ // contour extraction parameteres)" "\n"
    "\t" R"("object.id":1,)" "\n"
    "\t" R"("material.id":1,)" "\n"
    "\t" R"("normal":1,)" "\n"
    "\t" R"("uv":1,)" "\n"
    "\t" R"("threshold.normal":45.0,)" "\n"
    "\t" R"("threshold.uv":1.0,)" "\n"
    "\t" R"("uv.secondary":0,)" "\n"
    "\t" R"("linewidth.objid":1.0,)" "\n"
    "\t" R"("linewidth.matid":1.0,)" "\n"
    "\t" R"("linewidth.normal":1.0,)" "\n"
    "\t" R"("linewidth.uv":1.0,)" "\n"
    "\t" R"("antialiasing":1, // 1: Anti-aliasing ON, 0-1: Anti-aliasing OFF + jittering radius=1, -1: Anti-aliasing OFF + jittering radius=0)" "\n"
    "\t" R"("debug":0 // contour debug flag. set 1 to show colored contour for used features)" "\n"
    "\t}\n"
    "}\n";

}  // namespace

void printHelp() {
  std::printf("[ZVR command line renderer]\n");
  std::printf("major: 0x%x, minor: 0x%llx\n", static_cast<unsigned>(ZVR_API_VERSION),
              static_cast<unsigned long long>(ZVR_API_VERSION_MINOR));
  std::printf("# usage: zvrsRender64 input.zvr  cfg.json(optional)  <json override>(optional)\n");
  std::printf("%s\n",
              R"(# example: ZvrsRender64.exe filezvr.zvrs cfg.json {\"plugin":\"Quillon64.dll\",\"iterations\":40,\"context\":{\"cpu\":1}})");
  std::printf("\n");
  std::printf(kDocumentSketch, kLastGpuIndex, kMaxGpuCount, kLastGpuIndex);
  for (const auto& entry : aovNameToId) std::printf("\t\"%s\": \"test_%s.png\"\n", entry.first.c_str(), entry.first.c_str());
  std::printf("\t\"lpe0\":{\"output\":\"lpe0.png\",\"lpe\":\"CRL\"}");
  std::printf("%s", kContourSketch);
}

}  // namespace zvrs
