#include "animation/transform_capture.h"

#include "engine/ZvrLoadStore.h"

namespace zvrs {

namespace {

using ListFunction = ZvrStatus (*)(void*, size_t, uint32_t*);
using InfoFunction = ZvrStatus (*)(ZvrObject, uint32_t, size_t, void*, size_t*);
using ParentFunction = ZvrStatus (*)(ZvrObject, size_t, char*, size_t*);

struct ObjectKind {
  ListFunction list;
  InfoFunction info;
  ParentFunction parent;
  uint32_t transformKey;
  std::map<ZvrObject, int32_t>* groups;
  std::vector<ZvrObject> handles;
};

std::string readText(ZvrStatus (*query)(const char*, size_t, char*, size_t*), const char* name) {
  char text[1024] = {0};
  query(name, sizeof(text), text, nullptr);
  text[sizeof(text) - 1] = '\0';
  return text;
}

void captureObject(AnimationState& state, const ObjectKind& kind, ZvrObject object) {
  char name[256] = {0};
  kind.info(object, ZVR_OBJECT_NAME, sizeof(name), name, nullptr);
  // A failed read leaves the identity: the object is then treated as unmoved.
  Matrix4 libraryLayout = identityMatrix();
  kind.info(object, kind.transformKey, sizeof(float) * 16, libraryLayout.data(), nullptr);
  state.objectBaseTransforms[object] = transpose(libraryLayout);
  char parent[1024] = {0};
  kind.parent(object, sizeof(parent), parent, nullptr);
  parent[sizeof(parent) - 1] = '\0';
  (*kind.groups)[object] = captureGroup(state, parent);
}

}  // namespace

void captureImportedObjects(AnimationState& state) {
  state.transformGroups.clear();
  state.groupIndexByName.clear();
  state.shapeGroups.clear();
  state.lightGroups.clear();
  state.cameraGroups.clear();
  state.objectBaseTransforms.clear();
  state.objectAppliedTransforms.clear();

  // The handle kinds are all the same opaque object type, so one walk serves the three lists.
  ObjectKind kinds[3] = {
      {zvrsListImportedShapes, zvrShapeGetInfo, zvrsGetParentGroupFromShape, ZVR_SHAPE_TRANSFORM, &state.shapeGroups, {}},
      {zvrsListImportedLights, zvrLightGetInfo, zvrsGetParentGroupFromLight, ZVR_LIGHT_TRANSFORM, &state.lightGroups, {}},
      {zvrsListImportedCameras, zvrCameraGetInfo, zvrsGetParentGroupFromCamera, ZVR_CAMERA_TRANSFORM, &state.cameraGroups,
       {}}};
  uint32_t counts[3] = {0, 0, 0};
  for (int k = 0; k < 3; ++k) {
    if (kinds[k].list(nullptr, 0, &counts[k]) != ZVR_SUCCESS) return;
  }
  for (int k = 0; k < 3; ++k) {
    kinds[k].handles.assign(counts[k], nullptr);
    if (kinds[k].list(kinds[k].handles.data(), counts[k] * sizeof(ZvrObject), nullptr) != ZVR_SUCCESS) return;
  }
  for (const ObjectKind& kind : kinds) {
    for (ZvrObject object : kind.handles) captureObject(state, kind, object);
  }
}

int32_t captureGroup(AnimationState& state, const std::string& name) {
  if (name.empty()) return -1;
  const auto known = state.groupIndexByName.find(name);
  if (known != state.groupIndexByName.end()) return known->second;

  std::vector<TransformGroup>& groups = state.transformGroups;
  const int32_t index = static_cast<int32_t>(groups.size());
  state.groupIndexByName[name] = index;
  groups.emplace_back();
  groups.back().name = name;

  ZvrsTransformGroupBlock block = {{0, 0, 0}, {0, 0, 0, 1}, {1, 1, 1}};
  const std::string parentName = readText(zvrsGetParentGroupFromGroup, name.c_str());
  zvrsGetTransformGroup(name.c_str(), &block);
  groups[index].base = composeTrs(block.translation, block.rotation, block.scale);

  // The recursion may append ancestors, so the record is addressed by index, never by reference.
  const int32_t parentIndex = captureGroup(state, parentName);
  groups[index].parentIndex = parentIndex;
  return index;
}

}  // namespace zvrs
