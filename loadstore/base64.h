// Base64 for the binary payloads of the XML scene document.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zvr::loadstore {

std::string encodeBase64(const void* data, size_t size);
// False on a character outside the alphabet or a length that is not a whole number of quads;
// whitespace is skipped.
bool decodeBase64(const char* text, std::vector<uint8_t>* out);

}  // namespace zvr::loadstore
