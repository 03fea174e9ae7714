// The id colour table, against TEA results worked out separately for a few indices.
#include <gtest/gtest.h>

#include "render/index_colors.h"

using namespace zvrs;

namespace {

TEST(IndexColors, RecordsMatchIndependentHash) {
  const struct {
    uint32_t index;
    uint32_t first;
    uint32_t second;
  } cases[] = {
      {1, 0xea2b7bd9u, 0xfb1f1ea3u},
      {2, 0xc1f066d6u, 0x222a936eu},
      {1000, 0x12898c2cu, 0xa55f30bcu},
      {65536, 0x6cb3e31au, 0xd3005e27u},
  };
  const std::vector<float> table = makeIndexColorTable();
  ASSERT_EQ(table.size(), 65536u * 4u);
  for (const auto& c : cases) {
    uint32_t first = 0;
    uint32_t second = 0;
    indexColorHash(c.index, first, second);
    EXPECT_EQ(first, c.first) << c.index;
    EXPECT_EQ(second, c.second) << c.index;
    const float* record = &table[(c.index - 1) * 4];
    EXPECT_FLOAT_EQ(record[0], (c.first & 0xFFFFu) / 65536.0f) << c.index;
    EXPECT_FLOAT_EQ(record[1], (c.first >> 16) / 65536.0f) << c.index;
    EXPECT_FLOAT_EQ(record[2], (c.second & 0xFFFFu) / 65536.0f) << c.index;
    EXPECT_EQ(record[3], 0.0f) << c.index;
  }
}

}  // namespace
