// Bounds-checked reads of glTF accessors, sparse substitution included, into plain arrays.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tinygltf {
class Model;
}

namespace zvr::loadstore {

class AccessorReader {
 public:
  AccessorReader(const tinygltf::Model& model, std::string file) : model_(model), file_(std::move(file)) {}

  // Every element as float, normalized integers mapped to [0, 1] or [-1, 1]; `components` is
  // checked against the accessor's type. Throws LoadError on anything out of range.
  std::vector<float> readFloats(int accessor, int components) const;
  // Integer accessors (indices, joints) as unsigned 32-bit values.
  std::vector<uint32_t> readIndices(int accessor) const;
  size_t count(int accessor) const;
  int components(int accessor) const;

 private:
  void readRaw(int accessor, std::vector<double>* out, int* components) const;
  [[noreturn]] void fail(const std::string& problem) const;

  const tinygltf::Model& model_;
  std::string file_;
};

}  // namespace zvr::loadstore
