#include "protocol/engine_text.h"

#include <gtest/gtest.h>

#include "protocol/guard_warning_text.h"

namespace brisko {
namespace {

using Encoded = EngineText::Encoded;

TEST(EngineText, EncodedTextsDecodeToTheirKeyAndArgumentsAndPlainOnesDoNot) {
  EXPECT_EQ(EngineText::encoded("Cleaned %@", {"Caches"}),
            "\x01"
            "Cleaned %@\x02"
            "Caches");
  const struct {
    std::string text;
    std::optional<Encoded> decoded;
  } rows[] = {
      {EngineText::encoded("k", {"a", "", "c"}), Encoded{"k", {"a", "", "c"}}},
      {EngineText::encoded("no arguments"), Encoded{"no arguments", {}}},
      // The marker alone is an empty key without arguments; a trailing
      // separator is one empty argument.
      {"\x01", Encoded{"", {}}},
      {"\x01k\x02", Encoded{"k", {""}}},
      {"\x01\x02\x02", Encoded{"", {"", ""}}},
      {"", std::nullopt},
      {"Plain warning", std::nullopt},
      {" \x01key", std::nullopt},
      {"\x02key", std::nullopt},
  };
  for (const auto& row : rows)
    EXPECT_EQ(EngineText::decoded(row.text), row.decoded) << ::testing::PrintToString(row.text);
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

// The application keeps a finding unselected on exactly these texts.
TEST(GuardWarningText, BothKeysAreRecognisedExactlyAndTheLastArgumentIsTheTitle) {
  const std::string named(GuardWarningText::kNamedProcessKey);
  const std::string related(GuardWarningText::kRelatedProcessKey);
  EXPECT_EQ(
      named,
      "%1$@ is running, so \xE2\x80\x9C%2$@\xE2\x80\x9D can\xE2\x80\x99t be cleaned this time");
  const struct {
    const char* name;
    std::string text;
    bool isGuardWarning;
    std::optional<std::string> title;
  } rows[] = {
      {"named", GuardWarningText::namedProcess("Safari", "Safari caches"), true, "Safari caches"},
      {"related", GuardWarningText::relatedProcess("Xcode caches"), true, "Xcode caches"},
      {"named, one argument", EngineText::encoded(named, {"Only"}), true, "Only"},
      {"related, one argument", EngineText::encoded(related, {"Only"}), true, "Only"},
      {"named, no argument", EngineText::encoded(named), true, std::nullopt},
      {"related, no argument", EngineText::encoded(related), true, std::nullopt},
      {"the key as plain text", related, false, std::nullopt},
      {"straight quotes",
       EngineText::encoded("A related process is running, so \"%@\" can't be cleaned this time",
                           {"x"}),
       false, std::nullopt},
      {"another key", EngineText::encoded("Other %@", {"x"}), false, std::nullopt},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(GuardWarningText::isGuardWarning(row.text), row.isGuardWarning) << row.name;
    EXPECT_EQ(GuardWarningText::guardedTitle(row.text), row.title) << row.name;
  }
}

}  // namespace
}  // namespace brisko
