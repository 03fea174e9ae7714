// The objects a scene is made of. Each keeps its data in the plug-in contract's types, so a render
// snapshot shares meshes and images instead of copying them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/data_id.h"
#include "core/object.h"
#include "core/plugin_api.h"

namespace zvr::core {

class MaterialNode;
class Image;

// Reads 16 floats; with `transpose` the source has the translation in 3, 7, 11. Refuses NaN.
zvr::Matrix4 readMatrix(const float* matrix16, int transpose, const char* what);

class Image : public Object {
 public:
  Image(Context* context, std::shared_ptr<const zvr::ImageData> data, const ZvrImageDesc& desc)
      : Object(ZVR_OBJECT_IMAGE, context), data(std::move(data)), desc(desc) {}
  uint64_t dataBytes() const override { return data ? data->pixels.size() * sizeof(float) : 0; }

  std::shared_ptr<const zvr::ImageData> data;
  ZvrImageDesc desc;
};

class Shape : public Object {
 public:
  Shape(Context* context, std::shared_ptr<const zvr::MeshData> mesh)
      : Object(ZVR_OBJECT_SHAPE, context), id(nextDataId()), mesh(std::move(mesh)) {}
  uint64_t dataBytes() const override;
  zvr::ShapeData snapshot() const;

  uint64_t id;
  std::shared_ptr<const zvr::MeshData> mesh;
  zvr::Matrix4 transform;
  bool visible = true;
  uint32_t objectId = 0, meshId = 0, groupId = 0;
  int32_t lightGroup = -1;
  MaterialNode* material = nullptr;
  std::vector<std::string> layers;
  uint32_t catcher = 0;  // ZvrCatcherFlags
};

class Light : public Object {
 public:
  Light(Context* context, zvr::LightType type) : Object(ZVR_OBJECT_LIGHT, context) {
    data.id = nextDataId();
    data.type = type;
  }
  // What renders see: radiance times intensity, the environment turned about +y after its transform.
  zvr::LightData effectiveData() const;
  zvr::LightData data;
  Image* image = nullptr;
  float intensity = 1, rotationDegrees = 0;
};

class Camera : public Object {
 public:
  explicit Camera(Context* context) : Object(ZVR_OBJECT_CAMERA, context) {}
  void lookAt(const float position[3], const float target[3], const float up[3]);
  void setTransform(const zvr::Matrix4& transform);
  void getInfo(uint32_t key, size_t size, void* data, size_t* outSize) const;

  zvr::CameraData data;
  float focusDistance = 1;  // distance to the look-at point, kept for ZVR_CAMERA_LOOKAT
};

class Scene : public Object {
 public:
  explicit Scene(Context* context) : Object(ZVR_OBJECT_SCENE, context) {}
  std::vector<Shape*> shapes;
  std::vector<Light*> lights;
  Camera* camera = nullptr;
  Light* environment = nullptr;  // the scene's own sky, owned by it; replaces other environment lights
};

class MaterialSystem : public Object {
 public:
  MaterialSystem(Context* context, uint32_t flags) : Object(ZVR_OBJECT_MATERIAL_SYSTEM, context), flags(flags) {}
  uint32_t flags;
};

class MaterialNode : public Object {
 public:
  MaterialNode(Context* context, MaterialSystem* system);
  void setParameter(const char* name, const float* values, int count);
  void setParameterUint(const char* name, uint32_t value);
  void setTexture(const char* slot, Image* image, const ZvrTextureSlot* sampling);
  void getParameter(const char* name, size_t size, void* data, size_t* outSize) const;
  // The data as a render sees it; shared until the next change.
  std::shared_ptr<const zvr::MaterialData> snapshot();
  void forgetImage(Image* image);

  MaterialSystem* system;

 private:
  zvr::MaterialData data_;
  std::vector<std::pair<std::string, Image*>> slotImages_;
  std::shared_ptr<const zvr::MaterialData> snapshot_;
};

}  // namespace zvr::core
