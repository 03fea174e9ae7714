#include "loadstore/gltf_accessors.h"

#include <tiny_gltf.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <type_traits>

#include "loadstore/load_error.h"

namespace zvr::loadstore {

namespace {

size_t componentSize(int type) {
  switch (type) {
    case TINYGLTF_COMPONENT_TYPE_BYTE:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE: return 1;
    case TINYGLTF_COMPONENT_TYPE_SHORT:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: return 2;
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
    case TINYGLTF_COMPONENT_TYPE_FLOAT: return 4;
    default: return 0;
  }
}

double readComponent(const unsigned char* p, int type, bool normalized) {
  switch (type) {
    case TINYGLTF_COMPONENT_TYPE_BYTE: {
      int8_t v;
      std::memcpy(&v, p, 1);
      return normalized ? std::max(v / 127.0, -1.0) : v;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE: return normalized ? *p / 255.0 : *p;
    case TINYGLTF_COMPONENT_TYPE_SHORT: {
      int16_t v;
      std::memcpy(&v, p, 2);
      return normalized ? std::max(v / 32767.0, -1.0) : v;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: {
      uint16_t v;
      std::memcpy(&v, p, 2);
      return normalized ? v / 65535.0 : v;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT: {
      uint32_t v;
      std::memcpy(&v, p, 4);
      return normalized ? v / 4294967295.0 : v;
    }
    default: {
      float v;
      std::memcpy(&v, p, 4);
      return v;
    }
  }
}

}  // namespace

void AccessorReader::fail(const std::string& problem) const { throw LoadError(file_, problem); }

size_t AccessorReader::count(int accessor) const {
  if (accessor < 0 || size_t(accessor) >= model_.accessors.size()) fail("accessor " + std::to_string(accessor) + " does not exist");
  return model_.accessors[accessor].count;
}

int AccessorReader::components(int accessor) const {
  count(accessor);
  return tinygltf::GetNumComponentsInType(uint32_t(model_.accessors[accessor].type));
}

// Reads `count` elements of `comps` components from a buffer view, checking every byte read lies
// inside the view and the view inside its buffer.
static void readView(const tinygltf::Model& model, int viewIndex, size_t byteOffset, size_t count, int comps,
                     int componentType, bool normalized, const std::string& where,
                     const std::function<void(const std::string&)>& fail, double* out) {
  if (viewIndex < 0 || size_t(viewIndex) >= model.bufferViews.size())
    fail(where + " names buffer view " + std::to_string(viewIndex) + ", which does not exist");
  const tinygltf::BufferView& view = model.bufferViews[viewIndex];
  if (view.buffer < 0 || size_t(view.buffer) >= model.buffers.size())
    fail("buffer view " + std::to_string(viewIndex) + " names buffer " + std::to_string(view.buffer) + ", which does not exist");
  const std::vector<unsigned char>& data = model.buffers[view.buffer].data;
  if (view.byteOffset > data.size() || view.byteLength > data.size() - view.byteOffset)
    fail("buffer view " + std::to_string(viewIndex) + " reads past the end of buffer " + std::to_string(view.buffer));
  const size_t csize = componentSize(componentType);
  if (csize == 0) fail(where + " has an unknown component type " + std::to_string(componentType));
  const size_t elementSize = csize * size_t(comps);
  const size_t stride = view.byteStride ? view.byteStride : elementSize;
  if (count == 0) return;
  const unsigned __int128 last = (unsigned __int128)byteOffset + (unsigned __int128)stride * (count - 1) + elementSize;
  if (last > view.byteLength)
    fail(where + " reads past the end of buffer view " + std::to_string(viewIndex));
  const unsigned char* base = data.data() + view.byteOffset + byteOffset;
  for (size_t i = 0; i < count; ++i) {
    const unsigned char* p = base + i * stride;
    for (int c = 0; c < comps; ++c) out[i * comps + c] = readComponent(p + c * csize, componentType, normalized);
  }
}

void AccessorReader::readRaw(int index, std::vector<double>* out, int* componentsOut) const {
  const size_t n = count(index);
  const tinygltf::Accessor& a = model_.accessors[index];
  const int comps = tinygltf::GetNumComponentsInType(uint32_t(a.type));
  if (comps <= 0) fail("accessor " + std::to_string(index) + " has an unknown type");
  *componentsOut = comps;
  const std::string where = "accessor " + std::to_string(index);
  auto failer = [this](const std::string& p) { fail(p); };
  // The declared count must be backed by real bytes before anything is allocated for it.
  if (a.bufferView >= 0) {
    if (size_t(a.bufferView) >= model_.bufferViews.size())
      fail(where + " names buffer view " + std::to_string(a.bufferView) + ", which does not exist");
    if (n > model_.bufferViews[a.bufferView].byteLength) fail(where + " reads past the end of buffer view " + std::to_string(a.bufferView));
  } else if (n > (size_t(1) << 24)) {  // all zeros but for sparse values: no bytes bound it
    fail(where + " declares " + std::to_string(n) + " elements without data");
  }
  out->assign(n * size_t(comps), 0.0);
  if (a.bufferView >= 0)
    readView(model_, a.bufferView, a.byteOffset, n, comps, a.componentType, a.normalized, where, failer, out->data());
  if (!a.sparse.isSparse) return;
  const size_t sparseCount = a.sparse.count < 0 ? 0 : size_t(a.sparse.count);
  if (sparseCount > n) fail(where + " has more sparse values than elements");
  std::vector<double> indices(sparseCount), values(sparseCount * comps);
  readView(model_, a.sparse.indices.bufferView, size_t(std::max(0, a.sparse.indices.byteOffset)), sparseCount, 1,
           a.sparse.indices.componentType, false, where + " sparse indices", failer, indices.data());
  readView(model_, a.sparse.values.bufferView, size_t(std::max(0, a.sparse.values.byteOffset)), sparseCount, comps,
           a.componentType, a.normalized, where + " sparse values", failer, values.data());
  for (size_t i = 0; i < sparseCount; ++i) {
    const double target = indices[i];
    if (target < 0 || target >= double(n)) fail(where + " has a sparse index past its element count");
    for (int c = 0; c < comps; ++c) (*out)[size_t(target) * comps + c] = values[i * comps + c];
  }
}

// Dense float and unsigned integer data skips the per-component conversion through double:
// it is most of the bytes of a large scene.
template <typename Source, typename Target>
static bool readDirect(const tinygltf::Model& model, const tinygltf::Accessor& a, int comps, std::vector<Target>* out) {
  if (a.sparse.isSparse || a.normalized || a.bufferView < 0 || size_t(a.bufferView) >= model.bufferViews.size()) return false;
  const tinygltf::BufferView& view = model.bufferViews[a.bufferView];
  if (view.buffer < 0 || size_t(view.buffer) >= model.buffers.size()) return false;
  const std::vector<unsigned char>& data = model.buffers[view.buffer].data;
  const size_t elementSize = sizeof(Source) * size_t(comps);
  const size_t stride = view.byteStride ? view.byteStride : elementSize;
  if (view.byteOffset > data.size() || view.byteLength > data.size() - view.byteOffset) return false;
  if (a.count == 0) {
    out->clear();
    return true;
  }
  const unsigned __int128 last = (unsigned __int128)a.byteOffset + (unsigned __int128)stride * (a.count - 1) + elementSize;
  if (last > view.byteLength) return false;  // the checked path reports it
  out->resize(a.count * size_t(comps));
  const unsigned char* base = data.data() + view.byteOffset + a.byteOffset;
  if (std::is_same_v<Source, Target> && stride == elementSize) {
    std::memcpy(out->data(), base, out->size() * sizeof(Target));
    return true;
  }
  Target* dst = out->data();
  for (size_t i = 0; i < a.count; ++i) {
    const unsigned char* p = base + i * stride;
    for (int c = 0; c < comps; ++c) {
      Source v;
      std::memcpy(&v, p + c * sizeof(Source), sizeof(Source));
      *dst++ = Target(v);
    }
  }
  return true;
}

std::vector<float> AccessorReader::readFloats(int accessor, int expectedComponents) const {
  if (components(accessor) == expectedComponents && model_.accessors[accessor].componentType == TINYGLTF_COMPONENT_TYPE_FLOAT) {
    std::vector<float> direct;
    if (readDirect<float>(model_, model_.accessors[accessor], expectedComponents, &direct)) return direct;
  }
  std::vector<double> raw;
  int comps = 0;
  readRaw(accessor, &raw, &comps);
  if (comps != expectedComponents)
    fail("accessor " + std::to_string(accessor) + " has " + std::to_string(comps) + " components where " +
         std::to_string(expectedComponents) + " were expected");
  return std::vector<float>(raw.begin(), raw.end());
}

std::vector<uint32_t> AccessorReader::readIndices(int accessor) const {
  count(accessor);
  const int type = model_.accessors[accessor].componentType;
  if (type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE && type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT &&
      type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT)
    fail("accessor " + std::to_string(accessor) + " holds indices of a non-integer type");
  if (components(accessor) == 1) {
    std::vector<uint32_t> direct;
    const tinygltf::Accessor& a = model_.accessors[accessor];
    if (type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT ? readDirect<uint32_t>(model_, a, 1, &direct)
        : type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT ? readDirect<uint16_t>(model_, a, 1, &direct)
                                                          : readDirect<uint8_t>(model_, a, 1, &direct))
      return direct;
  }
  std::vector<double> raw;
  int comps = 0;
  readRaw(accessor, &raw, &comps);
  if (comps != 1) fail("accessor " + std::to_string(accessor) + " holds indices that are not scalars");
  return std::vector<uint32_t>(raw.begin(), raw.end());
}

}  // namespace zvr::loadstore
