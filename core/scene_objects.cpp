#include "scene_objects.h"

#include <atomic>
#include <cmath>

#include "failure.h"

namespace zvr::core {

uint64_t nextDataId() {
  static std::atomic<uint64_t> next{1};
  return next++;
}

zvr::Matrix4 readMatrix(const float* matrix16, int transpose, const char* what) {
  if (!matrix16) fail(ZVR_ERROR_INVALID_ARGUMENT, std::string(what) + ": the matrix pointer is null");
  zvr::Matrix4 result;
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) {
      float value = transpose ? matrix16[column * 4 + row] : matrix16[row * 4 + column];
      if (!std::isfinite(value))
        fail(ZVR_ERROR_INVALID_ARGUMENT, std::string(what) + ": matrix element " + std::to_string(row * 4 + column) +
                                             " is not a finite number");
      result.m[row * 4 + column] = value;
    }
  return result;
}

uint64_t Shape::dataBytes() const {
  if (!mesh) return 0;
  return (mesh->positions.size() + mesh->normals.size() + mesh->tangents.size() + mesh->texcoords0.size() +
          mesh->texcoords1.size() + mesh->colors.size()) * sizeof(float) +
         mesh->indices.size() * sizeof(uint32_t);
}

zvr::ShapeData Shape::snapshot() const {
  zvr::ShapeData data;
  data.id = id;
  data.mesh = mesh;
  data.material = material ? material->snapshot() : nullptr;
  data.transform = transform;
  data.visible = visible;
  data.objectId = objectId;
  data.meshId = meshId;
  data.groupId = groupId;
  data.layers = layers;
  return data;
}

}  // namespace zvr::core
