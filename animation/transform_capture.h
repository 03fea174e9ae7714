// The imported transform hierarchy, copied out of the load/store library before it releases its
// import data: objects with their own matrices and parent groups, and every group's base matrix.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "ZvrCore.h"
#include "matrix4.h"

struct TransformGroup {
  std::string name;
  int32_t parentIndex = -1;
  std::vector<int32_t> children;  // filled during capture, read by nothing
  Matrix4 animated = identityMatrix();
  Matrix4 base = identityMatrix();
  uint8_t hasRotation = 0;
  uint8_t hasTranslation = 0;
  uint8_t hasScale = 0;
  uint32_t evaluationTick = 0;
};

// Process-wide: one set per run, filled by the capture and read by the evaluation.
extern std::vector<TransformGroup> transformGroups;
extern std::unordered_map<std::string, int32_t> groupIndexByName;
extern std::map<ZvrShape, int32_t> shapeGroups;
extern std::map<ZvrLight, int32_t> lightGroups;
extern std::map<ZvrCamera, int32_t> cameraGroups;
extern std::map<ZvrObject, Matrix4> objectBaseTransforms;
extern std::map<ZvrObject, Matrix4> objectAppliedTransforms;

void CaptureImportedObjects();
// The group's index, capturing it and its ancestors on first sight; -1 for an empty name.
int32_t CaptureGroup(const std::string& name);
