// Stable pseudo-random colours for id AOVs: a 4-cycle TEA used as a hash of the index.
#pragma once

#include <cstdint>
#include <vector>

namespace zvrs {

// The two TEA result words for the block (291, index).
void indexColorHash(uint32_t index, uint32_t& first, uint32_t& second);

// 65536 records of RGBA floats; record n - 1 is the colour of index n, alpha 0.
std::vector<float> makeIndexColorTable();

}  // namespace zvrs
