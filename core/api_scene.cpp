// C boundary: scenes, shapes, lights and cameras.
#include <algorithm>
#include <cmath>

#include "core/api_call.h"
#include "core/image_decode.h"
#include "core/info_reply.h"
#include "core/mesh_builder.h"
#include "core/scene_objects.h"

using namespace zvr::core;

namespace {

template <class T>
T* objectOf(ApiCall& call, const void* handle, ZvrObjectType kind, const char* argument) {
  T* object = expect<T>(handle, kind, argument);
  call.requireIdle(object->context());
  return object;
}

// Name and type answer for every kind; the kind's own keys come first.
template <class Own>
void getInfoWithCommonKeys(Object* object, uint32_t key, size_t size, void* data, size_t* outSize, Own&& own) {
  if (key == ZVR_OBJECT_NAME) return replyText("object name", object->name(), size, data, outSize);
  if (key == ZVR_OBJECT_TYPE) {
    uint32_t type = object->kind();
    return replyValue("object type", type, size, data, outSize);
  }
  own();
}

void requireFinite(float value, const char* what) {
  if (!std::isfinite(value)) fail(ZVR_ERROR_INVALID_ARGUMENT, std::string(what) + " is not a finite number");
}

// Light groups 0 to 15 each have an output; -1 is no group.
void requireLightGroup(int32_t group) {
  if (group < -1 || group > 15) fail(ZVR_ERROR_INVALID_ARGUMENT, "light group " + std::to_string(group) + " is not -1 to 15");
}

}  // namespace

extern "C" {

ZVR_API ZvrStatus zvrContextCreateScene(ZvrContext context, ZvrScene* outScene) {
  ApiCall call("zvrContextCreateScene", context);
  call.handle("context", context);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(outScene, "outScene");
    *outScene = ctx->make<Scene>()->handle();
    call.handle("outScene", *outScene);
  });
}

ZVR_API ZvrStatus zvrContextSetScene(ZvrContext context, ZvrScene scene) {
  ApiCall call("zvrContextSetScene", context);
  call.handle("context", context).handle("scene", scene);
  return call.run([&] {
    Context* ctx = objectOf<Context>(call, context, ZVR_OBJECT_CONTEXT, "context");
    Scene* target = nullptr;
    if (scene) {
      target = expect<Scene>(scene, ZVR_OBJECT_SCENE, "scene");
      expectSameContext(target, ctx, "scene");
    }
    ctx->scene = target;
    ++ctx->revisions.geometry;
    ++ctx->revisions.light;
  });
}

ZVR_API ZvrStatus zvrSceneAttachShape(ZvrScene scene, ZvrShape shape) {
  ApiCall call("zvrSceneAttachShape", scene);
  call.handle("scene", scene).handle("shape", shape);
  return call.run([&] {
    Scene* s = objectOf<Scene>(call, scene, ZVR_OBJECT_SCENE, "scene");
    Shape* sh = expect<Shape>(shape, ZVR_OBJECT_SHAPE, "shape");
    expectSameContext(sh, s->context(), "shape");
    if (std::find(s->shapes.begin(), s->shapes.end(), sh) != s->shapes.end()) return;
    s->shapes.push_back(sh);
    ++s->context()->revisions.geometry;
  });
}

ZVR_API ZvrStatus zvrSceneDetachShape(ZvrScene scene, ZvrShape shape) {
  ApiCall call("zvrSceneDetachShape", scene);
  call.handle("scene", scene).handle("shape", shape);
  return call.run([&] {
    Scene* s = objectOf<Scene>(call, scene, ZVR_OBJECT_SCENE, "scene");
    Shape* sh = expect<Shape>(shape, ZVR_OBJECT_SHAPE, "shape");
    auto it = std::find(s->shapes.begin(), s->shapes.end(), sh);
    if (it == s->shapes.end()) fail(ZVR_ERROR_INVALID_ARGUMENT, "the shape is not attached to this scene");
    s->shapes.erase(it);
    ++s->context()->revisions.geometry;
  });
}

ZVR_API ZvrStatus zvrSceneAttachLight(ZvrScene scene, ZvrLight light) {
  ApiCall call("zvrSceneAttachLight", scene);
  call.handle("scene", scene).handle("light", light);
  return call.run([&] {
    Scene* s = objectOf<Scene>(call, scene, ZVR_OBJECT_SCENE, "scene");
    Light* l = expect<Light>(light, ZVR_OBJECT_LIGHT, "light");
    expectSameContext(l, s->context(), "light");
    if (std::find(s->lights.begin(), s->lights.end(), l) != s->lights.end()) return;
    s->lights.push_back(l);
    ++s->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrSceneDetachLight(ZvrScene scene, ZvrLight light) {
  ApiCall call("zvrSceneDetachLight", scene);
  call.handle("scene", scene).handle("light", light);
  return call.run([&] {
    Scene* s = objectOf<Scene>(call, scene, ZVR_OBJECT_SCENE, "scene");
    Light* l = expect<Light>(light, ZVR_OBJECT_LIGHT, "light");
    auto it = std::find(s->lights.begin(), s->lights.end(), l);
    if (it == s->lights.end()) fail(ZVR_ERROR_INVALID_ARGUMENT, "the light is not attached to this scene");
    s->lights.erase(it);
    ++s->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrSceneCreateEnvironmentLight(ZvrScene scene, ZvrLight* outLight) {
  ApiCall call("zvrSceneCreateEnvironmentLight", scene);
  call.handle("scene", scene).handle("outLight", outLight);
  return call.run([&] {
    Scene* s = objectOf<Scene>(call, scene, ZVR_OBJECT_SCENE, "scene");
    requireOut(outLight, "outLight");
    Context* ctx = s->context();
    Light* previous = s->environment;
    Light* light = ctx->make<Light>(zvr::LightType::Environment);
    s->environment = light;
    if (previous) ctx->destroy(previous);
    ++ctx->revisions.light;
    *outLight = light->handle();
    call.handle("outLight", *outLight);
  });
}

ZVR_API ZvrStatus zvrSceneSetCamera(ZvrScene scene, ZvrCamera camera) {
  ApiCall call("zvrSceneSetCamera", scene);
  call.handle("scene", scene).handle("camera", camera);
  return call.run([&] {
    Scene* s = objectOf<Scene>(call, scene, ZVR_OBJECT_SCENE, "scene");
    Camera* c = nullptr;
    if (camera) {
      c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
      expectSameContext(c, s->context(), "camera");
    }
    s->camera = c;
  });
}

ZVR_API ZvrStatus zvrSceneGetCamera(ZvrScene scene, ZvrCamera* outCamera) {
  ApiCall call("zvrSceneGetCamera", scene);
  call.handle("scene", scene);
  return call.run([&] {
    Scene* s = expect<Scene>(scene, ZVR_OBJECT_SCENE, "scene");
    requireOut(outCamera, "outCamera");
    *outCamera = s->camera ? s->camera->handle() : nullptr;
    call.handle("outCamera", *outCamera);
  });
}

ZVR_API ZvrStatus zvrContextCreateCamera(ZvrContext context, ZvrCamera* outCamera) {
  ApiCall call("zvrContextCreateCamera", context);
  call.handle("context", context);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(outCamera, "outCamera");
    *outCamera = ctx->make<Camera>()->handle();
    call.handle("outCamera", *outCamera);
  });
}

ZVR_API ZvrStatus zvrCameraGetInfo(ZvrCamera camera, uint32_t key, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrCameraGetInfo", camera);
  call.handle("camera", camera).unsignedNumber("key", key).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    getInfoWithCommonKeys(c, key, size, data, outSize, [&] { c->getInfo(key, size, data, outSize); });
  });
}

ZVR_API ZvrStatus zvrCameraSetTransform(ZvrCamera camera, int transpose, const float* matrix16) {
  ApiCall call("zvrCameraSetTransform", camera);
  call.handle("camera", camera).number("transpose", transpose).matrix("matrix", matrix16);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    c->setTransform(readMatrix(matrix16, transpose, "camera transform"));
  });
}

ZVR_API ZvrStatus zvrCameraSetType(ZvrCamera camera, uint32_t type) {
  ApiCall call("zvrCameraSetType", camera);
  call.handle("camera", camera).unsignedNumber("type", type);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    if (type > ZVR_CAMERA_ORTHOGRAPHIC)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "camera type " + std::to_string(type) + " is not 0 (perspective) or 1 (orthographic)");
    c->data.type = type;
  });
}

ZVR_API ZvrStatus zvrCameraSetFovY(ZvrCamera camera, float radians) {
  ApiCall call("zvrCameraSetFovY", camera);
  call.handle("camera", camera).real("radians", radians);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    if (!(radians > 0 && radians < 3.14159265f))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "field of view " + std::to_string(radians) + " rad is not between 0 and pi");
    c->data.fovY = radians;
  });
}

ZVR_API ZvrStatus zvrCameraSetOrthoHeight(ZvrCamera camera, float height) {
  ApiCall call("zvrCameraSetOrthoHeight", camera);
  call.handle("camera", camera).real("height", height);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    if (!(height > 0) || !std::isfinite(height))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "orthographic height " + std::to_string(height) + " is not a positive number");
    c->data.orthoHeight = height;
  });
}

ZVR_API ZvrStatus zvrCameraSetClipping(ZvrCamera camera, float nearPlane, float farPlane) {
  ApiCall call("zvrCameraSetClipping", camera);
  call.handle("camera", camera).real("nearPlane", nearPlane).real("farPlane", farPlane);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    if (!(nearPlane >= 0) || !(farPlane > nearPlane))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "clipping planes must satisfy 0 <= near < far");
    c->data.nearPlane = nearPlane;
    c->data.farPlane = farPlane;
  });
}

ZVR_API ZvrStatus zvrCameraSetMode(ZvrCamera camera, uint32_t mode) {
  ApiCall call("zvrCameraSetMode", camera);
  call.handle("camera", camera).unsignedNumber("mode", mode);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    if (mode != 0 && mode != 3 && mode != 4 && mode != 7)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "camera mode " + std::to_string(mode) + " is not 0, 3, 4 or 7");
    c->data.mode = mode;
  });
}

ZVR_API ZvrStatus zvrCameraSetPostScale(ZvrCamera camera, float scale) {
  ApiCall call("zvrCameraSetPostScale", camera);
  call.handle("camera", camera).real("scale", scale);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    if (!(scale > 0) || !std::isfinite(scale))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "post scale " + std::to_string(scale) + " is not a positive number");
    c->data.postScale = scale;
  });
}

ZVR_API ZvrStatus zvrCameraLookAt(ZvrCamera camera, float posX, float posY, float posZ, float atX, float atY, float atZ,
                                  float upX, float upY, float upZ) {
  ApiCall call("zvrCameraLookAt", camera);
  call.handle("camera", camera).real("posX", posX).real("posY", posY).real("posZ", posZ).real("atX", atX)
      .real("atY", atY).real("atZ", atZ).real("upX", upX).real("upY", upY).real("upZ", upZ);
  return call.run([&] {
    Camera* c = expect<Camera>(camera, ZVR_OBJECT_CAMERA, "camera");
    // Camera changes are allowed during a render and reach the next one.
    std::lock_guard<std::mutex> state(c->context()->stateMutex);
    const float position[3] = {posX, posY, posZ}, at[3] = {atX, atY, atZ}, up[3] = {upX, upY, upZ};
    c->lookAt(position, at, up);
  });
}

ZVR_API ZvrStatus zvrContextCreateMesh(ZvrContext context, const ZvrMeshDesc* desc, ZvrShape* outShape) {
  ApiCall call("zvrContextCreateMesh", context);
  call.handle("context", context).handle("desc", desc);
  if (desc) call.unsignedNumber("vertexCount", desc->vertexCount).unsignedNumber("indexCount", desc->indexCount);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(desc, "desc");
    requireOut(outShape, "outShape");
    *outShape = ctx->make<Shape>(buildMesh(*desc))->handle();
    call.handle("outShape", *outShape);
  });
}

ZVR_API ZvrStatus zvrShapeGetInfo(ZvrShape shape, uint32_t key, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrShapeGetInfo", shape);
  call.handle("shape", shape).unsignedNumber("key", key).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    Shape* s = expect<Shape>(shape, ZVR_OBJECT_SHAPE, "shape");
    getInfoWithCommonKeys(s, key, size, data, outSize, [&] {
      switch (key) {
        case ZVR_SHAPE_TRANSFORM: return replyBytes("shape transform", s->transform.m, 64, size, data, outSize);
        case ZVR_SHAPE_VERTEX_COUNT: {
          uint32_t count = uint32_t(s->mesh->positions.size() / 3);
          return replyValue("shape vertex count", count, size, data, outSize);
        }
        case ZVR_SHAPE_TRIANGLE_COUNT: {
          uint32_t count = uint32_t(s->mesh->indices.size() / 3);
          return replyValue("shape triangle count", count, size, data, outSize);
        }
        case ZVR_SHAPE_MATERIAL: {
          ZvrMaterialNode node = s->material ? s->material->handle() : nullptr;
          return replyValue("shape material", node, size, data, outSize);
        }
        case ZVR_SHAPE_VISIBILITY: {
          uint32_t visible = s->visible ? 1 : 0;
          return replyValue("shape visibility", visible, size, data, outSize);
        }
        case ZVR_SHAPE_OBJECT_ID: return replyValue("shape object id", s->objectId, size, data, outSize);
        case ZVR_SHAPE_MESH_ID: return replyValue("shape mesh id", s->meshId, size, data, outSize);
        case ZVR_SHAPE_GROUP_ID: return replyValue("shape group id", s->groupId, size, data, outSize);
        case ZVR_SHAPE_CATCHER: return replyValue("shape catcher flags", s->catcher, size, data, outSize);
        case ZVR_SHAPE_LIGHT_GROUP: return replyValue("shape light group", s->lightGroup, size, data, outSize);
      }
      fail(ZVR_ERROR_UNKNOWN_KEY, "shape has no info key " + std::to_string(key));
    });
  });
}

ZVR_API ZvrStatus zvrShapeSetTransform(ZvrShape shape, int transpose, const float* matrix16) {
  ApiCall call("zvrShapeSetTransform", shape);
  call.handle("shape", shape).number("transpose", transpose).matrix("matrix", matrix16);
  return call.run([&] {
    Shape* s = objectOf<Shape>(call, shape, ZVR_OBJECT_SHAPE, "shape");
    s->transform = readMatrix(matrix16, transpose, "shape transform");
    ++s->context()->revisions.transform;
  });
}

ZVR_API ZvrStatus zvrShapeSetVisibility(ZvrShape shape, int visible) {
  ApiCall call("zvrShapeSetVisibility", shape);
  call.handle("shape", shape).number("visible", visible);
  return call.run([&] {
    // Allowed while a render runs: the next render call sees it.
    Shape* s = expect<Shape>(shape, ZVR_OBJECT_SHAPE, "shape");
    std::lock_guard<std::mutex> state(s->context()->stateMutex);
    s->visible = visible != 0;
    ++s->context()->revisions.transform;
  });
}

ZVR_API ZvrStatus zvrShapeSetMaterial(ZvrShape shape, ZvrMaterialNode material) {
  ApiCall call("zvrShapeSetMaterial", shape);
  call.handle("shape", shape).handle("material", material);
  return call.run([&] {
    Shape* s = objectOf<Shape>(call, shape, ZVR_OBJECT_SHAPE, "shape");
    MaterialNode* node = nullptr;
    if (material) {
      node = expect<MaterialNode>(material, ZVR_OBJECT_MATERIAL_NODE, "material");
      expectSameContext(node, s->context(), "material");
    }
    s->material = node;
    ++s->context()->revisions.material;
  });
}

#define ZVR_SHAPE_ID_SETTER(function, field)                                   \
  ZVR_API ZvrStatus function(ZvrShape shape, uint32_t id) {                    \
    ApiCall call(#function, shape);                                            \
    call.handle("shape", shape).unsignedNumber("id", id);                      \
    return call.run([&] {                                                      \
      Shape* s = objectOf<Shape>(call, shape, ZVR_OBJECT_SHAPE, "shape");            \
      s->field = id;                                                           \
      ++s->context()->revisions.material;                                      \
    });                                                                        \
  }
ZVR_SHAPE_ID_SETTER(zvrShapeSetObjectId, objectId)
ZVR_SHAPE_ID_SETTER(zvrShapeSetMeshId, meshId)
ZVR_SHAPE_ID_SETTER(zvrShapeSetGroupId, groupId)
#undef ZVR_SHAPE_ID_SETTER

ZVR_API ZvrStatus zvrShapeSetCatcher(ZvrShape shape, uint32_t flags) {
  ApiCall call("zvrShapeSetCatcher", shape);
  call.handle("shape", shape).unsignedNumber("flags", flags);
  return call.run([&] {
    Shape* s = objectOf<Shape>(call, shape, ZVR_OBJECT_SHAPE, "shape");
    constexpr uint32_t known = ZVR_CATCHER_SHADOW | ZVR_CATCHER_REFLECTION;
    if (flags & ~known)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "catcher flags " + std::to_string(flags) + " hold bits other than 1 (shadow) and 2 (reflection)");
    s->catcher = flags;
    ++s->context()->revisions.material;
  });
}

ZVR_API ZvrStatus zvrShapeSetLightGroup(ZvrShape shape, int32_t group) {
  ApiCall call("zvrShapeSetLightGroup", shape);
  call.handle("shape", shape).number("group", group);
  return call.run([&] {
    Shape* s = objectOf<Shape>(call, shape, ZVR_OBJECT_SHAPE, "shape");
    requireLightGroup(group);
    s->lightGroup = group;
    // The emitters are rebuilt with the materials.
    ++s->context()->revisions.material;
  });
}

ZVR_API ZvrStatus zvrShapeAddRenderLayer(ZvrShape shape, const char* layer) {
  ApiCall call("zvrShapeAddRenderLayer", shape);
  call.handle("shape", shape).text("layer", layer);
  return call.run([&] {
    Shape* s = objectOf<Shape>(call, shape, ZVR_OBJECT_SHAPE, "shape");
    requireText(layer, "layer");
    if (!*layer) fail(ZVR_ERROR_INVALID_ARGUMENT, "the layer name is empty");
    if (std::find(s->layers.begin(), s->layers.end(), layer) == s->layers.end()) s->layers.push_back(layer);
    ++s->context()->revisions.transform;
  });
}

ZVR_API ZvrStatus zvrContextCreateLight(ZvrContext context, uint32_t type, ZvrLight* outLight) {
  ApiCall call("zvrContextCreateLight", context);
  call.handle("context", context).unsignedNumber("type", type);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(outLight, "outLight");
    if (type > ZVR_LIGHT_ENVIRONMENT) fail(ZVR_ERROR_INVALID_ARGUMENT, "light type " + std::to_string(type) + " is not 0 to 3");
    *outLight = ctx->make<Light>(zvr::LightType(type))->handle();
    call.handle("outLight", *outLight);
  });
}

ZVR_API ZvrStatus zvrLightGetInfo(ZvrLight light, uint32_t key, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrLightGetInfo", light);
  call.handle("light", light).unsignedNumber("key", key).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    Light* l = expect<Light>(light, ZVR_OBJECT_LIGHT, "light");
    getInfoWithCommonKeys(l, key, size, data, outSize, [&] {
      switch (key) {
        case ZVR_LIGHT_TRANSFORM: return replyBytes("light transform", l->data.transform.m, 64, size, data, outSize);
        case ZVR_LIGHT_TYPE: {
          uint32_t type = uint32_t(l->data.type);
          return replyValue("light type", type, size, data, outSize);
        }
        case ZVR_LIGHT_RADIANCE: return replyBytes("light radiance", l->data.radiance, 12, size, data, outSize);
        case ZVR_LIGHT_INTENSITY: return replyValue("light intensity", l->intensity, size, data, outSize);
        case ZVR_LIGHT_ROTATION: return replyValue("light rotation", l->rotationDegrees, size, data, outSize);
        case ZVR_LIGHT_GROUP: return replyValue("light group", l->data.group, size, data, outSize);
      }
      fail(ZVR_ERROR_UNKNOWN_KEY, "light has no info key " + std::to_string(key));
    });
  });
}

ZVR_API ZvrStatus zvrLightSetTransform(ZvrLight light, int transpose, const float* matrix16) {
  ApiCall call("zvrLightSetTransform", light);
  call.handle("light", light).number("transpose", transpose).matrix("matrix", matrix16);
  return call.run([&] {
    Light* l = objectOf<Light>(call, light, ZVR_OBJECT_LIGHT, "light");
    l->data.transform = readMatrix(matrix16, transpose, "light transform");
    ++l->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrLightSetRadiance(ZvrLight light, float r, float g, float b) {
  ApiCall call("zvrLightSetRadiance", light);
  call.handle("light", light).real("r", r).real("g", g).real("b", b);
  return call.run([&] {
    Light* l = objectOf<Light>(call, light, ZVR_OBJECT_LIGHT, "light");
    for (float v : {r, g, b})
      if (!(v >= 0) || !std::isfinite(v)) fail(ZVR_ERROR_INVALID_ARGUMENT, "radiance components must be finite and not negative");
    l->data.radiance[0] = r;
    l->data.radiance[1] = g;
    l->data.radiance[2] = b;
    ++l->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrLightSetSpotCone(ZvrLight light, float inner, float outer) {
  ApiCall call("zvrLightSetSpotCone", light);
  call.handle("light", light).real("inner", inner).real("outer", outer);
  return call.run([&] {
    Light* l = objectOf<Light>(call, light, ZVR_OBJECT_LIGHT, "light");
    requireFinite(inner, "inner cone angle");
    requireFinite(outer, "outer cone angle");
    if (!(inner >= 0 && inner <= outer && outer <= 3.14159265f / 2 + 1e-6f))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "spot cone angles must satisfy 0 <= inner <= outer <= pi/2");
    l->data.innerCone = inner;
    l->data.outerCone = outer;
    ++l->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrLightSetImage(ZvrLight light, ZvrImage image) {
  ApiCall call("zvrLightSetImage", light);
  call.handle("light", light).handle("image", image);
  return call.run([&] {
    Light* l = objectOf<Light>(call, light, ZVR_OBJECT_LIGHT, "light");
    if (l->data.type != zvr::LightType::Environment)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "only an environment light takes an image");
    Image* img = nullptr;
    if (image) {
      img = expect<Image>(image, ZVR_OBJECT_IMAGE, "image");
      expectSameContext(img, l->context(), "image");
    }
    l->image = img;
    l->data.image = img ? img->data : nullptr;
    ++l->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrLightSetGroup(ZvrLight light, int32_t group) {
  ApiCall call("zvrLightSetGroup", light);
  call.handle("light", light).number("group", group);
  return call.run([&] {
    Light* l = objectOf<Light>(call, light, ZVR_OBJECT_LIGHT, "light");
    requireLightGroup(group);
    l->data.group = group;
    ++l->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrLightSetIntensity(ZvrLight light, float intensity) {
  ApiCall call("zvrLightSetIntensity", light);
  call.handle("light", light).real("intensity", intensity);
  return call.run([&] {
    Light* l = objectOf<Light>(call, light, ZVR_OBJECT_LIGHT, "light");
    if (!(intensity >= 0) || !std::isfinite(intensity))
      fail(ZVR_ERROR_INVALID_ARGUMENT, "light intensity " + std::to_string(intensity) + " is not finite and not negative");
    l->intensity = intensity;
    ++l->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrLightSetRotation(ZvrLight light, float degrees) {
  ApiCall call("zvrLightSetRotation", light);
  call.handle("light", light).real("degrees", degrees);
  return call.run([&] {
    Light* l = objectOf<Light>(call, light, ZVR_OBJECT_LIGHT, "light");
    if (l->data.type != zvr::LightType::Environment) fail(ZVR_ERROR_INVALID_ARGUMENT, "only an environment light turns about the up axis");
    requireFinite(degrees, "rotation");
    l->rotationDegrees = degrees;
    ++l->context()->revisions.light;
  });
}

ZVR_API ZvrStatus zvrLightSetImagePath(ZvrLight light, const char* path) {
  ApiCall call("zvrLightSetImagePath", light);
  call.handle("light", light).text("path", path);
  return call.run([&] {
    Light* l = objectOf<Light>(call, light, ZVR_OBJECT_LIGHT, "light");
    if (l->data.type != zvr::LightType::Environment) fail(ZVR_ERROR_INVALID_ARGUMENT, "only an environment light takes an image");
    requireText(path, "path");
    // The pixels belong to the light alone: no image object to outlive or leak.
    l->data.image = imageFromFile(path, ZVR_IMAGE_COLORSPACE_LINEAR);
    l->image = nullptr;
    ++l->context()->revisions.light;
  });
}

}  // extern "C"
