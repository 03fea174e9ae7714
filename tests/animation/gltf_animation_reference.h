// An independent reading of a .glb file's node hierarchy and its linear TRS animation, evaluated
// the way the glTF format defines it, in double precision.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/animation/reference_matrices.h"

class GltfAnimationReference {
 public:
  explicit GltfAnimationReference(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    uint32_t jsonLength = 0;
    std::memcpy(&jsonLength, &bytes[12], 4);
    json_ = nlohmann::json::parse(bytes.begin() + 20, bytes.begin() + 20 + jsonLength);
    uint32_t binLength = 0;
    std::memcpy(&binLength, &bytes[20 + jsonLength], 4);
    const auto binStart = bytes.begin() + 20 + jsonLength + 8;
    bin_.assign(binStart, binStart + binLength);
  }

  // The world matrix of `node` at `time`: row-major, translation in the last column.
  reference::M4 worldMatrix(int node, double time) const {
    reference::M4 world = localMatrix(node, time);
    for (int parent = parentOf(node); parent >= 0; parent = parentOf(parent)) {
      world = reference::mul(localMatrix(parent, time), world);
    }
    return world;
  }

  std::vector<int> meshNodes() const {
    std::vector<int> nodes;
    for (size_t i = 0; i < json_["nodes"].size(); ++i)
      if (json_["nodes"][i].contains("mesh")) nodes.push_back(static_cast<int>(i));
    return nodes;
  }

 private:
  std::vector<float> floats(int accessor) const {
    const nlohmann::json& a = json_["accessors"][accessor];
    const nlohmann::json& view = json_["bufferViews"][a["bufferView"].get<int>()];
    const size_t offset = view.value("byteOffset", 0) + a.value("byteOffset", 0);
    const std::string type = a["type"];
    const size_t width = type == "SCALAR" ? 1 : type == "VEC3" ? 3 : 4;
    std::vector<float> values(a["count"].get<size_t>() * width);
    std::memcpy(values.data(), &bin_[offset], values.size() * sizeof(float));
    return values;
  }

  int parentOf(int node) const {
    for (size_t i = 0; i < json_["nodes"].size(); ++i) {
      for (const auto& child : json_["nodes"][i].value("children", nlohmann::json::array()))
        if (child.get<int>() == node) return static_cast<int>(i);
    }
    return -1;
  }

  // Linear sample of the channel of `node` and `path`; false when there is none.
  bool sample(int node, const std::string& path, double time, std::vector<double>& out) const {
    for (const auto& animation : json_.value("animations", nlohmann::json::array())) {
      for (const auto& channel : animation["channels"]) {
        if (channel["target"]["node"] != node || channel["target"]["path"] != path) continue;
        const auto& sampler = animation["samplers"][channel["sampler"].get<int>()];
        const std::vector<float> times = floats(sampler["input"]);
        const std::vector<float> values = floats(sampler["output"]);
        const size_t width = values.size() / times.size();
        size_t k = 0;
        while (k + 1 < times.size() && time >= times[k + 1]) ++k;
        double f = 0.0;
        if (time > times[k] && k + 1 < times.size()) f = (time - times[k]) / (times[k + 1] - times[k]);
        std::vector<double> a(values.begin() + k * width, values.begin() + (k + 1) * width);
        const size_t next = std::min(k + 1, times.size() - 1);
        std::vector<double> b(values.begin() + next * width, values.begin() + (next + 1) * width);
        out = path == "rotation" ? slerp(a, b, f) : lerp(a, b, f);
        return true;
      }
    }
    return false;
  }

  static std::vector<double> lerp(const std::vector<double>& a, const std::vector<double>& b, double f) {
    std::vector<double> out(a.size());
    for (size_t i = 0; i < a.size(); ++i) out[i] = a[i] + (b[i] - a[i]) * f;
    return out;
  }

  static std::vector<double> slerp(const std::vector<double>& a, std::vector<double> b, double f) {
    double d = a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
    if (d < 0) {
      d = -d;
      for (double& v : b) v = -v;
    }
    if (d > 0.99999) return lerp(a, b, f);
    const double theta = std::acos(d);
    const double wa = std::sin((1 - f) * theta) / std::sin(theta);
    const double wb = std::sin(f * theta) / std::sin(theta);
    return {a[0] * wa + b[0] * wb, a[1] * wa + b[1] * wb, a[2] * wa + b[2] * wb, a[3] * wa + b[3] * wb};
  }

  static reference::M4 rotation(const std::vector<double>& q) {
    const double x = q[0], y = q[1], z = q[2], w = q[3];
    return {1 - 2 * (y * y + z * z), 2 * (x * y - z * w),     2 * (x * z + y * w),     0,
            2 * (x * y + z * w),     1 - 2 * (x * x + z * z), 2 * (y * z - x * w),     0,
            2 * (x * z - y * w),     2 * (y * z + x * w),     1 - 2 * (x * x + y * y), 0,
            0,                       0,                       0,                       1};
  }

  reference::M4 localMatrix(int node, double time) const {
    const nlohmann::json& n = json_["nodes"][node];
    if (n.contains("matrix")) {
      reference::M4 m{};
      for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) m[r * 4 + c] = n["matrix"][c * 4 + r].get<double>();  // stored by column
      return m;
    }
    std::vector<double> t = n.value("translation", std::vector<double>{0, 0, 0});
    std::vector<double> r = n.value("rotation", std::vector<double>{0, 0, 0, 1});
    std::vector<double> s = n.value("scale", std::vector<double>{1, 1, 1});
    sample(node, "translation", time, t);
    sample(node, "rotation", time, r);
    sample(node, "scale", time, s);
    return reference::mul(reference::translation(t[0], t[1], t[2]),
                          reference::mul(rotation(r), reference::scale(s[0], s[1], s[2])));
  }

  nlohmann::json json_;
  std::vector<uint8_t> bin_;
};
