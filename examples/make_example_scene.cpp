// Writes examples/example.gltf: a small room (floor, back wall), two coloured boxes, a sphere, an
// emissive quad near the ceiling and a perspective camera, in one self-contained file.
//   make_example_scene [output path]
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct MeshData {
  std::vector<float> positions, normals;
  std::vector<uint16_t> indices;
};

void addQuad(MeshData* m, const float corner[3], const float edgeU[3], const float edgeV[3]) {
  const auto base = uint16_t(m->positions.size() / 3);
  float n[3] = {edgeU[1] * edgeV[2] - edgeU[2] * edgeV[1], edgeU[2] * edgeV[0] - edgeU[0] * edgeV[2],
                edgeU[0] * edgeV[1] - edgeU[1] * edgeV[0]};
  const float len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
  for (float& c : n) c /= len;
  for (int i = 0; i < 4; ++i) {
    const float u = (i == 1 || i == 2) ? 1.f : 0.f, v = i >= 2 ? 1.f : 0.f;
    for (int k = 0; k < 3; ++k) {
      m->positions.push_back(corner[k] + u * edgeU[k] + v * edgeV[k]);
      m->normals.push_back(n[k]);
    }
  }
  for (uint16_t i : {0, 1, 2, 0, 2, 3}) m->indices.push_back(uint16_t(base + i));
}

MeshData unitBox() {
  MeshData m;
  // Six faces of the cube [-0.5, 0.5]^3, each wound counter-clockwise seen from outside.
  const float faces[6][3][3] = {
      {{-.5f, -.5f, .5f}, {1, 0, 0}, {0, 1, 0}},  {{.5f, -.5f, -.5f}, {-1, 0, 0}, {0, 1, 0}},
      {{.5f, -.5f, .5f}, {0, 0, -1}, {0, 1, 0}},  {{-.5f, -.5f, -.5f}, {0, 0, 1}, {0, 1, 0}},
      {{-.5f, .5f, .5f}, {1, 0, 0}, {0, 0, -1}},  {{-.5f, -.5f, -.5f}, {1, 0, 0}, {0, 0, 1}}};
  for (const auto& f : faces) addQuad(&m, f[0], f[1], f[2]);
  return m;
}

MeshData sphere(int rings, int segments) {
  MeshData m;
  const float pi = 3.14159265f;
  for (int r = 0; r <= rings; ++r) {
    const float theta = pi * float(r) / float(rings);
    for (int s = 0; s <= segments; ++s) {
      const float phi = 2.f * pi * float(s) / float(segments);
      const float n[3] = {std::sin(theta) * std::cos(phi), std::cos(theta), std::sin(theta) * std::sin(phi)};
      for (int k = 0; k < 3; ++k) {
        m.positions.push_back(0.5f * n[k]);
        m.normals.push_back(n[k]);
      }
    }
  }
  for (int r = 0; r < rings; ++r)
    for (int s = 0; s < segments; ++s) {
      const auto a = uint16_t(r * (segments + 1) + s), b = uint16_t(a + segments + 1);
      for (uint16_t i : {a, uint16_t(a + 1), b, uint16_t(a + 1), uint16_t(b + 1), b}) m.indices.push_back(i);
    }
  return m;
}

std::string base64(const std::vector<uint8_t>& data) {
  static const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < data.size(); i += 3) {
    const uint32_t v = (uint32_t(data[i]) << 16) | (i + 1 < data.size() ? uint32_t(data[i + 1]) << 8 : 0) |
                       (i + 2 < data.size() ? data[i + 2] : 0);
    out += alphabet[v >> 18];
    out += alphabet[(v >> 12) & 63];
    out += i + 1 < data.size() ? alphabet[(v >> 6) & 63] : '=';
    out += i + 2 < data.size() ? alphabet[v & 63] : '=';
  }
  return out;
}

class Builder {
 public:
  nlohmann::json gltf = {{"asset", {{"version", "2.0"}, {"generator", "make_example_scene"}}}};

  int addMesh(const std::string& name, const MeshData& m, int material) {
    float lo[3] = {1e30f, 1e30f, 1e30f}, hi[3] = {-1e30f, -1e30f, -1e30f};
    for (size_t i = 0; i < m.positions.size(); ++i) {
      lo[i % 3] = std::min(lo[i % 3], m.positions[i]);
      hi[i % 3] = std::max(hi[i % 3], m.positions[i]);
    }
    const size_t vertices = m.positions.size() / 3;
    const int pos = addAccessor(m.positions.data(), m.positions.size() * 4, 5126, vertices, "VEC3", 34962);
    gltf["accessors"][pos]["min"] = {lo[0], lo[1], lo[2]};
    gltf["accessors"][pos]["max"] = {hi[0], hi[1], hi[2]};
    const int nrm = addAccessor(m.normals.data(), m.normals.size() * 4, 5126, vertices, "VEC3", 34962);
    const int idx = addAccessor(m.indices.data(), m.indices.size() * 2, 5123, m.indices.size(), "SCALAR", 34963);
    gltf["meshes"].push_back({{"name", name},
                              {"primitives", {{{"attributes", {{"POSITION", pos}, {"NORMAL", nrm}}}, {"indices", idx},
                                               {"material", material}}}}});
    return int(gltf["meshes"].size()) - 1;
  }

  int addMaterial(const std::string& name, float r, float g, float b, float roughness, float metallic = 0.f) {
    gltf["materials"].push_back({{"name", name},
                                 {"pbrMetallicRoughness",
                                  {{"baseColorFactor", {r, g, b, 1.0}}, {"metallicFactor", metallic}, {"roughnessFactor", roughness}}}});
    return int(gltf["materials"].size()) - 1;
  }

  void addNode(nlohmann::json node) {
    gltf["nodes"].push_back(std::move(node));
    gltf["scenes"][0]["nodes"].push_back(int(gltf["nodes"].size()) - 1);
  }

  void finish() {
    gltf["scene"] = 0;
    gltf["buffers"] = {{{"byteLength", buffer_.size()}, {"uri", "data:application/octet-stream;base64," + base64(buffer_)}}};
  }

 private:
  int addAccessor(const void* data, size_t bytes, int componentType, size_t count, const char* type, int target) {
    while (buffer_.size() % 4) buffer_.push_back(0);
    const size_t offset = buffer_.size();
    buffer_.insert(buffer_.end(), static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + bytes);
    gltf["bufferViews"].push_back({{"buffer", 0}, {"byteOffset", offset}, {"byteLength", bytes}, {"target", target}});
    gltf["accessors"].push_back(
        {{"bufferView", int(gltf["bufferViews"].size()) - 1}, {"componentType", componentType}, {"count", count}, {"type", type}});
    return int(gltf["accessors"].size()) - 1;
  }

  std::vector<uint8_t> buffer_;
};

}  // namespace

int main(int argc, char** argv) {
  const std::string out = argc > 1 ? argv[1] : "example.gltf";
  Builder b;
  const int white = b.addMaterial("white plaster", 0.8f, 0.8f, 0.78f, 0.9f);
  const int red = b.addMaterial("red paint", 0.75f, 0.1f, 0.08f, 0.5f);
  const int blue = b.addMaterial("blue paint", 0.1f, 0.2f, 0.7f, 0.4f);
  const int gold = b.addMaterial("brushed gold", 1.0f, 0.78f, 0.34f, 0.3f, 1.f);
  const int lamp = b.addMaterial("ceiling lamp", 0.f, 0.f, 0.f, 1.f);
  b.gltf["materials"][lamp]["emissiveFactor"] = {1.0, 0.95, 0.85};
  b.gltf["materials"][lamp]["extensions"] = {{"KHR_materials_emissive_strength", {{"emissiveStrength", 20.0}}}};
  b.gltf["extensionsUsed"] = {"KHR_materials_emissive_strength"};

  MeshData floor, wall, light;
  const float floorCorner[3] = {-3, 0, 3}, floorU[3] = {6, 0, 0}, floorV[3] = {0, 0, -6};
  addQuad(&floor, floorCorner, floorU, floorV);
  const float wallCorner[3] = {-3, 0, -3}, wallU[3] = {6, 0, 0}, wallV[3] = {0, 4, 0};
  addQuad(&wall, wallCorner, wallU, wallV);
  const float lightCorner[3] = {-0.75f, 3.9f, -0.75f}, lightU[3] = {1.5f, 0, 0}, lightV[3] = {0, 0, 1.5f};
  addQuad(&light, lightCorner, lightU, lightV);  // faces down into the room

  const int floorMesh = b.addMesh("floor", floor, white);
  const int wallMesh = b.addMesh("back wall", wall, white);
  const int redBox = b.addMesh("red box", unitBox(), red);
  const int blueBox = b.addMesh("blue box", unitBox(), blue);
  const int ball = b.addMesh("sphere", sphere(24, 48), gold);
  const int lampMesh = b.addMesh("lamp", light, lamp);

  b.addNode({{"name", "Floor"}, {"mesh", floorMesh}});
  b.addNode({{"name", "BackWall"}, {"mesh", wallMesh}});
  b.addNode({{"name", "RedBox"}, {"mesh", redBox}, {"translation", {-1.2, 0.6, -0.8}}, {"scale", {1.2, 1.2, 1.2}},
             {"rotation", {0.0, 0.2588190, 0.0, 0.9659258}}});
  b.addNode({{"name", "BlueBox"}, {"mesh", blueBox}, {"translation", {1.3, 0.4, 0.2}}, {"scale", {0.8, 0.8, 0.8}},
             {"rotation", {0.0, -0.1305262, 0.0, 0.9914449}}});
  b.addNode({{"name", "Sphere"}, {"mesh", ball}, {"translation", {0.1, 0.5, 0.9}}});
  b.addNode({{"name", "CeilingLight"}, {"mesh", lampMesh}});
  b.gltf["cameras"] = {{{"name", "Camera"}, {"type", "perspective"},
                        {"perspective", {{"yfov", 0.8}, {"znear", 0.05}, {"zfar", 100.0}, {"aspectRatio", 1.5}}}}};
  // Eye at (0, 2, 7), looking slightly down towards the room's middle.
  b.addNode({{"name", "Camera"}, {"camera", 0}, {"translation", {0.0, 2.0, 7.0}}, {"rotation", {-0.0871557, 0.0, 0.0, 0.9961947}}});
  b.finish();

  std::ofstream file(out, std::ios::trunc);
  file << b.gltf.dump(1) << "\n";
  if (!file.good()) {
    std::fprintf(stderr, "make_example_scene: cannot write %s\n", out.c_str());
    return 1;
  }
  return 0;
}
