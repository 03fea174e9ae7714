#include "core/scene_objects.h"

#include <cmath>

#include "core/cryptomatte_manifest.h"
#include "core/failure.h"

namespace zvr::core {

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
  data.lightGroup = lightGroup;
  data.layers = layers;
  data.name = cryptomatteObjectName(*this);
  data.materialName = cryptomatteMaterialName(*this);
  data.catcher = catcher;
  return data;
}

zvr::LightData Light::effectiveData() const {
  zvr::LightData out = data;
  out.name = name();
  for (float& c : out.radiance) c *= intensity;
  if (data.type == zvr::LightType::Environment && rotationDegrees != 0) {
    // Points map as p * M: turning about +y after the transform is M * R.
    float a = rotationDegrees * 3.14159265358979f / 180, c = std::cos(a), s = std::sin(a);
    const float rotation[16] = {c, 0, -s, 0, 0, 1, 0, 0, s, 0, c, 0, 0, 0, 0, 1};
    for (int r = 0; r < 4; ++r)
      for (int k = 0; k < 4; ++k) {
        float sum = 0;
        for (int j = 0; j < 4; ++j) sum += data.transform.m[r * 4 + j] * rotation[j * 4 + k];
        out.transform.m[r * 4 + k] = sum;
      }
  }
  return out;
}

}  // namespace zvr::core
