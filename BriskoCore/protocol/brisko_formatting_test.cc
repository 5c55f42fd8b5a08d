#include "protocol/brisko_formatting.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

TEST(BriskoFormatting, NothingReadsAsZeroBytes) {
  EXPECT_EQ(BriskoFormatting::bytes(0), "0 B");
  EXPECT_EQ(BriskoFormatting::bytes(-1), "0 B");
  EXPECT_EQ(BriskoFormatting::bytes(INT64_MIN), "0 B");
}

TEST(BriskoFormatting, SmallCountsAreWholeKilobytes) {
  EXPECT_EQ(BriskoFormatting::bytes(1), "1 KB");
  EXPECT_EQ(BriskoFormatting::bytes(499), "1 KB");
  EXPECT_EQ(BriskoFormatting::bytes(1499), "1 KB");
  EXPECT_EQ(BriskoFormatting::bytes(1500), "2 KB");
  EXPECT_EQ(BriskoFormatting::bytes(4096), "4 KB");
  EXPECT_EQ(BriskoFormatting::bytes(102399), "102 KB");
}

TEST(BriskoFormatting, LargerCountsAdaptTheirUnit) {
  EXPECT_EQ(BriskoFormatting::bytes(102400), "0.1 MB");
  EXPECT_EQ(BriskoFormatting::bytes(1'000'000), "1 MB");
  EXPECT_EQ(BriskoFormatting::bytes(1'550'000), "1.6 MB");
  EXPECT_EQ(BriskoFormatting::bytes(999'940'000), "999.9 MB");
  // Rounding up to a thousand moves to the next unit.
  EXPECT_EQ(BriskoFormatting::bytes(999'960'000), "1 GB");
  EXPECT_EQ(BriskoFormatting::bytes(1'234'567'890), "1.23 GB");
  EXPECT_EQ(BriskoFormatting::bytes(1'205'000'000), "1.21 GB");
  EXPECT_EQ(BriskoFormatting::bytes(1'200'000'000), "1.2 GB");
  EXPECT_EQ(BriskoFormatting::bytes(1'000'000'000'000), "1 TB");
  EXPECT_EQ(BriskoFormatting::bytes(1'010'000'000'000), "1.01 TB");
  EXPECT_EQ(BriskoFormatting::bytes(1'250'000'000'000'000), "1,250 TB");
  EXPECT_EQ(BriskoFormatting::bytes(INT64_MAX), "9,223,372.04 TB");
}

}  // namespace
}  // namespace brisko
