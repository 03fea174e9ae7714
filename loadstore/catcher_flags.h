// Catcher flags of a scene node: glTF node extras {"shadowCatcher": true} and
// {"reflectionCatcher": true}, and their text in the XML document ("shadow reflection").
#pragma once

#include <cstdint>
#include <string>

namespace tinygltf {
class Value;
}

namespace zvr::loadstore {

// ZvrCatcherFlags from a node's extras; a flag that is not a boolean is `problem` set and 0.
uint32_t catcherFlagsFromExtras(const tinygltf::Value& extras, std::string* problem);

// "shadow", "reflection", "shadow reflection", or empty for 0.
std::string catcherFlagsText(uint32_t flags);
// The inverse; false for a word it does not know.
bool catcherFlagsFromText(const std::string& text, uint32_t* flags);

}  // namespace zvr::loadstore
