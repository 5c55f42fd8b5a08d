#include "protocol/brisko_formatting.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

TEST(BriskoFormatting, CountsReadAsTheirUnit) {
  const std::pair<std::int64_t, const char*> rows[] = {
      // Nothing reads as zero bytes.
      {0, "0 B"},
      {-1, "0 B"},
      {INT64_MIN, "0 B"},
      // Small counts are whole kilobytes.
      {1, "1 KB"},
      {499, "1 KB"},
      {1499, "1 KB"},
      {1500, "2 KB"},
      {4096, "4 KB"},
      {102399, "102 KB"},
      // Larger counts adapt their unit; rounding up to a thousand moves on.
      {102400, "0.1 MB"},
      {1'000'000, "1 MB"},
      {1'550'000, "1.6 MB"},
      {999'940'000, "999.9 MB"},
      {999'960'000, "1 GB"},
      {1'234'567'890, "1.23 GB"},
      {1'205'000'000, "1.21 GB"},
      {1'200'000'000, "1.2 GB"},
      {1'000'000'000'000, "1 TB"},
      {1'010'000'000'000, "1.01 TB"},
      {1'250'000'000'000'000, "1,250 TB"},
      {INT64_MAX, "9,223,372.04 TB"},
  };
  for (const auto& [count, text] : rows)
    EXPECT_EQ(BriskoFormatting::bytes(count), text) << count;
}

}  // namespace
}  // namespace brisko
