// Import time and peak memory of the load/store library, for the largest shared scene and a
// generated mesh of 2 million triangles. Each measurement runs in its own child process so the
// peak resident size belongs to that import alone.
//   loadstore_import_bench [scratch folder]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/ZvrLoadStore.h"

namespace {

namespace fs = std::filesystem;

// A flat grid of n x n quads as a binary glTF: positions, UVs and 32-bit indices.
std::string writeGridGlb(const std::string& path, uint32_t n) {
  const uint32_t verts = (n + 1) * (n + 1);
  std::vector<float> positions, uvs;
  positions.reserve(size_t(verts) * 3);
  uvs.reserve(size_t(verts) * 2);
  for (uint32_t y = 0; y <= n; ++y)
    for (uint32_t x = 0; x <= n; ++x) {
      positions.insert(positions.end(), {float(x) / n, 0.f, float(y) / n});
      uvs.insert(uvs.end(), {float(x) / n, float(y) / n});
    }
  std::vector<uint32_t> indices;
  indices.reserve(size_t(n) * n * 6);
  for (uint32_t y = 0; y < n; ++y)
    for (uint32_t x = 0; x < n; ++x) {
      const uint32_t a = y * (n + 1) + x, b = a + 1, c = a + n + 1, d = c + 1;
      indices.insert(indices.end(), {a, c, b, b, c, d});
    }
  const size_t posBytes = positions.size() * 4, uvBytes = uvs.size() * 4, idxBytes = indices.size() * 4;
  char json[1024];
  std::snprintf(json, sizeof json,
                "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":[{\"mesh\":0}],"
                "\"meshes\":[{\"primitives\":[{\"attributes\":{\"POSITION\":0,\"TEXCOORD_0\":1},\"indices\":2}]}],"
                "\"buffers\":[{\"byteLength\":%zu}],\"bufferViews\":[{\"buffer\":0,\"byteOffset\":0,\"byteLength\":%zu},"
                "{\"buffer\":0,\"byteOffset\":%zu,\"byteLength\":%zu},{\"buffer\":0,\"byteOffset\":%zu,\"byteLength\":%zu}],"
                "\"accessors\":[{\"bufferView\":0,\"componentType\":5126,\"count\":%u,\"type\":\"VEC3\",\"min\":[0,0,0],\"max\":[1,0,1]},"
                "{\"bufferView\":1,\"componentType\":5126,\"count\":%u,\"type\":\"VEC2\"},"
                "{\"bufferView\":2,\"componentType\":5125,\"count\":%zu,\"type\":\"SCALAR\"}]}",
                posBytes + uvBytes + idxBytes, posBytes, posBytes, uvBytes, posBytes + uvBytes, idxBytes, verts, verts,
                indices.size());
  std::string jsonText = json;
  while (jsonText.size() % 4) jsonText += ' ';
  const uint32_t binLength = uint32_t(posBytes + uvBytes + idxBytes);
  const uint32_t total = 12 + 8 + uint32_t(jsonText.size()) + 8 + binLength;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  const uint32_t header[3] = {0x46546C67u, 2u, total};
  out.write(reinterpret_cast<const char*>(header), 12);
  const uint32_t jsonChunk[2] = {uint32_t(jsonText.size()), 0x4E4F534Au};
  out.write(reinterpret_cast<const char*>(jsonChunk), 8);
  out.write(jsonText.data(), std::streamsize(jsonText.size()));
  const uint32_t binChunk[2] = {binLength, 0x004E4942u};
  out.write(reinterpret_cast<const char*>(binChunk), 8);
  out.write(reinterpret_cast<const char*>(positions.data()), std::streamsize(posBytes));
  out.write(reinterpret_cast<const char*>(uvs.data()), std::streamsize(uvBytes));
  out.write(reinterpret_cast<const char*>(indices.data()), std::streamsize(idxBytes));
  return path;
}

struct Measurement {
  bool ok = false;
  double seconds = 0;
  long peakKilobytes = 0;
  uint32_t triangles = 0;
};

// In a child: create a context (and import when `path` is given); the parent reads the child's
// peak resident size and the time the child wrote back through a pipe.
Measurement measure(const char* path) {
  int pipeFds[2];
  if (pipe(pipeFds) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    close(pipeFds[0]);
    Measurement m;
    ZvrContext context = nullptr;
    ZvrMaterialSystem system = nullptr;
    ZvrScene scene = nullptr;
    const int32_t plugin = zvrRegisterPlugin("Velder64.dll");
    if (zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, nullptr, &context) == 0 &&
        zvrContextCreateMaterialSystem(context, 0, &system) == 0) {
      const auto start = std::chrono::steady_clock::now();
      m.ok = !path || zvrsImport(path, context, system, &scene, 0, nullptr) == 0;
      m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      uint32_t count = 0;
      zvrsListImportedShapes(nullptr, 0, &count);
      std::vector<ZvrShape> shapes(count);
      if (count) zvrsListImportedShapes(shapes.data(), count * sizeof(ZvrShape), nullptr);
      for (ZvrShape s : shapes) {
        uint32_t t = 0;
        zvrShapeGetInfo(s, ZVR_SHAPE_TRIANGLE_COUNT, sizeof t, &t, nullptr);
        m.triangles += t;
      }
    }
    if (write(pipeFds[1], &m, sizeof m) != sizeof m) _exit(2);
    _exit(0);
  }
  close(pipeFds[1]);
  Measurement m;
  const bool got = read(pipeFds[0], &m, sizeof m) == sizeof m;
  close(pipeFds[0]);
  int status = 0;
  struct rusage usage {};
  wait4(child, &status, 0, &usage);
  m.ok = got && m.ok;
  m.peakKilobytes = usage.ru_maxrss;
  return m;
}

void report(const char* label, const std::string& path, const Measurement& base) {
  const Measurement m = measure(path.c_str());
  if (!m.ok) {
    std::printf("%-28s import failed\n", label);
    return;
  }
  const double extra = double(m.peakKilobytes - base.peakKilobytes) * 1024.0;
  std::printf("%-28s %9u triangles  %8.3f s  peak +%8.1f MB  %7.1f bytes/triangle  (%.1f MB file)\n", label, m.triangles,
              m.seconds, extra / 1048576.0, m.triangles ? extra / m.triangles : 0.0, double(fs::file_size(path)) / 1048576.0);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string scratch = argc > 1 ? argv[1] : fs::temp_directory_path().string();
  std::string largest;
  for (const auto& dir : fs::recursive_directory_iterator(std::string(ZVR_SHARED_DIR) + "/scenes")) {
    const std::string ext = dir.path().extension().string();
    if ((ext == ".glb" || ext == ".gltf") && (largest.empty() || fs::file_size(dir.path()) > fs::file_size(largest)))
      largest = dir.path().string();
  }
  const Measurement base = measure(nullptr);
  std::printf("baseline context: peak %.1f MB\n", double(base.peakKilobytes) / 1024.0);
  report(fs::path(largest).filename().c_str(), largest, base);
  const std::string grid = writeGridGlb(scratch + "/zvr_bench_grid_2m.glb", 1000);
  report("generated grid", grid, base);
  fs::remove(grid);
  return 0;
}
