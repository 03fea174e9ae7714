// Cryptomatte metadata of a multilayer EXR: which layers are rank layers, and the header
// attributes (name, hash, conversion, manifest) a compositor needs to pick a matte by name.
#pragma once

#include <OpenEXR/ImfForward.h>

#include <string>
#include <vector>

namespace zvr::core {

class Context;
class Shape;

// The names a shape's samples are hashed by; empty when it carries none.
std::string cryptomatteObjectName(const Shape& shape);
std::string cryptomatteMaterialName(const Shape& shape);

struct CryptomatteNames {
  std::vector<std::string> objects, materials;  // sorted, without duplicates
};
// The names of every shape of the context's scene and of their materials.
CryptomatteNames cryptomatteNames(const Context& context);

// "CryptoObject" for the rank layer "CryptoObject03"; empty for any other layer name.
std::string cryptomatteTypeOf(const std::string& layer);

// Adds the attributes of one cryptomatte type, keyed by the first 7 hex digits of its name's hash.
void addCryptomatteAttributes(Imf::Header& header, const std::string& typeName, const CryptomatteNames& names);

}  // namespace zvr::core
