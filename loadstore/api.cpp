// The C boundary: argument checks, one try/catch per call, statuses and last-error texts, trace.
#include <cstdio>
#include <cstring>
#include <map>
#include <set>

#include "engine/ZvrLoadStore.h"
#include "loadstore/import_state.h"
#include "loadstore/instantiate.h"
#include "loadstore/load_error.h"
#include "loadstore/ocio_files.h"
#include "loadstore/scene_file.h"
#include "loadstore/trace.h"
#include "loadstore/user_environment.h"
#include "loadstore/xml_reader.h"
#include "loadstore/xml_writer.h"

using namespace zvr::loadstore;

namespace {

using zvr::core::Failure;

// A core call that failed has already stored its own last-error text, which must stay: it is
// thrown without a text of its own.
struct CoreFailure : Failure {
  explicit CoreFailure(ZvrStatus status) : Failure(status, "") {}
};

template <class Body>
ZvrStatus guarded(ZvrContext context, Body&& body) {
  const zvr::core::Outcome outcome = zvr::core::runCatching(body);
  if (outcome.status != ZVR_SUCCESS && !outcome.text.empty() && context)
    zvrContextSetLastError(context, outcome.text.c_str());
  return outcome.status;
}

ZvrStatus traced(ZvrContext context, const TraceLine& line, ZvrStatus status) {
  writeTrace(context, line, status);
  return status;
}

void expectKind(void* object, ZvrObjectType kind, const char* what) {
  uint32_t type = 0;
  if (!object || zvrObjectGetInfo(object, ZVR_OBJECT_TYPE, sizeof type, &type, nullptr) != ZVR_SUCCESS || type != kind)
    throw Failure(ZVR_ERROR_INVALID_OBJECT, std::string(what) + " is not a live object of its kind");
}

void expectArgument(bool ok, const std::string& text) {
  if (!ok) throw Failure(ZVR_ERROR_INVALID_ARGUMENT, text);
}

struct NamedKey {
  const char* name;
  ZvrContextInfo key;
  bool isFloat;
};
constexpr NamedKey kNamedKeys[] = {
    {"displaygamma", ZVR_CONTEXT_DISPLAY_GAMMA, true},
    {"texturegamma", ZVR_CONTEXT_TEXTURE_GAMMA, true},
    {"mipmaplodoffset", ZVR_CONTEXT_MIPMAP_LOD_OFFSET, true},
    {"maxdepth.shadow", ZVR_CONTEXT_MAX_DEPTH_SHADOW, false},
    {"maxdepth.diffuse", ZVR_CONTEXT_MAX_DEPTH_DIFFUSE, false},
    {"maxdepth.glossy", ZVR_CONTEXT_MAX_DEPTH_GLOSSY, false},
    {"maxdepth.refraction", ZVR_CONTEXT_MAX_DEPTH_REFRACTION, false},
    {"maxdepth.refraction.glossy", ZVR_CONTEXT_MAX_DEPTH_REFRACTION_GLOSSY, false},
    {"ooctexcache", ZVR_CONTEXT_OOC_TEXTURE_CACHE, false},
};

const NamedKey& namedKey(const char* name, bool isFloat) {
  if (!name) throw Failure(ZVR_ERROR_INVALID_ARGUMENT, "parameter name is null");
  for (const NamedKey& k : kNamedKeys) {
    if (std::strcmp(k.name, name) != 0) continue;
    if (k.isFloat != isFloat)
      throw Failure(ZVR_ERROR_INVALID_ARGUMENT,
                    std::string("parameter \"") + name + "\" takes " + (k.isFloat ? "a float" : "an unsigned integer"));
    return k;
  }
  throw Failure(ZVR_ERROR_UNKNOWN_KEY, std::string("unknown context parameter \"") + name + "\"");
}

void passOn(ZvrStatus status) {
  if (status != ZVR_SUCCESS) throw CoreFailure{status};
}

ZvrStatus listHandles(const char* operation, const std::vector<ZvrObject>& (*pick)(), void* buffer, size_t size,
                      uint32_t* outCount) {
  TraceLine line(operation);
  line.handle("buffer", buffer).unsignedNumber("size", size).handle("outCount", outCount);
  ZvrStatus status;
  {
    std::lock_guard<std::mutex> lock(ImportState::instance().mutex());
    const std::vector<ZvrObject>& handles = pick();
    status = guarded(nullptr, [&] {
      if (outCount) *outCount = uint32_t(handles.size());
      if (!buffer) return;
      if (size < handles.size() * sizeof(ZvrObject)) throw Failure(ZVR_ERROR_INVALID_SIZE, "buffer too small");
      if (!handles.empty()) std::memcpy(buffer, handles.data(), handles.size() * sizeof(ZvrObject));
    });
  }
  return traced(nullptr, line, status);
}

ZvrStatus parentGroup(const char* operation, ZvrObject object, const char* objectName, size_t size, char* name,
                      size_t* outSize) {
  TraceLine line(operation);
  line.handle(objectName, object).unsignedNumber("size", size).handle("name", name).handle("outSize", outSize);
  ZvrStatus status;
  {
    std::lock_guard<std::mutex> lock(ImportState::instance().mutex());
    status = guarded(nullptr, [&] {
      const ImportResult& last = ImportState::instance().last();
      bool known = false;
      for (const auto* list : {&last.shapes, &last.lights, &last.cameras})
        for (ZvrObject h : *list) known |= h == object;
      if (!object || !known) throw Failure(ZVR_ERROR_INVALID_OBJECT, std::string(objectName) + " is not an imported object");
      std::string parent;
      ImportState::instance().parentOf(object, &parent);
      if (outSize) *outSize = parent.size() + 1;
      if (!name) return;
      if (size < parent.size() + 1) throw Failure(ZVR_ERROR_INVALID_SIZE, "name buffer too small");
      std::memcpy(name, parent.c_str(), parent.size() + 1);
    });
  }
  return traced(nullptr, line, status);
}

// Deletes the imports' objects that are still alive; handles the caller already deleted (or that
// went with a deleted context) are left alone, since a second delete is refused.
ZvrStatus deleteCreated(ZvrContext context) {
  std::lock_guard<std::mutex> lock(ImportState::instance().mutex());
  const std::vector<CreatedObject> created = ImportState::instance().takeCreated(context);
  // Live handles by context, with the kind they are live as: a handle reused for an object of
  // another kind is not ours to delete.
  std::map<ZvrContext, std::map<ZvrObject, ZvrContextInfo>> live;
  // Deletion order: users of materials and images first.
  const ZvrContextInfo listKeys[] = {ZVR_CONTEXT_LIST_CREATED_SHAPES, ZVR_CONTEXT_LIST_CREATED_LIGHTS,
                                     ZVR_CONTEXT_LIST_CREATED_CAMERAS, ZVR_CONTEXT_LIST_CREATED_MATERIALNODES,
                                     ZVR_CONTEXT_LIST_CREATED_IMAGES};
  const ZvrObjectType kListedKinds[] = {ZVR_OBJECT_SHAPE, ZVR_OBJECT_LIGHT, ZVR_OBJECT_CAMERA, ZVR_OBJECT_MATERIAL_NODE,
                                       ZVR_OBJECT_IMAGE};
  for (const CreatedObject& o : created) {
    if (live.count(o.context)) continue;
    std::map<ZvrObject, ZvrContextInfo>& alive = live[o.context];
    for (ZvrContextInfo key : listKeys) {
      size_t bytes = 0;
      if (zvrContextGetInfo(o.context, key, 0, nullptr, &bytes) != ZVR_SUCCESS) break;
      std::vector<ZvrObject> handles(bytes / sizeof(ZvrObject));
      if (!handles.empty() && zvrContextGetInfo(o.context, key, handles.size() * sizeof(ZvrObject), handles.data(), nullptr) != ZVR_SUCCESS)
        continue;
      for (ZvrObject h : handles) alive[h] = key;
    }
  }
  ZvrStatus first = ZVR_SUCCESS;
  for (size_t k = 0; k < sizeof listKeys / sizeof listKeys[0]; ++k)
    for (const CreatedObject& o : created) {
      if (o.kind != kListedKinds[k]) continue;
      auto found = live[o.context].find(o.handle);
      if (found == live[o.context].end() || found->second != listKeys[k]) continue;
      live[o.context].erase(found);  // the same handle recorded twice is deleted once
      const ZvrStatus s = zvrObjectDelete(o.handle);
      if (s != ZVR_SUCCESS && first == ZVR_SUCCESS) first = s;
    }
  ImportState::instance().forgetObjects(created);
  return first;
}

}  // namespace

extern "C" {

ZVR_API ZvrStatus zvrContextSetParameter1u(ZvrContext context, const char* name, uint32_t x) {
  TraceLine line("zvrContextSetParameter1u");
  line.handle("context", context).text("name", name).unsignedNumber("x", x);
  const ZvrStatus status = guarded(context, [&] { passOn(zvrContextSetParameterByKey1u(context, namedKey(name, false).key, x)); });
  return traced(context, line, status);
}

ZVR_API ZvrStatus zvrContextSetParameter1f(ZvrContext context, const char* name, float x) {
  TraceLine line("zvrContextSetParameter1f");
  line.handle("context", context).text("name", name).real("x", x);
  const ZvrStatus status = guarded(context, [&] { passOn(zvrContextSetParameterByKey1f(context, namedKey(name, true).key, x)); });
  return traced(context, line, status);
}

ZVR_API ZvrStatus zvrsImport(const char* path, ZvrContext context, ZvrMaterialSystem materialSystem, ZvrScene* outScene,
                             int useExistingScene, const void* options) {
  TraceLine line("zvrsImport");
  line.text("path", path).handle("context", context).handle("materialSystem", materialSystem).handle("scene", outScene)
      .number("useExistingScene", useExistingScene).handle("options", options);
  const ZvrStatus status = guarded(context, [&] {
    expectKind(context, ZVR_OBJECT_CONTEXT, "context");
    expectKind(materialSystem, ZVR_OBJECT_MATERIAL_SYSTEM, "material system");
    expectArgument(path != nullptr, "scene path is null");
    expectArgument(outScene != nullptr, "scene out-parameter is null");
    *outScene = nullptr;  // a failed import hands out no scene
    if (useExistingScene || options)
      throw Failure(ZVR_ERROR_UNSUPPORTED, "importing into an existing scene or with options is not supported");
    const SceneDescription description = readSceneFile(path);
    ImportResult result;
    std::vector<CreatedObject> created;
    std::lock_guard<std::mutex> lock(ImportState::instance().mutex());
    *outScene = instantiateScene(description, path, context, materialSystem, &result, &created);
    ImportState::instance().adopt(std::move(result), created);
  });
  return traced(context, line, status);
}

ZVR_API ZvrStatus zvrsBuildOCIOFiles(const char* path, ZvrContext context, const char* tempName, uint32_t flags) {
  TraceLine line("zvrsBuildOCIOFiles");
  line.text("path", path).handle("context", context).text("tempName", tempName).unsignedNumber("flags", flags);
  const ZvrStatus status = guarded(context, [&] {
    expectKind(context, ZVR_OBJECT_CONTEXT, "context");
    expectArgument(path != nullptr && tempName != nullptr && *tempName, "scene path or temporary name is missing");
    expectArgument(flags == 0, "flags must be 0");
    const std::vector<uint8_t> bytes = readWholeFile(path);
    const SceneFormat format = detectSceneFormat(bytes);
    if (format == SceneFormat::Unknown)
      throw LoadError(path, bytes.empty() ? "is empty" : "is neither glTF, binary glTF nor an XML scene document");
    if (format != SceneFormat::Xml) return;  // glTF carries no colour configuration
    const OcioConfig ocio = readOcioFromXml(path, std::string(bytes.begin(), bytes.end()));
    const WrittenOcioFiles written = writeOcioFiles(ocio, tempName);
    for (const std::string& file : written.files) {
      const ZvrStatus s = zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_OWNED_FILE, file.c_str());
      if (s != ZVR_SUCCESS) {
        for (const std::string& f : written.files) std::remove(f.c_str());
        passOn(s);
      }
    }
    if (!written.configPath.empty())
      passOn(zvrContextSetParameterByKeyString(context, ZVR_CONTEXT_OCIO_CONFIG_PATH, written.configPath.c_str()));
  });
  return traced(context, line, status);
}

ZVR_API ZvrStatus zvrsExportToXML(const char* path, const char* outPath) {
  TraceLine line("zvrsExportToXML");
  line.text("path", path).text("outPath", outPath);
  // No context exists here, so there is nowhere to keep a failure text; the status says it.
  const ZvrStatus status = guarded(nullptr, [&] {
    expectArgument(path && outPath && *outPath, "scene path or output path is missing");
    saveSceneXml(readSceneFile(path), outPath);
  });
  return traced(nullptr, line, status == ZVR_ERROR_INVALID_ARGUMENT ? status : (status ? ZVR_ERROR_IO : status));
}

ZVR_API ZvrStatus zvrsExportToXMLWithEnvironment(const char* path, const char* outPath, const ZvrsEnvironment* environment) {
  TraceLine line("zvrsExportToXMLWithEnvironment");
  line.text("path", path).text("outPath", outPath);
  if (environment)
    line.text("imagePath", environment->imagePath)
        .real("r", environment->color[0])
        .real("g", environment->color[1])
        .real("b", environment->color[2])
        .real("intensity", environment->intensity)
        .real("rotation", environment->rotation);
  const ZvrStatus status = guarded(nullptr, [&] {
    expectArgument(path && outPath && *outPath && environment, "scene path, output path or environment is missing");
    SceneDescription scene = readSceneFile(path);
    replaceEnvironment(scene, *environment);
    saveSceneXml(scene, outPath);
  });
  return traced(nullptr, line, status == ZVR_ERROR_INVALID_ARGUMENT ? status : (status ? ZVR_ERROR_IO : status));
}

ZVR_API ZvrStatus zvrsListImportedShapes(void* buffer, size_t size, uint32_t* outCount) {
  return listHandles("zvrsListImportedShapes", [] () -> const std::vector<ZvrObject>& { return ImportState::instance().last().shapes; },
                     buffer, size, outCount);
}

ZVR_API ZvrStatus zvrsListImportedLights(void* buffer, size_t size, uint32_t* outCount) {
  return listHandles("zvrsListImportedLights", [] () -> const std::vector<ZvrObject>& { return ImportState::instance().last().lights; },
                     buffer, size, outCount);
}

ZVR_API ZvrStatus zvrsListImportedCameras(void* buffer, size_t size, uint32_t* outCount) {
  return listHandles("zvrsListImportedCameras", [] () -> const std::vector<ZvrObject>& { return ImportState::instance().last().cameras; },
                     buffer, size, outCount);
}

ZVR_API ZvrStatus zvrsGetParentGroupFromShape(ZvrShape shape, size_t size, char* name, size_t* outSize) {
  return parentGroup("zvrsGetParentGroupFromShape", shape, "shape", size, name, outSize);
}

ZVR_API ZvrStatus zvrsGetParentGroupFromLight(ZvrLight light, size_t size, char* name, size_t* outSize) {
  return parentGroup("zvrsGetParentGroupFromLight", light, "light", size, name, outSize);
}

ZVR_API ZvrStatus zvrsGetParentGroupFromCamera(ZvrCamera camera, size_t size, char* name, size_t* outSize) {
  return parentGroup("zvrsGetParentGroupFromCamera", camera, "camera", size, name, outSize);
}

ZVR_API ZvrStatus zvrsGetParentGroupFromGroup(const char* group, size_t size, char* name, size_t* outSize) {
  TraceLine line("zvrsGetParentGroupFromGroup");
  line.text("group", group).unsignedNumber("size", size).handle("name", name).handle("outSize", outSize);
  ZvrStatus status;
  {
    std::lock_guard<std::mutex> lock(ImportState::instance().mutex());
    status = guarded(nullptr, [&] {
      std::string parent;
      Trs local;
      if (!group || !ImportState::instance().group(group, &parent, &local))
        throw Failure(ZVR_ERROR_INVALID_ARGUMENT, "no such transform group");
      if (outSize) *outSize = parent.size() + 1;
      if (!name) return;
      if (size < parent.size() + 1) throw Failure(ZVR_ERROR_INVALID_SIZE, "name buffer too small");
      std::memcpy(name, parent.c_str(), parent.size() + 1);
    });
  }
  return traced(nullptr, line, status);
}

ZVR_API ZvrStatus zvrsGetTransformGroup(const char* group, ZvrsTransformGroupBlock* outBlock) {
  TraceLine line("zvrsGetTransformGroup");
  line.text("group", group).handle("block", outBlock);
  ZvrStatus status;
  {
    std::lock_guard<std::mutex> lock(ImportState::instance().mutex());
    status = guarded(nullptr, [&] {
      std::string parent;
      Trs local;
      if (!outBlock) throw Failure(ZVR_ERROR_INVALID_ARGUMENT, "block is null");
      if (!group || !ImportState::instance().group(group, &parent, &local))
        throw Failure(ZVR_ERROR_INVALID_ARGUMENT, "no such transform group");
      std::memcpy(outBlock->translation, local.translation.data(), sizeof outBlock->translation);
      std::memcpy(outBlock->rotation, local.rotation.data(), sizeof outBlock->rotation);
      std::memcpy(outBlock->scale, local.scale.data(), sizeof outBlock->scale);
    });
  }
  return traced(nullptr, line, status);
}

ZVR_API const ZvrsAnimationRecord* zvrsGetAnimation(uint32_t index) {
  const ZvrsAnimationRecord* record;
  {
    std::lock_guard<std::mutex> lock(ImportState::instance().mutex());
    record = ImportState::instance().animation(index);
  }
  TraceLine line("zvrsGetAnimation");
  line.unsignedNumber("index", index);
  writeTraceText(nullptr, line.finish(static_cast<const void*>(record)));
  return record;
}

ZVR_API ZvrStatus zvrsReleaseImportedData(void) {
  {
    std::lock_guard<std::mutex> lock(ImportState::instance().mutex());
    ImportState::instance().releaseImportedData();
  }
  return traced(nullptr, TraceLine("zvrsReleaseImportedData"), ZVR_SUCCESS);
}

ZVR_API ZvrStatus zvrsDeleteListImportedObjects(ZvrContext context) {
  TraceLine line("zvrsDeleteListImportedObjects");
  line.handle("context", context);
  ZvrStatus status = guarded(context, [&] {
    if (context) expectKind(context, ZVR_OBJECT_CONTEXT, "context");
  });
  if (status == ZVR_SUCCESS) status = deleteCreated(context);
  return traced(context, line, status);
}

}  // extern "C"
