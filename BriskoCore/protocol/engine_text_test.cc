#include "protocol/engine_text.h"

#include <gtest/gtest.h>

#include "protocol/guard_warning_text.h"

namespace brisko {
namespace {

using Encoded = EngineText::Encoded;

TEST(EngineText, EncodedTextsDecodeToTheirKeyAndArguments) {
  EXPECT_EQ(EngineText::encoded("Cleaned %@", {"Caches"}),
            "\x01"
            "Cleaned %@\x02"
            "Caches");
  EXPECT_EQ(EngineText::decoded(EngineText::encoded("k", {"a", "", "c"})),
            (Encoded{"k", {"a", "", "c"}}));
  EXPECT_EQ(EngineText::decoded(EngineText::encoded("no arguments")),
            (Encoded{"no arguments", {}}));
  // The marker alone is an empty key without arguments; a trailing separator is
  // one empty argument.
  EXPECT_EQ(EngineText::decoded("\x01"), (Encoded{"", {}}));
  EXPECT_EQ(EngineText::decoded("\x01k\x02"), (Encoded{"k", {""}}));
  EXPECT_EQ(EngineText::decoded("\x01\x02\x02"), (Encoded{"", {"", ""}}));
}

TEST(EngineText, PlainTextsAreNotEncoded) {
  EXPECT_FALSE(EngineText::decoded(""));
  EXPECT_FALSE(EngineText::decoded("Plain warning"));
  EXPECT_FALSE(EngineText::decoded(" \x01key"));
  EXPECT_FALSE(EngineText::decoded("\x02key"));
}

TEST(EngineText, IntegerArgumentsAreTellFromKeys) {
  using Argument = EngineText::Argument;
  EXPECT_EQ(EngineText::classifiedArgument("42"), Argument{std::int64_t{42}});
  EXPECT_EQ(EngineText::classifiedArgument("-7"), Argument{std::int64_t{-7}});
  EXPECT_EQ(EngineText::classifiedArgument("+7"), Argument{std::int64_t{7}});
  EXPECT_EQ(EngineText::classifiedArgument("007"), Argument{std::int64_t{7}});
  for (const char* text : {"", "+", "-", "4 2", " 42", "42 ", "4.2", "0x10", "1e3", "--1", "Caches",
                           "99999999999999999999"}) {
    EXPECT_EQ(EngineText::classifiedArgument(text), Argument{std::string(text)}) << text;
  }
}

TEST(GuardWarningText, BothKeysAreRecognisedExactly) {
  const std::string named = GuardWarningText::namedProcess("Safari", "Safari caches");
  const std::string related = GuardWarningText::relatedProcess("Xcode caches");
  EXPECT_TRUE(GuardWarningText::isGuardWarning(named));
  EXPECT_TRUE(GuardWarningText::isGuardWarning(related));
  EXPECT_EQ(GuardWarningText::guardedTitle(named), "Safari caches");
  EXPECT_EQ(GuardWarningText::guardedTitle(related), "Xcode caches");
  EXPECT_EQ(
      EngineText::decoded(named)->key,
      "%1$@ is running, so \xE2\x80\x9C%2$@\xE2\x80\x9D can\xE2\x80\x99t be cleaned this time");
}

TEST(GuardWarningText, OneArgumentIsTheTitleInBothForms) {
  for (auto key : {GuardWarningText::kNamedProcessKey, GuardWarningText::kRelatedProcessKey}) {
    EXPECT_EQ(GuardWarningText::guardedTitle(EngineText::encoded(key, {"Only"})), "Only");
    EXPECT_TRUE(GuardWarningText::isGuardWarning(EngineText::encoded(key)));
    EXPECT_EQ(GuardWarningText::guardedTitle(EngineText::encoded(key)), std::nullopt);
  }
}

TEST(GuardWarningText, OtherTextsAreNoGuardWarnings) {
  // The key as plain text, a near miss with straight quotes, another key.
  const std::string plain(GuardWarningText::kRelatedProcessKey);
  EXPECT_FALSE(GuardWarningText::isGuardWarning(plain));
  EXPECT_FALSE(GuardWarningText::guardedTitle(plain));
  const std::string straight = EngineText::encoded(
      "A related process is running, so \"%@\" can't be cleaned this time", {"x"});
  EXPECT_FALSE(GuardWarningText::isGuardWarning(straight));
  EXPECT_FALSE(GuardWarningText::guardedTitle(EngineText::encoded("Other %@", {"x"})));
}

}  // namespace
}  // namespace brisko
