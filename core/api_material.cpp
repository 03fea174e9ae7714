// C boundary: images, material systems and material nodes.
#include "core/api_call.h"
#include "core/image_decode.h"
#include "core/info_reply.h"
#include "core/scene_objects.h"

using namespace zvr::core;

namespace {

MaterialNode* editableNode(ApiCall& call, ZvrMaterialNode node) {
  MaterialNode* n = expect<MaterialNode>(node, ZVR_OBJECT_MATERIAL_NODE, "node");
  call.requireIdle(n->context());
  ++n->context()->revisions.material;
  return n;
}

}  // namespace

extern "C" {

ZVR_API ZvrStatus zvrContextCreateImage(ZvrContext context, const ZvrImageDesc* desc, const void* data, ZvrImage* outImage) {
  ApiCall call("zvrContextCreateImage", context);
  call.handle("context", context).handle("desc", desc).handle("data", data);
  if (desc)
    call.unsignedNumber("width", desc->width).unsignedNumber("height", desc->height)
        .unsignedNumber("numComponents", desc->numComponents).unsignedNumber("componentType", desc->componentType);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(desc, "desc");
    requireOut(outImage, "outImage");
    *outImage = ctx->make<Image>(imageFromPixels(*desc, data), *desc)->handle();
    call.handle("outImage", *outImage);
  });
}

ZVR_API ZvrStatus zvrContextCreateImageFromFile(ZvrContext context, const char* path, uint32_t colorSpace, ZvrImage* outImage) {
  ApiCall call("zvrContextCreateImageFromFile", context);
  call.handle("context", context).text("path", path).unsignedNumber("colorSpace", colorSpace);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireText(path, "path");
    requireOut(outImage, "outImage");
    auto data = imageFromFile(path, colorSpace);
    *outImage = ctx->make<Image>(data, describeImage(*data))->handle();
    call.handle("outImage", *outImage);
  });
}

ZVR_API ZvrStatus zvrContextCreateImageFromMemory(ZvrContext context, const void* bytes, size_t size, uint32_t colorSpace,
                                                  ZvrImage* outImage) {
  ApiCall call("zvrContextCreateImageFromMemory", context);
  call.handle("context", context).handle("bytes", bytes).unsignedNumber("size", size).unsignedNumber("colorSpace", colorSpace);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(outImage, "outImage");
    auto data = imageFromMemory(bytes, size, colorSpace);
    *outImage = ctx->make<Image>(data, describeImage(*data))->handle();
    call.handle("outImage", *outImage);
  });
}

ZVR_API ZvrStatus zvrImageGetInfo(ZvrImage image, uint32_t key, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrImageGetInfo", image);
  call.handle("image", image).unsignedNumber("key", key).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    Image* img = expect<Image>(image, ZVR_OBJECT_IMAGE, "image");
    switch (key) {
      case ZVR_IMAGE_DESC: return replyValue("image desc", img->desc, size, data, outSize);
      case ZVR_OBJECT_NAME: return replyText("object name", img->name(), size, data, outSize);
      case ZVR_OBJECT_TYPE: {
        uint32_t type = img->kind();
        return replyValue("object type", type, size, data, outSize);
      }
    }
    fail(ZVR_ERROR_UNKNOWN_KEY, "image has no info key " + std::to_string(key));
  });
}

ZVR_API ZvrStatus zvrContextCreateMaterialSystem(ZvrContext context, uint32_t flags, ZvrMaterialSystem* outSystem) {
  ApiCall call("zvrContextCreateMaterialSystem", context);
  call.handle("context", context).flags("flags", flags);
  return call.run([&] {
    Context* ctx = expect<Context>(context, ZVR_OBJECT_CONTEXT, "context");
    requireOut(outSystem, "outSystem");
    if (flags != 0) fail(ZVR_ERROR_INVALID_ARGUMENT, "material system flags must be 0");
    *outSystem = ctx->make<MaterialSystem>(flags)->handle();
    call.handle("outSystem", *outSystem);
  });
}

ZVR_API ZvrStatus zvrMaterialSystemCreateNode(ZvrMaterialSystem system, uint32_t type, ZvrMaterialNode* outNode) {
  ApiCall call("zvrMaterialSystemCreateNode", system);
  call.handle("system", system).unsignedNumber("type", type);
  return call.run([&] {
    MaterialSystem* s = expect<MaterialSystem>(system, ZVR_OBJECT_MATERIAL_SYSTEM, "system");
    requireOut(outNode, "outNode");
    if (type != ZVR_MATERIAL_NODE_PBR)
      fail(ZVR_ERROR_INVALID_ARGUMENT, "material node type " + std::to_string(type) + " is not 1 (PBR)");
    *outNode = s->context()->make<MaterialNode>(s)->handle();
    call.handle("outNode", *outNode);
  });
}

ZVR_API ZvrStatus zvrMaterialNodeSetParameter1f(ZvrMaterialNode node, const char* name, float x) {
  ApiCall call("zvrMaterialNodeSetParameter1f", node);
  call.handle("node", node).text("name", name).real("x", x);
  return call.run([&] { editableNode(call, node)->setParameter(name, &x, 1); });
}

ZVR_API ZvrStatus zvrMaterialNodeSetParameter3f(ZvrMaterialNode node, const char* name, float x, float y, float z) {
  ApiCall call("zvrMaterialNodeSetParameter3f", node);
  call.handle("node", node).text("name", name).real("x", x).real("y", y).real("z", z);
  return call.run([&] {
    const float values[3] = {x, y, z};
    editableNode(call, node)->setParameter(name, values, 3);
  });
}

ZVR_API ZvrStatus zvrMaterialNodeSetParameter4f(ZvrMaterialNode node, const char* name, float x, float y, float z, float w) {
  ApiCall call("zvrMaterialNodeSetParameter4f", node);
  call.handle("node", node).text("name", name).real("x", x).real("y", y).real("z", z).real("w", w);
  return call.run([&] {
    const float values[4] = {x, y, z, w};
    editableNode(call, node)->setParameter(name, values, 4);
  });
}

ZVR_API ZvrStatus zvrMaterialNodeSetParameter1u(ZvrMaterialNode node, const char* name, uint32_t x) {
  ApiCall call("zvrMaterialNodeSetParameter1u", node);
  call.handle("node", node).text("name", name).unsignedNumber("x", x);
  return call.run([&] { editableNode(call, node)->setParameterUint(name, x); });
}

ZVR_API ZvrStatus zvrMaterialNodeSetTexture(ZvrMaterialNode node, const char* slot, ZvrImage image, const ZvrTextureSlot* sampling) {
  ApiCall call("zvrMaterialNodeSetTexture", node);
  call.handle("node", node).text("slot", slot).handle("image", image).handle("sampling", sampling);
  return call.run([&] {
    MaterialNode* n = editableNode(call, node);
    Image* img = nullptr;
    if (image) {
      img = expect<Image>(image, ZVR_OBJECT_IMAGE, "image");
      expectSameContext(img, n->context(), "image");
    }
    n->setTexture(slot, img, sampling);
  });
}

ZVR_API ZvrStatus zvrMaterialNodeGetParameter(ZvrMaterialNode node, const char* name, size_t size, void* data, size_t* outSize) {
  ApiCall call("zvrMaterialNodeGetParameter", node);
  call.handle("node", node).text("name", name).unsignedNumber("size", size).handle("data", data);
  return call.run([&] {
    expect<MaterialNode>(node, ZVR_OBJECT_MATERIAL_NODE, "node")->getParameter(name, size, data, outSize);
  });
}

}  // extern "C"
