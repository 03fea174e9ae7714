// The light group a glTF light or emissive material names in its extras: {"lightGroup": N}.
#pragma once

#include <string>

namespace tinygltf {
class Value;
}

namespace zvr::loadstore {

// The group 0..15, or -1 when the extras name none; a "lightGroup" that is not a whole number from
// 0 to 15 sets `problem` and returns -1.
int lightGroupFromExtras(const tinygltf::Value& extras, std::string* problem);

}  // namespace zvr::loadstore
