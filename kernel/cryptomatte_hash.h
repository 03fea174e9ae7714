// Cryptomatte ids: MurmurHash3_x86_32 (seed 0) of a name, stored as the bits of a float whose
// exponent is kept off 0 and 255 so that no id is a denormal, an infinity or a NaN. Header-only:
// the plug-ins hash names while rendering and the core hashes the same names for the manifest.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace zvr::kernel {

inline uint32_t murmurHash3x86_32(const void* key, size_t length, uint32_t seed = 0) {
  const auto* data = static_cast<const unsigned char*>(key);
  const size_t blocks = length / 4;
  constexpr uint32_t c1 = 0xcc9e2d51, c2 = 0x1b873593;
  auto rotl = [](uint32_t x, int r) { return (x << r) | (x >> (32 - r)); };
  uint32_t h = seed;
  for (size_t i = 0; i < blocks; ++i) {
    uint32_t k;
    std::memcpy(&k, data + 4 * i, 4);  // little-endian, as the reference reads its blocks
    k *= c1;
    k = rotl(k, 15);
    k *= c2;
    h ^= k;
    h = rotl(h, 13);
    h = h * 5 + 0xe6546b64;
  }
  const unsigned char* tail = data + 4 * blocks;
  uint32_t k = 0;
  switch (length & 3) {
    case 3: k ^= uint32_t(tail[2]) << 16; [[fallthrough]];
    case 2: k ^= uint32_t(tail[1]) << 8; [[fallthrough]];
    case 1:
      k ^= tail[0];
      k *= c1;
      k = rotl(k, 15);
      k *= c2;
      h ^= k;
  }
  h ^= uint32_t(length);
  h ^= h >> 16;
  h *= 0x85ebca6b;
  h ^= h >> 13;
  h *= 0xc2b2ae35;
  h ^= h >> 16;
  return h;
}

// The hash with its exponent clamped to 1..254, as float bits.
inline uint32_t cryptomatteIdBits(const std::string& name) {
  const uint32_t hash = murmurHash3x86_32(name.data(), name.size());
  uint32_t exponent = (hash >> 23) & 0xff;
  exponent = exponent < 1 ? 1 : exponent > 254 ? 254 : exponent;
  return (hash & 0x807fffffu) | (exponent << 23);
}

inline float cryptomatteId(const std::string& name) {
  const uint32_t bits = cryptomatteIdBits(name);
  float id;
  std::memcpy(&id, &bits, 4);
  return id;
}

// Eight lower-case hex digits of the id's bits, as manifests write them.
inline std::string cryptomatteHex(uint32_t bits) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", unsigned(bits));
  return text;
}

}  // namespace zvr::kernel
