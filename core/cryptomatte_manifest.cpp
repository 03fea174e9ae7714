#include "core/cryptomatte_manifest.h"

#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfStringAttribute.h>

#include <algorithm>
#include <cctype>
#include <mutex>

#include "core/context.h"
#include "core/scene_objects.h"
#include "kernel/cryptomatte_hash.h"

namespace zvr::core {
namespace {

constexpr const char* kObjectType = "CryptoObject";
constexpr const char* kMaterialType = "CryptoMaterial";
// Shapes without a material render with the library's default one, which has this name.
constexpr const char* kDefaultMaterial = "default";

void appendJsonString(std::string& out, const std::string& text) {
  out += '"';
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
    } else if (c < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", unsigned(c));
      out += escaped;
    } else {
      out += char(c);
    }
  }
  out += '"';
}

void sortUnique(std::vector<std::string>& names) {
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
}

}  // namespace

std::string cryptomatteObjectName(const Shape& shape) { return shape.name(); }

std::string cryptomatteMaterialName(const Shape& shape) {
  return shape.material ? shape.material->name() : std::string(kDefaultMaterial);
}

CryptomatteNames cryptomatteNames(const Context& context) {
  CryptomatteNames names;
  std::lock_guard<std::mutex> state(context.stateMutex);
  if (!context.scene) return names;
  for (const Shape* shape : context.scene->shapes) {
    std::string object = cryptomatteObjectName(*shape), material = cryptomatteMaterialName(*shape);
    if (!object.empty()) names.objects.push_back(std::move(object));
    if (!material.empty()) names.materials.push_back(std::move(material));
  }
  sortUnique(names.objects);
  sortUnique(names.materials);
  return names;
}

std::string cryptomatteTypeOf(const std::string& layer) {
  for (const char* type : {kObjectType, kMaterialType}) {
    const std::string prefix = type;
    if (layer.size() == prefix.size() + 2 && layer.compare(0, prefix.size(), prefix) == 0 &&
        std::isdigit(static_cast<unsigned char>(layer[prefix.size()])) &&
        std::isdigit(static_cast<unsigned char>(layer[prefix.size() + 1])))
      return prefix;
  }
  return {};
}

void addCryptomatteAttributes(Imf::Header& header, const std::string& typeName, const CryptomatteNames& names) {
  const std::vector<std::string>& list = typeName == kObjectType ? names.objects : names.materials;
  const uint32_t typeHash = kernel::murmurHash3x86_32(typeName.data(), typeName.size());
  const std::string prefix = "cryptomatte/" + kernel::cryptomatteHex(typeHash).substr(0, 7) + "/";
  std::string manifest = "{";
  for (const std::string& name : list) {
    if (manifest.size() > 1) manifest += ',';
    appendJsonString(manifest, name);
    manifest += ':';
    appendJsonString(manifest, kernel::cryptomatteHex(kernel::cryptomatteIdBits(name)));
  }
  manifest += '}';
  header.insert(prefix + "name", Imf::StringAttribute(typeName));
  header.insert(prefix + "hash", Imf::StringAttribute("MurmurHash3_32"));
  header.insert(prefix + "conversion", Imf::StringAttribute("uint32_to_float32"));
  header.insert(prefix + "manifest", Imf::StringAttribute(manifest));
}

}  // namespace zvr::core
