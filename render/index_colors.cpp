#include "render/index_colors.h"

#include <cstddef>

namespace zvrs {

void indexColorHash(uint32_t index, uint32_t& first, uint32_t& second) {
  const uint32_t delta = 0x9E3779B9u;
  const uint32_t key[4] = {0xA341316Cu, 0xC8013EA4u, 0xAD90777Du, 0x7E95761Eu};
  uint32_t v0 = 291u;
  uint32_t v1 = index;
  uint32_t sum = 0;
  for (int cycle = 0; cycle < 4; ++cycle) {
    sum += delta;
    v0 += ((v1 << 4) + key[0]) ^ (v1 + sum) ^ ((v1 >> 5) + key[1]);
    v1 += ((v0 << 4) + key[2]) ^ (v0 + sum) ^ ((v0 >> 5) + key[3]);
  }
  first = v0;
  second = v1;
}

std::vector<float> makeIndexColorTable() {
  const uint32_t count = 65536;
  const float unit = 1.5258789e-5f;
  std::vector<float> table(static_cast<std::size_t>(count) * 4, 0.0f);
  for (uint32_t n = 1; n <= count; ++n) {
    uint32_t first = 0;
    uint32_t second = 0;
    indexColorHash(n, first, second);
    float* record = &table[static_cast<std::size_t>(n - 1) * 4];
    record[0] = static_cast<float>(first & 0xFFFFu) * unit;
    record[1] = static_cast<float>(first >> 16) * unit;
    record[2] = static_cast<float>(second & 0xFFFFu) * unit;
    record[3] = 0.0f;
  }
  return table;
}

}  // namespace zvrs
