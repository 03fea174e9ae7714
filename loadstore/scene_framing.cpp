#include "loadstore/scene_framing.h"

#include <algorithm>
#include <cmath>

namespace zvr::loadstore {

std::vector<Matrix4> worldMatrices(const SceneDescription& scene) {
  std::vector<Matrix4> world(scene.nodes.size());
  for (size_t i = 0; i < scene.nodes.size(); ++i) {
    const Node& n = scene.nodes[i];
    const Matrix4 local = matrixFromTrs(n.local);
    world[i] = n.parent < 0 ? local : multiply(world[n.parent], local);  // parents come first
  }
  return world;
}

Bounds sceneBounds(const SceneDescription& scene, const std::vector<Matrix4>& world) {
  Bounds b;
  for (size_t i = 0; i < scene.nodes.size(); ++i) {
    if (scene.nodes[i].mesh < 0) continue;
    for (const Primitive& p : scene.meshes[scene.nodes[i].mesh].primitives) {
      if (p.vertexCount() == 0) continue;
      // The local box's corners bound the transformed mesh without touching every vertex twice.
      std::array<float, 3> lo{p.positions[0], p.positions[1], p.positions[2]}, hi = lo;
      for (size_t v = 0; v < p.vertexCount(); ++v)
        for (int k = 0; k < 3; ++k) {
          lo[k] = std::min(lo[k], p.positions[v * 3 + k]);
          hi[k] = std::max(hi[k], p.positions[v * 3 + k]);
        }
      for (int corner = 0; corner < 8; ++corner) {
        const std::array<float, 3> c{corner & 1 ? hi[0] : lo[0], corner & 2 ? hi[1] : lo[1], corner & 4 ? hi[2] : lo[2]};
        const std::array<float, 3> w = transformPoint(world[i], c);
        for (int k = 0; k < 3; ++k) {
          b.lower[k] = b.empty ? w[k] : std::min(b.lower[k], w[k]);
          b.upper[k] = b.empty ? w[k] : std::max(b.upper[k], w[k]);
        }
        b.empty = false;
      }
    }
  }
  return b;
}

Framing frameBounds(const Bounds& b) {
  Framing f{};
  f.fovY = 45.f * 3.14159265f / 180.f;
  f.up = {0.f, 1.f, 0.f};
  std::array<float, 3> centre{0.f, 0.f, 0.f};
  float radius = 1.f;
  if (!b.empty) {
    float d2 = 0.f;
    for (int k = 0; k < 3; ++k) {
      centre[k] = 0.5f * (b.lower[k] + b.upper[k]);
      d2 += (b.upper[k] - b.lower[k]) * (b.upper[k] - b.lower[k]);
    }
    radius = std::max(0.5f * std::sqrt(d2), 1e-3f);
  }
  const float distance = radius / std::sin(0.5f * f.fovY);
  const float lift = 0.2f, norm = std::sqrt(1.f + lift * lift);
  f.target = centre;
  f.eye = {centre[0], centre[1] + distance * lift / norm, centre[2] + distance / norm};
  f.nearPlane = std::max(distance - radius, distance * 1e-3f) * 0.5f;
  f.farPlane = (distance + radius) * 2.f;
  return f;
}

bool sceneHasLightOrEmission(const SceneDescription& scene) {
  for (const Node& n : scene.nodes) {
    if (n.light >= 0) return true;
    if (n.mesh < 0) continue;
    for (const Primitive& p : scene.meshes[n.mesh].primitives)
      if (p.material >= 0 && scene.materials[p.material].emits()) return true;
  }
  return false;
}

}  // namespace zvr::loadstore
