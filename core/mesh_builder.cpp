#include "core/mesh_builder.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "core/failure.h"

namespace zvr::core {
namespace {

void copyStream(const char* name, const float* source, size_t stride, size_t components, size_t count,
                std::vector<float>& target) {
  if (!source) return;
  const size_t packed = components * sizeof(float);
  if (stride == 0) stride = packed;
  if (stride < packed)
    fail(ZVR_ERROR_INVALID_ARGUMENT, std::string("mesh ") + name + " stride " + std::to_string(stride) +
                                         " is smaller than one element (" + std::to_string(packed) + " bytes)");
  target.resize(count * components);
  const auto* bytes = reinterpret_cast<const unsigned char*>(source);
  for (size_t v = 0; v < count; ++v) {
    std::memcpy(&target[v * components], bytes + v * stride, packed);
    for (size_t c = 0; c < components; ++c)
      if (!std::isfinite(target[v * components + c]))
        fail(ZVR_ERROR_INVALID_ARGUMENT, std::string("mesh ") + name + " of vertex " + std::to_string(v) +
                                             " is not a finite number");
  }
}

}  // namespace

std::shared_ptr<const zvr::MeshData> buildMesh(const ZvrMeshDesc& desc) {
  if (!desc.positions) fail(ZVR_ERROR_INVALID_ARGUMENT, "mesh has no positions");
  if (desc.vertexCount == 0) fail(ZVR_ERROR_INVALID_ARGUMENT, "mesh has no vertices");
  if (desc.vertexCount > std::numeric_limits<uint32_t>::max())
    fail(ZVR_ERROR_INVALID_ARGUMENT, "mesh has more vertices than 32-bit indices can address");
  auto mesh = std::make_shared<zvr::MeshData>();
  copyStream("position", desc.positions, desc.positionStride, 3, desc.vertexCount, mesh->positions);
  copyStream("normal", desc.normals, desc.normalStride, 3, desc.vertexCount, mesh->normals);
  copyStream("tangent", desc.tangents, desc.tangentStride, 4, desc.vertexCount, mesh->tangents);
  copyStream("texcoord0", desc.texcoords0, desc.texcoord0Stride, 2, desc.vertexCount, mesh->texcoords0);
  copyStream("texcoord1", desc.texcoords1, desc.texcoord1Stride, 2, desc.vertexCount, mesh->texcoords1);
  copyStream("colour", desc.colors, desc.colorStride, 4, desc.vertexCount, mesh->colors);
  if (desc.indices) {
    if (desc.indexCount == 0 || desc.indexCount % 3 != 0)
      fail(ZVR_ERROR_INVALID_ARGUMENT,
           "mesh index count " + std::to_string(desc.indexCount) + " is not a positive multiple of 3");
    mesh->indices.assign(desc.indices, desc.indices + desc.indexCount);
    for (size_t i = 0; i < desc.indexCount; ++i)
      if (mesh->indices[i] >= desc.vertexCount)
        fail(ZVR_ERROR_INVALID_ARGUMENT, "mesh index " + std::to_string(i) + " is " + std::to_string(mesh->indices[i]) +
                                             ", past the last of " + std::to_string(desc.vertexCount) + " vertices");
  } else {
    if (desc.indexCount != 0) fail(ZVR_ERROR_INVALID_ARGUMENT, "mesh has an index count but no indices");
    if (desc.vertexCount % 3 != 0)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "mesh without indices needs a vertex count that is a multiple of 3, not " +
                                           std::to_string(desc.vertexCount));
    mesh->indices.resize(desc.vertexCount);
    for (size_t i = 0; i < desc.vertexCount; ++i) mesh->indices[i] = uint32_t(i);
  }
  return mesh;
}

}  // namespace zvr::core
