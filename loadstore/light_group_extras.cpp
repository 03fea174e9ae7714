#include "loadstore/light_group_extras.h"

#include <tiny_gltf.h>

#include <cmath>

namespace zvr::loadstore {

int lightGroupFromExtras(const tinygltf::Value& extras, std::string* problem) {
  if (!extras.IsObject() || !extras.Has("lightGroup")) return -1;
  const tinygltf::Value& v = extras.Get("lightGroup");
  const double group = v.IsNumber() ? v.GetNumberAsDouble() : -1;
  if (!(group >= 0 && group <= 15 && std::floor(group) == group)) {
    *problem = "has a \"lightGroup\" in its extras that is not a whole number from 0 to 15";
    return -1;
  }
  return int(group);
}

}  // namespace zvr::loadstore
