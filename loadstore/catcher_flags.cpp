#include "loadstore/catcher_flags.h"

#include <tiny_gltf.h>

#include <sstream>

#include "engine/ZvrCore.h"

namespace zvr::loadstore {
namespace {

struct FlagName {
  uint32_t flag;
  const char* extrasKey;
  const char* word;
};
constexpr FlagName kFlags[] = {{ZVR_CATCHER_SHADOW, "shadowCatcher", "shadow"},
                               {ZVR_CATCHER_REFLECTION, "reflectionCatcher", "reflection"}};

}  // namespace

uint32_t catcherFlagsFromExtras(const tinygltf::Value& extras, std::string* problem) {
  uint32_t flags = 0;
  if (!extras.IsObject()) return 0;
  for (const FlagName& f : kFlags) {
    if (!extras.Has(f.extrasKey)) continue;
    const tinygltf::Value& value = extras.Get(f.extrasKey);
    if (!value.IsBool()) {
      if (problem) *problem = std::string("extras \"") + f.extrasKey + "\" is not true or false";
      return 0;
    }
    if (value.Get<bool>()) flags |= f.flag;
  }
  return flags;
}

std::string catcherFlagsText(uint32_t flags) {
  std::string text;
  for (const FlagName& f : kFlags)
    if (flags & f.flag) text += (text.empty() ? "" : " ") + std::string(f.word);
  return text;
}

bool catcherFlagsFromText(const std::string& text, uint32_t* flags) {
  std::istringstream words(text);
  std::string word;
  uint32_t result = 0;
  while (words >> word) {
    bool known = false;
    for (const FlagName& f : kFlags)
      if (word == f.word) {
        result |= f.flag;
        known = true;
      }
    if (!known) return false;
  }
  *flags = result;
  return true;
}

}  // namespace zvr::loadstore
