#include "safety/whitelist_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <system_error>
#include <thread>

#include "safety/path_safety_policy.h"
#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

// The twenty patterns of every platform and the seven Linux rows.
constexpr size_t kDefaults = 27;

using Case = WhitelistValidationError::Case;
using Source = WhitelistEntrySource;

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return 0;
  return status.st_mode & 07777;
}

std::optional<Case> validationFailure(std::string_view rule, std::string_view home) {
  try {
    WhitelistStore::validate(rule, home);
    return std::nullopt;
  } catch (const WhitelistValidationError& error) {
    return error.validationCase();
  }
}

class WhitelistStoreTest : public ::testing::Test {
 protected:
  std::string file() const { return WhitelistStore::filePath(home); }
  void writeWhitelist(std::string_view text) const {
    folder.writeFile(".config/brisko/whitelist", text);
  }
  std::vector<std::string> patternsOf(const std::vector<WhitelistEntry>& entries) const {
    std::vector<std::string> patterns;
    for (const auto& entry : entries)
      patterns.push_back(entry.pattern);
    return patterns;
  }

  testing::TemporaryDirectory folder;
  std::string home = folder.path();
};

TEST(WhitelistDefaults, AreTwentyPatternsAndLinuxRowsBelowTheNormalisedHome) {
  const auto defaults = WhitelistStore::defaultPatterns("/home//vimo/");
  ASSERT_EQ(defaults.size(), kDefaults);
  EXPECT_EQ(defaults.front(), "/home/vimo/Library/Caches/ms-playwright*");
  EXPECT_EQ(defaults[12], "/home/vimo/Library/Caches/tealdeer/tldr-pages");
  EXPECT_EQ(defaults[17], "/home/vimo/Library/Caches/com.apple.spotlight*");
  EXPECT_EQ(defaults[18], "/home/vimo/Library/Caches/com.apple.Spotlight*");
  EXPECT_EQ(defaults[19], "/home/vimo/Library/Caches/CloudKit*");
  // The same tools' places on Linux follow the twenty.
  EXPECT_EQ(std::vector<std::string>(defaults.begin() + 20, defaults.end()),
            (std::vector<std::string>{
                "/home/vimo/.cache/ms-playwright*", "/home/vimo/.cache/R/renv/*",
                "/home/vimo/.cache/pypoetry/virtualenvs*", "/home/vimo/.cache/JetBrains*",
                "/home/vimo/.cache/tealdeer/tldr-pages", "/home/vimo/.config/JetBrains*",
                "/home/vimo/.local/share/JetBrains*"}));
  EXPECT_EQ(WhitelistStore::tildeForm(defaults[1], "/home/vimo"), "~/.cache/huggingface*");
  EXPECT_EQ(WhitelistStore::tildeForm("/home/vimo", "/home/vimo/"), "~");
  EXPECT_EQ(WhitelistStore::tildeForm("/home/vimos/x", "/home/vimo"), "/home/vimos/x");
  EXPECT_EQ(WhitelistStore::defaultPatterns("/")[1], "/.cache/huggingface*");
}

TEST(WhitelistParse, SplitsAtEveryLineBreakAndSkipsCommentsAndBlanks) {
  const std::string text =
      "# kept folders\r\n"
      "~/a\r\n"
      "\t ~/b \t\n"
      "   # indented comment\n"
      "~/c\x0b~/d\x0c~/e\r~/f\xc2\x85~/g\xe2\x80\xa8~/h\xe2\x80\xa9"
      "\xc2\xa0~/i\xe2\x80\x83\n"  // NO-BREAK SPACE and EM SPACE are blanks
      "\n\n   \n"
      "~/last";
  EXPECT_EQ(WhitelistStore::parse(text),
            (std::vector<std::string>{"~/a", "~/b", "~/c", "~/d", "~/e", "~/f", "~/g", "~/h", "~/i",
                                      "~/last"}));
  EXPECT_TRUE(WhitelistStore::parse("").empty());
  EXPECT_TRUE(WhitelistStore::parse("#a\n  #b\n\n").empty());
  // A "#" later in the line is part of the pattern.
  EXPECT_EQ(WhitelistStore::parse("~/a#b\n"), (std::vector<std::string>{"~/a#b"}));
}

TEST(WhitelistValidation, RefusesWithTheFirstFailureInOrder) {
  const std::string home = "/home/vimo";
  EXPECT_EQ(validationFailure("", home), Case::empty);
  EXPECT_EQ(validationFailure(" \t\n", home), Case::empty);
  EXPECT_EQ(validationFailure("Library/Caches", home), Case::notAbsoluteOrHome);
  EXPECT_EQ(validationFailure("~user/x", home), Case::notAbsoluteOrHome);
  EXPECT_EQ(validationFailure("$HOME/x", home), Case::notAbsoluteOrHome);
  EXPECT_EQ(validationFailure("~/a\x01//..", home), Case::controlCharacter);
  EXPECT_EQ(validationFailure("~/a\xe2\x80\x8b", home), Case::controlCharacter);
  EXPECT_EQ(validationFailure("~/a\xff", home), Case::controlCharacter);
  EXPECT_EQ(validationFailure("~//a/..", home), Case::consecutiveSlashes);
  EXPECT_EQ(validationFailure("~/a/../b", home), Case::pathTraversal);
  EXPECT_EQ(validationFailure("~", home), Case::criticalSystemPath);
  EXPECT_EQ(validationFailure("~/", home), Case::criticalSystemPath);
  EXPECT_EQ(validationFailure("~/.", home), Case::criticalSystemPath);
  EXPECT_EQ(validationFailure("/", home), Case::criticalSystemPath);
  EXPECT_EQ(validationFailure("/ETC/*", home), Case::criticalSystemPath);
  EXPECT_EQ(validationFailure("/home/other", home), Case::criticalSystemPath);
  EXPECT_EQ(validationFailure("/Users/vimo/Library", home), std::nullopt);
  // Already covered by the protected lists: accepted, and idle.
  EXPECT_EQ(validationFailure("~/Library/Mail/*", home), std::nullopt);
  EXPECT_EQ(WhitelistStore::validate("  ~/Keep/*  \n", home), "~/Keep/*");
}

TEST(WhitelistCanonicalKey, SpellingsOfOnePlaceAgree) {
  const std::string home = "/home/vimo";
  const std::string key = WhitelistStore::canonicalKey("~/.m2/repository/*", home);
  EXPECT_EQ(key, "/home/vimo/.m2/repository/*");
  EXPECT_EQ(WhitelistStore::canonicalKey("/home/vimo//.m2/./x/../repository/*/", home), key);
  EXPECT_EQ(WhitelistStore::canonicalKey("~", "/home/vimo/"), "/home/vimo");
  EXPECT_NE(WhitelistStore::canonicalKey("~/.M2/repository/*", home), key);
}

TEST_F(WhitelistStoreTest, WithoutAFileTheDefaultsApply) {
  EXPECT_FALSE(WhitelistStore::fileExists(home));
  const auto entries = WhitelistStore::entries(home);
  ASSERT_EQ(entries.size(), kDefaults);
  for (const auto& entry : entries) {
    EXPECT_EQ(entry.source, Source::default_);
    EXPECT_EQ(entry.pattern.rfind("~/", 0), 0u) << entry.pattern;
  }
  EXPECT_EQ(WhitelistStore::configurationDirectory(home), home + "/.config/brisko");
}

TEST_F(WhitelistStoreTest, EntriesTellDefaultsInAnySpellingFromCustomLines) {
  writeWhitelist("# mine\n~/.gradle/caches/*\n" + home + "//.m2/./repository/*\n  ~/Keep\n");
  EXPECT_EQ(WhitelistStore::entries(home),
            (std::vector<WhitelistEntry>{{"~/.gradle/caches/*", Source::default_},
                                         {home + "//.m2/./repository/*", Source::default_},
                                         {"~/Keep", Source::custom}}));
  writeWhitelist("# nothing but comments\n\n");
  EXPECT_TRUE(WhitelistStore::entries(home).empty());
}

TEST_F(WhitelistStoreTest, FirstAddWritesOutTheDefaultsPrivately) {
  WhitelistStore::add("  ~/Projects/keep  ", home);
  const std::string text = readText(file());
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.back(), '\n');
  const auto lines = WhitelistStore::parse(text);
  ASSERT_EQ(lines.size(), kDefaults + 1);
  EXPECT_EQ(lines.front(), "~/Library/Caches/ms-playwright*");
  EXPECT_EQ(lines.back(), "~/Projects/keep");
  EXPECT_EQ(modeOf(WhitelistStore::configurationDirectory(home)), 0700u);
  const auto entries = WhitelistStore::entries(home);
  EXPECT_EQ(entries.back(), (WhitelistEntry{"~/Projects/keep", Source::custom}));
  EXPECT_EQ(entries.front().source, Source::default_);

  // No duplicate test: a second add writes the rule again.
  WhitelistStore::add("~/Projects/keep", home);
  EXPECT_EQ(WhitelistStore::parse(readText(file())).size(), kDefaults + 2);
  const auto policy = PathSafetyPolicy::loadingWhitelistFor(home);
  EXPECT_EQ(policy.evaluate(home + "/Projects/keep/x", false),
            PathSafetyVerdict::whitelisted(home + "/Projects/keep"));
}

TEST_F(WhitelistStoreTest, ARefusedAddWritesNothing) {
  EXPECT_THROW(WhitelistStore::add("~", home), WhitelistValidationError);
  EXPECT_FALSE(WhitelistStore::fileExists(home));
  writeWhitelist("~/a\n");
  EXPECT_THROW(WhitelistStore::add("~/x//y", home), WhitelistValidationError);
  EXPECT_EQ(readText(file()), "~/a\n");
}

TEST_F(WhitelistStoreTest, AddAndRemoveKeepUntouchedLinesByteForByte) {
  writeWhitelist("# top\r\n~/a\r\n\r\n   ~/b\n~/c\n~/b\n");
  WhitelistStore::add("~/d", home);
  EXPECT_EQ(readText(file()), "# top\r\n~/a\r\n\r\n   ~/b\n~/c\n~/b\n~/d\n");
  // Found by its trimmed text; only the first copy goes.
  WhitelistStore::remove("~/b", home);
  EXPECT_EQ(readText(file()), "# top\r\n~/a\r\n\r\n~/c\n~/b\n~/d\n");
  // Found by the canonical key, whatever the spelling.
  WhitelistStore::remove(home + "/./c/", home);
  EXPECT_EQ(readText(file()), "# top\r\n~/a\r\n\r\n~/b\n~/d\n");
  // A CRLF line is found as well.
  WhitelistStore::remove("~/a", home);
  EXPECT_EQ(readText(file()), "# top\r\n\r\n~/b\n~/d\n");
  // No match: the file is rewritten as it was.
  WhitelistStore::remove("~/zzz", home);
  EXPECT_EQ(readText(file()), "# top\r\n\r\n~/b\n~/d\n");
}

TEST_F(WhitelistStoreTest, RemovingTheLastLineLeavesAnEmptyFileNotNoFile) {
  writeWhitelist("~/only\n");
  WhitelistStore::remove("~/only", home);
  EXPECT_TRUE(WhitelistStore::fileExists(home));
  EXPECT_EQ(readText(file()), "");
  EXPECT_TRUE(WhitelistStore::entries(home).empty());
  EXPECT_TRUE(PathSafetyPolicy::loadingWhitelistFor(home).whitelistPatterns().empty());

  writeWhitelist("# keep me\n~/only\n");
  WhitelistStore::remove("~/only", home);
  EXPECT_EQ(readText(file()), "# keep me\n");

  WhitelistStore::restoreDefaults(home);
  EXPECT_FALSE(WhitelistStore::fileExists(home));
  EXPECT_EQ(WhitelistStore::entries(home).size(), kDefaults);
  EXPECT_NO_THROW(WhitelistStore::restoreDefaults(home));
}

TEST_F(WhitelistStoreTest, RemoveWithoutAFileMaterialisesTheOtherDefaults) {
  WhitelistStore::remove("~/.gradle/daemon/*", home);
  const auto entries = WhitelistStore::entries(home);
  ASSERT_EQ(entries.size(), kDefaults - 1);
  for (const auto& entry : entries) {
    EXPECT_NE(entry.pattern, "~/.gradle/daemon/*");
    EXPECT_EQ(entry.source, Source::default_);
  }
}

TEST_F(WhitelistStoreTest, AFileThatIsNotUtf8CountsAsNoFileAndIsReplacedOnChange) {
  writeWhitelist("~/mine\n\xff\xfe\n");
  EXPECT_FALSE(WhitelistStore::readFile(home).has_value());
  EXPECT_EQ(WhitelistStore::entries(home).size(), kDefaults);
  WhitelistStore::add("~/new", home);
  const auto patterns = patternsOf(WhitelistStore::entries(home));
  ASSERT_EQ(patterns.size(), kDefaults + 1);
  EXPECT_EQ(patterns.back(), "~/new");
  // A folder in the file's place reads as no file, and can't be replaced.
  testing::TemporaryDirectory other;
  other.makeDirectory(".config/brisko/whitelist");
  EXPECT_EQ(WhitelistStore::entries(other.path()).size(), kDefaults);
  EXPECT_THROW(WhitelistStore::add("~/x", other.path()), std::system_error);
  EXPECT_THROW(WhitelistStore::restoreDefaults(other.path()), std::system_error);
}

TEST_F(WhitelistStoreTest, ReadsAMegabyteFileWithAByteOrderMark) {
  std::string text = "\xef\xbb\xbf~/first\n";
  int lines = 1;
  while (text.size() < (1u << 20)) {
    text += "~/folder/" + std::to_string(lines++) + "\r\n";
  }
  writeWhitelist(text);
  const auto entries = WhitelistStore::entries(home);
  ASSERT_EQ(entries.size(), static_cast<size_t>(lines));
  EXPECT_EQ(entries.front().pattern, "~/first");
  const auto policy = PathSafetyPolicy::loadingWhitelistFor(home);
  EXPECT_EQ(policy.evaluate(home + "/folder/7/x", false),
            PathSafetyVerdict::whitelisted(home + "/folder/7"));
}

// A reader running beside add and remove sees the old file or the new one,
// never a part: every read has whole lines only.
TEST_F(WhitelistStoreTest, AReaderNeverSeesHalfAFile) {
  writeWhitelist("~/seed\n");
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::thread reader([&] {
    while (!done) {
      const auto text = WhitelistStore::readFile(home);
      if (text && !text->empty() && text->back() != '\n') ++torn;
    }
  });
  for (int i = 0; i < 40; ++i) {
    WhitelistStore::add("~/rule/" + std::string(static_cast<size_t>(i) * 50, 'x'), home);
  }
  for (int i = 0; i < 20; ++i) {
    WhitelistStore::remove("~/rule/" + std::string(static_cast<size_t>(i) * 50, 'x'), home);
  }
  done = true;
  reader.join();
  EXPECT_EQ(torn.load(), 0);
  EXPECT_EQ(WhitelistStore::parse(readText(file())).size(), 21u);
}

// Runs in a child as an ordinary user (see the test below); skipped alone.
TEST(WhitelistStoreAsOrdinaryUser, UnreadableFileMeansDefaultsAndFailedWritesChangeNothing) {
  const std::string home = testing::ordinaryUserArgument("BRISKO_TEST_WHITELIST_HOME");
  if (home.empty()) GTEST_SKIP() << "runs only as a child of the permission test";
  ASSERT_NE(::geteuid(), 0u);
  EXPECT_FALSE(WhitelistStore::readFile(home).has_value());
  EXPECT_EQ(WhitelistStore::entries(home).size(), kDefaults);
  EXPECT_EQ(PathSafetyPolicy::loadingWhitelistFor(home).whitelistPatterns().size(), kDefaults);
  // The folder is not ours to write: every change throws.
  EXPECT_THROW(WhitelistStore::add("~/x", home), std::system_error);
  EXPECT_THROW(WhitelistStore::remove("~/x", home), std::system_error);
  EXPECT_THROW(WhitelistStore::restoreDefaults(home), std::system_error);
}

TEST_F(WhitelistStoreTest, PermissionDenialAsAnOrdinaryUser) {
  ASSERT_EQ(::chmod(home.c_str(), 0755), 0);
  writeWhitelist("~/mine\n");
  ASSERT_EQ(::chmod(WhitelistStore::configurationDirectory(home).c_str(), 0755), 0);
  ASSERT_EQ(::chmod((home + "/.config").c_str(), 0755), 0);
  ASSERT_EQ(::chmod(file().c_str(), 0), 0);
  const int status = testing::runTestsAsOrdinaryUser("WhitelistStoreAsOrdinaryUser.*",
                                                     {{"BRISKO_TEST_WHITELIST_HOME", home}});
  EXPECT_EQ(status, 0);
  ASSERT_EQ(::chmod(file().c_str(), 0600), 0);
  EXPECT_EQ(readText(file()), "~/mine\n");
}

}  // namespace
}  // namespace brisko
