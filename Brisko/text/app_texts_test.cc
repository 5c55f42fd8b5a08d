#include "text/app_texts.h"

#include <gtest/gtest.h>

#include "protocol/engine_text.h"
#include "protocol/guard_warning_text.h"

namespace brisko {
namespace {

TEST(AppTextTest, EngineTextsAndOurFormatsReadAsSentences) {
  struct Case {
    const char* name;
    std::string text;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"plain", "Cache folder", "Cache folder"},
      {"named guard", GuardWarningText::namedProcess("Slack", "Slack cache"),
       "Slack is running, so \u201cSlack cache\u201d can\u2019t be cleaned this time"},
      {"related guard", GuardWarningText::relatedProcess("Xcode data"),
       "A related process is running, so \u201cXcode data\u201d can\u2019t be cleaned this time"},
      {"a number argument", EngineText::encoded("%lld more items", {"+0012"}), "12 more items"},
      {"positions out of order", EngineText::encoded("%2$@ before %1$@", {"b", "a"}), "a before b"},
      {"a missing argument stays a placeholder", EngineText::encoded("%@ and %@", {"one"}),
       "one and %@"},
      {"a percent sign", EngineText::encoded("100%% of %@", {"it"}), "100% of it"},
      {"a key alone", "\x01", ""},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(AppText::engineText(test.text), test.expected);
  }
  EXPECT_EQ(AppText::freedOfPlanned(1500000, 2000000), "Freed 1.5 MB of 2 MB planned");
  EXPECT_EQ(AppText::runSummary(3, 0), "Permanently deleted 3 items");
  EXPECT_EQ(AppText::runSummary(3, 1),
            "Permanently deleted 3 items, 1 skipped and kept in the list");
  EXPECT_EQ(AppText::blockedSummary({{"a", "Mail", "/m", true}}),
            "Mail is privacy-protected; grant Full Disk Access to include it.");
  EXPECT_EQ(AppText::blockedSummary({{"a", "Mail", "/m", false}, {"b", "Safari", "/s", true}}),
            "Skipped 2 protected locations");
}

}  // namespace
}  // namespace brisko
