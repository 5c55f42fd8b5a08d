#include "space/space_clean_service.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "base/file_contents.h"
#include "platform/xdg_user_directories.h"
#include "protocol/engine_text.h"
#include "safety/whitelist_store.h"
#include "space/space_clean_copy.h"
#include "testing/ordinary_user.h"
#include "testing/session_bus.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

bool exists(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

// Sets an environment variable for one test and puts the old value back.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~ScopedVariable() {
    if (old_) {
      ::setenv(name_, old_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

std::string decodedMessage(const std::optional<std::string>& message) {
  if (!message) return "(none)";
  if (const auto keyed = EngineText::decoded(*message)) {
    std::string text = keyed->key;
    for (const auto& argument : keyed->arguments)
      text += " | " + argument;
    return text;
  }
  return *message;
}

// Runs as a child (as an ordinary user, or in a session for the Trash): cleans
// BRISKO_TEST_CLEAN_TARGETS (JSON) in BRISKO_TEST_CLEAN_HOME against the real
// disk and writes the receipt to BRISKO_TEST_CLEAN_RECEIPT.
TEST(SpaceCleanChild, CleansTheGivenTargets) {
  const std::string home = variable("BRISKO_TEST_CLEAN_HOME");
  if (home.empty()) GTEST_SKIP() << "runs only as a child of the space clean tests";
  const auto targets =
      decodeJson<std::vector<SpaceCleanTarget>>(variable("BRISKO_TEST_CLEAN_TARGETS"));
  const auto mode = parseEnum<SpaceCleanMode>(variable("BRISKO_TEST_CLEAN_MODE"));
  ASSERT_TRUE(mode);
  const SpaceCleanService service(home, std::make_shared<SystemSpaceFileOperations>(home));
  std::ofstream(variable("BRISKO_TEST_CLEAN_RECEIPT"))
      << encodeJson(service.clean(targets, *mode), /*pretty=*/true);
}

class SpaceClean : public ::testing::Test {
 protected:
  void SetUp() override { folder.makeDirectory("home/.config"); }

  SpaceCleanService service() const {
    return SpaceCleanService(home, std::make_shared<SystemSpaceFileOperations>(home));
  }

  std::vector<std::pair<std::string, std::string>> childEnvironment(
      const std::vector<SpaceCleanTarget>& targets, SpaceCleanMode mode) const {
    return {{"HOME", home},
            {"XDG_DATA_HOME", home + "/.local/share"},
            {"XDG_CONFIG_HOME", home + "/.config"},
            {"BRISKO_TEST_CLEAN_HOME", home},
            {"BRISKO_TEST_CLEAN_TARGETS", encodeJson(targets)},
            {"BRISKO_TEST_CLEAN_MODE", std::string(enumName(mode))},
            {"BRISKO_TEST_CLEAN_RECEIPT", receiptPath}};
  }

  SpaceCleanReceipt childReceipt() const {
    const auto text = readFileContents(receiptPath);
    if (!text) {
      ADD_FAILURE() << "the child wrote no receipt";
      return {};
    }
    return decodeJson<SpaceCleanReceipt>(*text);
  }

  testing::TemporaryDirectory folder;
  const std::string home = folder / "home";
  const std::string receiptPath = folder / "receipt.json";
  ScopedVariable configHome{"XDG_CONFIG_HOME", home + "/.config"};
  ScopedVariable dataHome{"XDG_DATA_HOME", home + "/.local/share"};
};

TEST_F(SpaceClean, RefusesWhatMustNotGoAndDeletesTheRest) {
  folder.writeFile("home/.config/user-dirs.dirs",
                   "# written by xdg-user-dirs-update\n"
                   "XDG_MUSIC_DIR=\"$HOME/Música\"\n"
                   "XDG_PICTURES_DIR=\"$HOME/Media/Bilder\"\n"
                   "XDG_PUBLICSHARE_DIR=\"$HOME/\"\n"
                   "XDG_VIDEOS_DIR=\"" +
                       home + "/Filme\"\n");
  folder.writeFile("home/.config/brisko/whitelist", "~/Keep\n");
  for (const char* directory :
       {"Documents", "Library/Caches/app", "Música", "Media/Bilder", "Media/other", "Filme",
        "Photos", "x#other", "Keep", ".cache", ".local/share/brisko/Plans", "Public"})
    folder.makeDirectory(std::string("home/") + directory);
  folder.writeFile("home/Documents/report.txt", "r");
  folder.makeDirectory("etc");
  folder.writeFile("outside", "o");
  folder.makeSymlink("home/dangling", home + "/nowhere");
  folder.makeSymlink("home/link", home + "/Photos");
  // A name that really holds U+FFFD, and one that isn't UTF-8 and shows as it.
  folder.writeFile("home/caf\xEF\xBF\xBD", "repaired text");
  folder.writeFile("home/caf\xE9", "raw bytes");

  const std::string aggregate = SpaceCleanCopy::kAggregateRow;
  const std::string standard = SpaceCleanCopy::kStandardFolder;
  const std::string missing = SpaceCleanCopy::kNoLongerExists;
  const std::string link = SpaceCleanCopy::kSymbolicLink;
  const struct {
    std::string path;
    std::optional<std::string> refusal;
  } cases[] = {
      {home + "#hidden", aggregate},  // before "outside the home"
      {home + "/Documents#other", aggregate},
      {home + "/x#other", aggregate},  // a real folder pays for the group rows
      {home, SpaceCleanCopy::kHomeFolder},
      {home + "/", SpaceCleanCopy::kHomeFolder},
      {folder / "outside", SpaceCleanCopy::kOutsideHome},
      {home + "/../etc", SpaceCleanCopy::kInvalidPath},
      {home + "/Library", standard},
      {home + "/Documents", standard},
      {home + "//Documents/", standard},
      {home + "/.config", standard},
      {home + "/.cache", standard},
      {home + "/Música", standard},
      {home + "/Media/Bilder", standard},
      {home + "/Media", standard},  // would take Bilder along
      {home + "/Filme", standard},
      {home + "/Public", standard},  // one of the nine, though switched off
      {home + "/gone", missing},
      {home + "/dangling", link},
      {home + "/link", link},
      {home + "/.local/share/brisko/Plans", SpaceCleanCopy::kProtectedLocation},
      {home + "/Keep", SpaceCleanCopy::exclusionRule(home + "/Keep")},
      {home + "/caf\xEF\xBF\xBD", missing},
      {home + "/Library/Caches/app", std::nullopt},
      {home + "/Documents/report.txt", std::nullopt},
      {home + "/Media/other", std::nullopt},
      {home + "/Photos", std::nullopt},
  };
  const SpaceCleanService cleaner = service();
  std::vector<SpaceCleanTarget> targets;
  std::vector<bool> existedBefore;
  for (const auto& c : cases) {
    EXPECT_EQ(decodedMessage(cleaner.refusal(c.path)), decodedMessage(c.refusal)) << c.path;
    targets.push_back({c.path, 7});
    existedBefore.push_back(exists(c.path));
  }

  const SpaceCleanReceipt receipt = cleaner.clean(targets, SpaceCleanMode::delete_);
  ASSERT_EQ(receipt.results.size(), std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& result = receipt.results[i];
    EXPECT_EQ(result.path, cases[i].path);
    EXPECT_EQ(result.bytes, 7);
    EXPECT_EQ(result.outcome,
              cases[i].refusal ? SpaceCleanOutcome::skipped : SpaceCleanOutcome::deleted)
        << cases[i].path;
    EXPECT_EQ(result.message, cases[i].refusal) << cases[i].path;
    EXPECT_EQ(exists(cases[i].path), existedBefore[i] && cases[i].refusal.has_value())
        << cases[i].path;
  }
  EXPECT_EQ(readFileContents(home + "/caf\xEF\xBF\xBD"), "repaired text");
  EXPECT_EQ(readFileContents(home + "/caf\xE9"), "raw bytes");
  EXPECT_EQ(readFileContents(folder / "outside"), "o");
  EXPECT_LE(receipt.startedAt, receipt.completedAt);
}

TEST_F(SpaceClean, ReadsTheWhitelistAndTheUserDirectoriesAtEachClean) {
  folder.writeFile("home/Projects/a/file", "a");
  folder.writeFile("home/Projects/b/file", "b");
  folder.writeFile("home/Scans/file", "s");
  const SpaceCleanService cleaner = service();
  EXPECT_EQ(cleaner.clean({{home + "/Projects/a", 1}}, SpaceCleanMode::delete_).succeeded().size(),
            1u);

  WhitelistStore::add("~/Projects/b", home);
  folder.writeFile("home/.config/user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"$HOME/Scans\"\n");
  const SpaceCleanReceipt receipt =
      cleaner.clean({{home + "/Projects/b", 1}, {home + "/Scans", 1}}, SpaceCleanMode::delete_);
  ASSERT_EQ(receipt.results.size(), 2u);
  EXPECT_EQ(receipt.results[0].message, SpaceCleanCopy::exclusionRule(home + "/Projects/b"));
  EXPECT_EQ(receipt.results[1].message, SpaceCleanCopy::kStandardFolder);
  EXPECT_TRUE(exists(home + "/Projects/b/file"));
  EXPECT_TRUE(exists(home + "/Scans/file"));
}

TEST_F(SpaceClean, RemovesBelowAHomeReachedThroughALinkAndFollowsNothingThere) {
  folder.writeFile("data/home/.config/keep", "");
  folder.writeFile("data/home/old/file", "x");
  folder.writeFile("data/home/big.iso", "x");
  folder.writeFile("elsewhere/precious", "p");
  folder.makeSymlink("data/home/into", folder / "elsewhere");
  folder.makeSymlink("homes", folder / "data");
  const std::string linkedHome = folder / "homes/home";
  ScopedVariable config{"XDG_CONFIG_HOME", linkedHome + "/.config"};
  const SpaceCleanService cleaner(linkedHome,
                                  std::make_shared<SystemSpaceFileOperations>(linkedHome));
  const SpaceCleanReceipt receipt = cleaner.clean(
      {{linkedHome + "/old", 1}, {linkedHome + "/big.iso", 2}, {linkedHome + "/into/precious", 3}},
      SpaceCleanMode::delete_);
  ASSERT_EQ(receipt.results.size(), 3u);
  EXPECT_EQ(receipt.results[0].outcome, SpaceCleanOutcome::deleted);
  EXPECT_EQ(receipt.results[1].outcome, SpaceCleanOutcome::deleted);
  EXPECT_EQ(receipt.results[2].outcome, SpaceCleanOutcome::failed);
  // The system's words for a link where a folder must be opened.
  const std::string words = receipt.results[2].message.value_or("");
  EXPECT_TRUE(words == "Not a directory" || words == "Too many levels of symbolic links") << words;
  EXPECT_FALSE(exists(folder / "data/home/old"));
  EXPECT_FALSE(exists(folder / "data/home/big.iso"));
  EXPECT_EQ(readFileContents(folder / "elsewhere/precious"), "p");
}

TEST_F(SpaceClean, ADeleteNeverFollowsASubFolderSwappedForALink) {
  folder.writeFile("outside/a", "keep");
  folder.writeFile("outside/deeper/b", "keep");
  const SpaceCleanService cleaner = service();
  for (int round = 0; round < 25; ++round) {
    for (int i = 0; i < 40; ++i)
      folder.writeFile("home/tree/sub/f" + std::to_string(i), "x");
    folder.writeFile("home/tree/a/b/c", "x");
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
      const std::string sub = home + "/tree/sub";
      const std::string aside = home + "/aside-" + std::to_string(round);
      while (!stop.load()) {
        if (::rename(sub.c_str(), aside.c_str()) == 0) {
          (void)::symlink((folder / "outside").c_str(), sub.c_str());
          std::this_thread::yield();
          ::unlink(sub.c_str());
          ::rename(aside.c_str(), sub.c_str());
        }
      }
    });
    const auto receipt = cleaner.clean({{home + "/tree", 1}}, SpaceCleanMode::delete_);
    stop = true;
    swapper.join();
    ASSERT_EQ(receipt.results.size(), 1u);
    EXPECT_NE(receipt.results[0].outcome, SpaceCleanOutcome::skipped)
        << decodedMessage(receipt.results[0].message);
    ASSERT_EQ(readFileContents(folder / "outside/a"), "keep") << "round " << round;
    ASSERT_EQ(readFileContents(folder / "outside/deeper/b"), "keep") << "round " << round;
    testing::removeTree(home + "/tree");
    testing::removeTree(home + "/aside-" + std::to_string(round));
  }
}

TEST_F(SpaceClean, FailuresOfAnOrdinaryUserCarryTheSystemsWords) {
  folder.writeFile("home/locked/item", "i");
  folder.writeFile("home/locked/folder/inner", "f");
  ASSERT_EQ(::chown(home.c_str(), 65534, 65534), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  // The ordinary user may write its home and its Trash, not the locked folder.
  folder.makeDirectory("home/.local/share");
  for (const char* owned : {"/.config", "/.local", "/.local/share"})
    ASSERT_EQ(::chown((home + owned).c_str(), 65534, 65534), 0);
  const std::vector<SpaceCleanTarget> targets{{home + "/locked/item", 1},
                                              {home + "/locked/folder", 2}};
  for (const SpaceCleanMode mode : {SpaceCleanMode::trash, SpaceCleanMode::delete_}) {
    ::unlink(receiptPath.c_str());
    ASSERT_EQ(testing::runTestsAsOrdinaryUser("SpaceCleanChild.*", childEnvironment(targets, mode)),
              0);
    const SpaceCleanReceipt receipt = childReceipt();
    ASSERT_EQ(receipt.results.size(), 2u);
    for (const auto& result : receipt.results) {
      EXPECT_EQ(result.outcome, SpaceCleanOutcome::failed) << result.path;
      EXPECT_NE(decodedMessage(result.message).find("Permission denied"), std::string::npos)
          << decodedMessage(result.message);
    }
    EXPECT_EQ(readFileContents(home + "/locked/item"), "i");
    EXPECT_EQ(readFileContents(home + "/locked/folder/inner"), "f");
  }
}

TEST_F(SpaceClean, MovesAFolderAndALargeFileIntoTheRealTrash) {
  folder.writeFile("home/Old Projects/site/index.html", "<html>");
  folder.writeFile("home/Videos 100%/holiday.mkv", std::string(64 * 1024, 'v'));
  folder.makeDirectory("home/Documents");
  std::vector<SpaceCleanTarget> targets{{home + "/Old Projects", 4096},
                                        {home + "/Videos 100%/holiday.mkv", 65536},
                                        {home + "/Documents", 0}};
  // A tmpfs mounted in the home: GIO won't trash there, and says so. Only
  // where this process may mount.
  const std::string scratch = folder.makeDirectory("home/scratch");
  const bool mounted = ::mount("none", scratch.c_str(), "tmpfs", 0, "size=1m") == 0;
  if (mounted) {
    folder.writeFile("home/scratch/build.log", "log");
    targets.push_back({scratch + "/build.log", 3});
  }
  testing::ProcessOptions options;
  options.environment = childEnvironment(targets, SpaceCleanMode::trash);
  const auto child = testing::runTestsInSessionBus("SpaceCleanChild.*", options);
  if (mounted) {
    EXPECT_EQ(readFileContents(scratch + "/build.log"), "log");
    ::umount(scratch.c_str());
  }
  ASSERT_EQ(child.exitStatus, 0) << child.standardOutput << child.standardError;

  const SpaceCleanReceipt receipt = childReceipt();
  ASSERT_EQ(receipt.results.size(), targets.size());
  EXPECT_EQ(receipt.mode, SpaceCleanMode::trash);
  EXPECT_EQ(receipt.results[0].outcome, SpaceCleanOutcome::moved);
  EXPECT_EQ(receipt.results[1].outcome, SpaceCleanOutcome::moved);
  EXPECT_EQ(receipt.results[2].outcome, SpaceCleanOutcome::skipped);
  if (mounted) {
    EXPECT_EQ(receipt.results[3].outcome, SpaceCleanOutcome::failed);
    EXPECT_EQ(receipt.results[3].message, "Trashing on system internal mounts is not supported");
  }
  const std::string summary = SpaceCleanCopy::summary(receipt);
  EXPECT_EQ(summary,
            EngineText::encoded("Moved %1$lld items to Trash, %2$lld skipped and kept in the list",
                                {"2", std::to_string(targets.size() - 2)}));
  std::cout << "summary: " << decodedMessage(summary) << "\n";
  const std::string trash = home + "/.local/share/Trash";
  EXPECT_EQ(readFileContents(trash + "/files/Old Projects/site/index.html"), "<html>");
  EXPECT_TRUE(exists(trash + "/files/holiday.mkv"));
  EXPECT_FALSE(exists(home + "/Old Projects"));
  EXPECT_TRUE(exists(home + "/Documents"));
  const auto folderInfo = readFileContents(trash + "/info/Old Projects.trashinfo");
  const auto fileInfo = readFileContents(trash + "/info/holiday.mkv.trashinfo");
  ASSERT_TRUE(folderInfo && fileInfo);
  EXPECT_NE(folderInfo->find("Path=" + home + "/Old%20Projects\n"), std::string::npos);
  EXPECT_NE(fileInfo->find("Path=" + home + "/Videos%20100%25/holiday.mkv\n"), std::string::npos)
      << *fileInfo;
}

TEST(XdgUserDirectories, ReadsTheValuesThatNameAFolder) {
  const std::string contents =
      "# comment\n"
      "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
      "  XDG_MUSIC_DIR=\"$HOME/Media//Musik/\"\r\n"
      "XDG_PUBLICSHARE_DIR=\"$HOME/\"\n"
      "XDG_TEMPLATES_DIR=\"/srv/templates\"\n"
      "XDG_VIDEOS_DIR=\"$HOME/My \\\"Films\\\"\"\n"
      "XDG_DOWNLOAD_DIR=relative\n"
      "XDG_PICTURES_DIR=\"~/Pictures\"\n"
      "OTHER_DIR=\"$HOME/Other\"\n";
  EXPECT_EQ(parseXdgUserDirectories(contents, "/home/u"),
            (std::vector<std::string>{"/home/u/Schreibtisch", "/home/u/Media/Musik",
                                      "/srv/templates", "/home/u/My \"Films\""}));
}

TEST(SpaceCleanCopy, SummarisesAndListsEachReasonOnce) {
  const auto result = [](SpaceCleanOutcome outcome, std::optional<std::string> message = {}) {
    return SpaceCleanResult{"/h/x", 1, outcome, std::move(message)};
  };
  const struct {
    SpaceCleanMode mode;
    std::vector<SpaceCleanResult> results;
    std::string summary;
    std::vector<std::string> failures;
  } cases[] = {
      {SpaceCleanMode::trash, {}, EngineText::encoded("Moved %lld items to Trash", {"0"}), {}},
      {SpaceCleanMode::delete_,
       {result(SpaceCleanOutcome::deleted), result(SpaceCleanOutcome::deleted)},
       EngineText::encoded("Permanently deleted %lld items", {"2"}),
       {}},
      {SpaceCleanMode::trash,
       {result(SpaceCleanOutcome::skipped, "b"), result(SpaceCleanOutcome::moved),
        result(SpaceCleanOutcome::failed, "a"), result(SpaceCleanOutcome::skipped, "b")},
       EngineText::encoded("Moved %1$lld items to Trash, %2$lld skipped and kept in the list",
                           {"1", "3"}),
       {"b", "a"}},
      {SpaceCleanMode::delete_,
       {result(SpaceCleanOutcome::failed, "Permission denied")},
       EngineText::encoded("Permanently deleted %1$lld items, %2$lld skipped and kept in the list",
                           {"0", "1"}),
       {"Permission denied"}},
  };
  for (const auto& c : cases) {
    SpaceCleanReceipt receipt{c.mode, Date(std::chrono::seconds(1763784000)),
                              Date(std::chrono::seconds(1763784001)), c.results};
    EXPECT_EQ(SpaceCleanCopy::summary(receipt), c.summary);
    EXPECT_EQ(SpaceCleanCopy::failureMessages(receipt), c.failures);
    EXPECT_EQ(decodeJson<SpaceCleanReceipt>(encodeJson(receipt)), receipt);
  }
  EXPECT_EQ(SpaceCleanCopy::selectedCount(3), EngineText::encoded("%lld selected", {"3"}));
  const std::string json = encodeJson(
      SpaceCleanReceipt{SpaceCleanMode::delete_, {}, {}, {result(SpaceCleanOutcome::deleted)}});
  EXPECT_NE(json.find("\"mode\":\"delete\""), std::string::npos) << json;
  EXPECT_EQ(json.find("message"), std::string::npos) << json;
}

}  // namespace
}  // namespace brisko
