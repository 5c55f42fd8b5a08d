#include "rules/scan_progress_ledger.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

TEST(ScanProgressLedger, CountsLocationsAndFillsTheGapsOfARule) {
  ScanProgressLedger ledger(5);
  EXPECT_EQ(ledger.progress("Caches"), (ScanProgress{0, 5, "Caches"}));
  EXPECT_EQ(ledger.finishedLocation("Caches"), (ScanProgress{1, 5, "Caches"}));
  // The rule promised three roots and reported one: two more steps.
  EXPECT_EQ(ledger.finishedRule("Caches", 3, 1), (ScanProgress{3, 5, "Caches"}));
  // Reporting more than promised never goes back.
  EXPECT_EQ(ledger.finishedRule("Logs", 1, 4).completedLocations, 3);
  // Never past the end.
  for (int i = 0; i < 10; ++i)
    ledger.finishedLocation("x");
  EXPECT_EQ(ledger.completed(), 5);
}

TEST(ScanProgressLedger, ANegativeTotalCountsAsNothing) {
  ScanProgressLedger ledger(-3);
  EXPECT_EQ(ledger.totalLocations(), 0);
  EXPECT_EQ(ledger.finishedLocation("x"), (ScanProgress{0, 0, "x"}));
}

}  // namespace
}  // namespace brisko
