// Dates, identifiers and UTF-8: the small pieces every record leans on.

#include <gtest/gtest.h>

#include <set>

#include "base/date.h"
#include "base/message_text.h"
#include "base/path_components.h"
#include "base/utf8.h"
#include "base/uuid.h"

namespace brisko {
namespace {

TEST(Iso8601, EveryYearOfTheRecordsRoundTrips) {
  const struct {
    const char* text;
    std::int64_t seconds;
  } rows[] = {
      {"0001-01-01T00:00:00Z", -62135596800},  // the images records' unknown time
      {"9999-12-31T23:59:59Z", 253402300799},
      {"2000-02-29T00:00:00Z", 951782400},
      {"1970-01-01T00:00:00Z", 0},
      {"1969-12-31T23:59:59Z", -1},
      {"2262-04-12T00:00:00Z", 9223372800},  // past where nanoseconds wrap
  };
  for (const auto& row : rows) {
    const Date date{std::chrono::seconds{row.seconds}};
    EXPECT_EQ(parseIso8601(row.text), date) << row.text;
    EXPECT_EQ(formatIso8601(date), row.text) << row.text;
  }
  EXPECT_EQ(kEarliestDate, parseIso8601("0001-01-01T00:00:00Z"));
  EXPECT_EQ(kLatestDate, parseIso8601("9999-12-31T23:59:59Z"));
}

TEST(Iso8601, FractionsAndFarDatesAreWrittenAsWholeSecondsInRange) {
  const Date moment = Date{std::chrono::seconds{951782400}};
  // Fractions are dropped toward the past, also before 1970.
  EXPECT_EQ(formatIso8601(Date{std::chrono::milliseconds{-1}}), "1969-12-31T23:59:59Z");
  EXPECT_EQ(formatIso8601(moment + std::chrono::milliseconds{999}), "2000-02-29T00:00:00Z");
  EXPECT_EQ(wholeSeconds(moment + std::chrono::microseconds{1}), moment);
  EXPECT_EQ(formatIso8601(Date::max()), "9999-12-31T23:59:59Z");
  EXPECT_EQ(formatIso8601(Date::min()), "0001-01-01T00:00:00Z");
}

TEST(Iso8601, FileTimesAreHeldToTheRangeOfTheRecords) {
  const struct {
    std::int64_t seconds, nanoseconds;
    Date expected;
  } rows[] = {
      {INT64_MAX, 999999999, kLatestDate},
      {INT64_MIN, 0, kEarliestDate},
      {253402300800, 0, kLatestDate},  // 10000-01-01
      {1, 999999999, Date{std::chrono::microseconds{1999999}}},
      {-1, 500000000, Date{std::chrono::microseconds{-500000}}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(dateFromFileTime(row.seconds, row.nanoseconds), row.expected)
        << row.seconds << "s " << row.nanoseconds << "ns";
  }
}

TEST(Iso8601, RefusesEveryOtherForm) {
  for (const char* text :
       {"", "2000-02-29", "2000-02-29T00:00Z", "2000-02-29T00:00:00", "2000-02-29T00:00:00.000Z",
        "2000-02-29T00:00:00+00:00", "2000-02-29 00:00:00Z", "2000-2-29T00:00:00Z",
        "1900-02-29T00:00:00Z", "2000-04-31T00:00:00Z", "2000-00-10T00:00:00Z",
        "2000-01-01T00:60:00Z", "2000-01-01T00:00:60Z", "+200-01-01T00:00:00Z",
        "2000-01-01T00:00:00ZZ", "２０００-01-01T00:00:00Z", "0000-01-01T00:00:00Z",
        "2016-12-31T23:59:60Z"}) {
    EXPECT_FALSE(parseIso8601(text)) << text;
  }
}

TEST(MessageText, QuotedValuesAreShortAndInert) {
  std::string accents;
  for (int i = 0; i < 300; ++i)
    accents += "\xC3\xA9";  // é
  const struct {
    std::string value, quoted;
  } rows[] = {
      {"plain", "\"plain\""},
      {"say \"hi\" \\ bye", "\"say \\\"hi\\\" \\\\ bye\""},
      {"\x1b[31m\x07\n", "\"\\u{1B}[31m\\u{7}\\u{A}\""},
      {"\xC2\x9B\xE2\x80\xAEtxt\xE2\x80\xA8", "\"\\u{9B}\\u{202E}txt\\u{2028}\""},
      {"a\xFF\xC3", "\"a\\xFF\\xC3\""},
      // Cut at a character, never inside one.
      {accents, "\"" + accents.substr(0, 400) + "\u2026\""},
      {std::string(200, 'x'), "\"" + std::string(200, 'x') + "\""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(quotedForMessage(row.value), row.quoted) << row.value.substr(0, 20);
    EXPECT_TRUE(isValidUtf8(quotedForMessage(row.value)));
  }
  EXPECT_EQ(oneLineMessage("two\nlines", 5), "two\\u{A}l\u2026");
}

TEST(Uuid, TextIsCanonicalUpperCase) {
  const Uuid a = Uuid::random();
  const std::string text = a.text();
  ASSERT_EQ(text.size(), 36u);
  EXPECT_EQ(text.find_first_not_of("0123456789ABCDEF-"), std::string::npos) << text;
  EXPECT_EQ(text[14], '4');  // version 4
  EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos);
  EXPECT_EQ(Uuid::parse(text), a);
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i)
    seen.insert(Uuid::random().text());
  EXPECT_EQ(seen.size(), 1000u);
}

TEST(Utf8, ValidationFollowsTheStandard) {
  EXPECT_TRUE(isValidUtf8(""));
  EXPECT_TRUE(isValidUtf8("plain/path"));
  EXPECT_TRUE(isValidUtf8("K\xE2\x84\xAA"));         // KELVIN SIGN
  EXPECT_TRUE(isValidUtf8("\xF0\x9F\x98\x80"));      // emoji
  EXPECT_TRUE(isValidUtf8(std::string("a\0b", 3)));  // NUL is a code point
  EXPECT_FALSE(isValidUtf8("\xFF"));
  EXPECT_FALSE(isValidUtf8("\xC0\xAF"));          // overlong "/"
  EXPECT_FALSE(isValidUtf8("\xE0\x80\xAF"));      // overlong "/"
  EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));      // surrogate
  EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80"));  // above U+10FFFF
  EXPECT_FALSE(isValidUtf8("\xE2\x84"));          // truncated
  EXPECT_FALSE(isValidUtf8("abc\x80"));           // stray continuation
}

TEST(Utf8, RepairReplacesOnlyTheBrokenBytes) {
  EXPECT_EQ(repairedUtf8("caf\xC3\xA9"), "caf\xC3\xA9");
  EXPECT_EQ(repairedUtf8("a\xFF"
                         "b"),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(repairedUtf8("\xE2\x84"), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_TRUE(isValidUtf8(repairedUtf8("\xC0\xAF\xED\xA0\x80zz\xF4\x90")));
}

TEST(PathComponents, SplitAbsolutePaths) {
  EXPECT_EQ(lastPathComponent("/a/b/c"), "c");
  EXPECT_EQ(lastPathComponent("name"), "name");
  EXPECT_EQ(parentPath("/a/b/c"), "/a/b");
  EXPECT_EQ(parentPath("/a"), "/");
  EXPECT_EQ(lowercasedPathExtension("/d/App.DMG"), "dmg");
  EXPECT_EQ(lowercasedPathExtension("/d/archive.tar.GZ"), "gz");
  EXPECT_EQ(lowercasedPathExtension("/d/.profile"), "");
  EXPECT_EQ(lowercasedPathExtension("/d/trailing."), "");
  EXPECT_EQ(lowercasedPathExtension("/d.x/none"), "");
  EXPECT_EQ(lowercasedPathExtension("/d/\xC3\x89T\xC3\x89.\xC3\x89XE"), "\xC3\xA9xe");
}

}  // namespace
}  // namespace brisko
