#include "loadstore/mesh_processing.h"

#include <cmath>

namespace zvr::loadstore {

namespace {
struct V3 {
  float x, y, z;
};
V3 sub(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
V3 cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
float dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
V3 at(const std::vector<float>& v, uint32_t i) { return {v[i * 3], v[i * 3 + 1], v[i * 3 + 2]}; }
void add(std::vector<float>& v, uint32_t i, V3 d) {
  v[i * 3] += d.x;
  v[i * 3 + 1] += d.y;
  v[i * 3 + 2] += d.z;
}
V3 normalized(V3 a, V3 fallback) {
  const float len = std::sqrt(dot(a, a));
  return len > 1e-20f && std::isfinite(len) ? V3{a.x / len, a.y / len, a.z / len} : fallback;
}
}  // namespace

bool toTriangleList(int mode, const std::vector<uint32_t>& s, std::vector<uint32_t>* t) {
  t->clear();
  if (mode == 4) {
    if (s.size() % 3 != 0) return false;
    *t = s;
    return true;
  }
  if (mode != 5 && mode != 6) return false;
  if (s.size() < 3) return true;
  t->reserve((s.size() - 2) * 3);
  for (size_t i = 2; i < s.size(); ++i) {
    uint32_t a, b, c;
    if (mode == 5) {
      // Every other strip triangle is flipped to keep one winding.
      a = s[i - 2];
      b = (i % 2) ? s[i] : s[i - 1];
      c = (i % 2) ? s[i - 1] : s[i];
    } else {
      a = s[0];
      b = s[i - 1];
      c = s[i];
    }
    if (a == b || b == c || a == c) continue;
    t->insert(t->end(), {a, b, c});
  }
  return true;
}

std::string checkGeometry(const Primitive& p) {
  const size_t n = p.vertexCount();
  for (float v : p.positions)
    if (!std::isfinite(v)) return "has a position that is not a finite number";
  for (size_t i = 0; i < p.indices.size(); ++i)
    if (p.indices[i] >= n)
      return "has index " + std::to_string(p.indices[i]) + " past its vertex count " + std::to_string(n);
  return {};
}

void generateNormals(Primitive* p) {
  const size_t n = p->vertexCount();
  p->normals.assign(n * 3, 0.f);
  for (size_t t = 0; t + 2 < p->indices.size(); t += 3) {
    const uint32_t a = p->indices[t], b = p->indices[t + 1], c = p->indices[t + 2];
    const V3 face = cross(sub(at(p->positions, b), at(p->positions, a)), sub(at(p->positions, c), at(p->positions, a)));
    add(p->normals, a, face);
    add(p->normals, b, face);
    add(p->normals, c, face);
  }
  for (size_t i = 0; i < n; ++i) {
    const V3 v = normalized(at(p->normals, uint32_t(i)), V3{0, 0, 1});
    p->normals[i * 3] = v.x;
    p->normals[i * 3 + 1] = v.y;
    p->normals[i * 3 + 2] = v.z;
  }
}

void generateTangents(Primitive* p) {
  const size_t n = p->vertexCount();
  if (p->normals.size() != n * 3) generateNormals(p);
  std::vector<float> tan(n * 3, 0.f), bit(n * 3, 0.f);
  const bool hasUv = p->texcoords0.size() == n * 2;
  for (size_t t = 0; hasUv && t + 2 < p->indices.size(); t += 3) {
    const uint32_t i0 = p->indices[t], i1 = p->indices[t + 1], i2 = p->indices[t + 2];
    const V3 e1 = sub(at(p->positions, i1), at(p->positions, i0)), e2 = sub(at(p->positions, i2), at(p->positions, i0));
    const float du1 = p->texcoords0[i1 * 2] - p->texcoords0[i0 * 2], dv1 = p->texcoords0[i1 * 2 + 1] - p->texcoords0[i0 * 2 + 1];
    const float du2 = p->texcoords0[i2 * 2] - p->texcoords0[i0 * 2], dv2 = p->texcoords0[i2 * 2 + 1] - p->texcoords0[i0 * 2 + 1];
    const float det = du1 * dv2 - du2 * dv1;
    if (std::fabs(det) < 1e-20f) continue;
    const float r = 1.f / det;
    const V3 sdir{(e1.x * dv2 - e2.x * dv1) * r, (e1.y * dv2 - e2.y * dv1) * r, (e1.z * dv2 - e2.z * dv1) * r};
    const V3 tdir{(e2.x * du1 - e1.x * du2) * r, (e2.y * du1 - e1.y * du2) * r, (e2.z * du1 - e1.z * du2) * r};
    for (uint32_t i : {i0, i1, i2}) {
      add(tan, i, sdir);
      add(bit, i, tdir);
    }
  }
  p->tangents.assign(n * 4, 0.f);
  for (size_t i = 0; i < n; ++i) {
    const V3 nn = at(p->normals, uint32_t(i));
    V3 t = at(tan, uint32_t(i));
    const float d = dot(nn, t);
    t = {t.x - nn.x * d, t.y - nn.y * d, t.z - nn.z * d};
    // Any direction orthogonal to the normal serves where the UVs give none.
    const V3 helper = std::fabs(nn.x) < 0.9f ? V3{1, 0, 0} : V3{0, 1, 0};
    const V3 fallback = normalized(cross(helper, nn), V3{1, 0, 0});
    t = normalized(t, fallback);
    const float w = dot(cross(nn, t), at(bit, uint32_t(i))) < 0.f ? -1.f : 1.f;
    p->tangents[i * 4] = t.x;
    p->tangents[i * 4 + 1] = t.y;
    p->tangents[i * 4 + 2] = t.z;
    p->tangents[i * 4 + 3] = w;
  }
}

}  // namespace zvr::loadstore
