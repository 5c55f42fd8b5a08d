// Runs of real plans over a temporary home: every check of an item, in order,
// against the changes that can happen between plan and run.

#include "cleanup/cleanup_execution_service.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "cleanup/cleanup_plan_builder.h"
#include "cleanup/cleanup_planning_error.h"
#include "cleanup/file_identity.h"
#include "rules/stub_spotlight_resolver.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;
namespace fs = std::filesystem;

std::optional<std::string> removeForTest(const std::string& path) {
  std::error_code error;
  fs::remove_all(path, error);
  if (error) return error.message();
  return std::nullopt;
}

class CleanupExecutionTest : public ::testing::Test {
 protected:
  CleanupPlan plan(std::vector<std::string> findings) {
    return CleanupPlanBuilder(home.path(), now).makePlan({std::move(findings), {}});
  }

  CleanupReceipt run(const CleanupPlan& plan,
                     RunningProcesses processes = std::vector<RunningProcess>{},
                     CleanupExecutionService::RemovalHandler removal = {}, Date at = {}) {
    const CleanupExecutionService service(home.path(), at == Date{} ? now : at,
                                          std::move(processes));
    return service.execute(plan, removal);
  }

  TemporaryDirectory home;
  Date now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
};

TEST_F(CleanupExecutionTest, TheVersionIsCheckedFirstThenTheExpiry) {
  using Kind = CleanupPlanningError::Kind;
  const CleanupPlan fresh = plan({"user-caches"});
  const auto at = [](const char* text) { return *parseIso8601(text); };
  const struct {
    const char* name;
    int version;
    std::optional<Date> createdAt, expiresAt, runAt;
    std::optional<Kind> refusal;
  } rows[] = {
      {"at exactly expiresAt", 3, {}, {}, fresh.expiresAt, {}},
      {"a second late", 3, {}, {}, fresh.expiresAt + std::chrono::seconds(1), Kind::planExpired},
      {"another version", 2, {}, {}, {}, Kind::protocolMismatch},
      {"another version and a long life",
       2,
       {},
       at("9999-12-31T23:59:59Z"),
       {},
       Kind::protocolMismatch},
      {"expiring in the year 9999", 3, {}, at("9999-12-31T23:59:59Z"), {}, Kind::planExpired},
      {"made in the year 0001, living to 9999",
       3,
       at("0001-01-01T00:00:00Z"),
       at("9999-12-31T23:59:59Z"),
       {},
       Kind::planExpired},
      {"expired in the year 0001",
       3,
       at("0001-01-01T00:00:00Z"),
       at("0001-01-01T00:15:00Z"),
       {},
       Kind::planExpired},
  };
  for (const auto& row : rows) {
    CleanupPlan edited = fresh;
    edited.protocolVersion = row.version;
    edited.createdAt = row.createdAt.value_or(fresh.createdAt);
    edited.expiresAt = row.expiresAt.value_or(fresh.expiresAt);
    // The dates cross the disk as a plan file does.
    edited = decodeJson<CleanupPlan>(encodeJson(edited));
    try {
      const auto receipt = run(edited, {}, {}, row.runAt.value_or(now));
      EXPECT_FALSE(row.refusal) << row.name << ": ran";
      EXPECT_TRUE(receipt.results.empty()) << row.name;
    } catch (const CleanupPlanningError& error) {
      ASSERT_TRUE(row.refusal) << row.name << ": " << error.what();
      EXPECT_EQ(error.kind(), *row.refusal) << row.name << ": " << error.what();
    }
  }
}

TEST_F(CleanupExecutionTest, AnItemThatVanishedSaysSoAndTheOthersGo) {
  for (const char* name : {"a.log", "b.log", "c.log"}) {
    const std::string file = home.writeFile(std::string("Library/Logs/App/") + name, "old");
    const auto when = std::chrono::floor<std::chrono::seconds>(now).time_since_epoch().count() -
                      30 * 24 * 60 * 60;
    const timespec times[2] = {{when, 0}, {when, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  }
  const CleanupPlan planned = plan({"user-logs"});
  ASSERT_EQ(planned.items.size(), 3u);
  fs::remove(home / "Library/Logs/App/b.log");
  for (const auto& result : run(planned).results) {
    if (result.id == home / "Library/Logs/App/b.log") {
      EXPECT_EQ(result.outcome, CleanupItemOutcome::skipped);
      EXPECT_EQ(result.message, "The file’s identity or content state changed.");
    } else {
      EXPECT_EQ(result.outcome, CleanupItemOutcome::deleted) << result.id << ": " << result.message;
    }
  }
  EXPECT_FALSE(fs::exists(home / "Library/Logs/App/a.log"));
  EXPECT_FALSE(fs::exists(home / "Library/Logs/App/c.log"));
}

TEST_F(CleanupExecutionTest, ARewrittenFileWithTheSameSizeFailsTheIdentityCheck) {
  const std::string file = home.writeFile("Library/Caches/one.bin", "aaaa");
  const CleanupPlan planned = plan({"user-caches"});
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  home.writeFile("Library/Caches/one.bin", "bbbb");
  const auto result = run(planned).results.at(0);
  EXPECT_EQ(result.outcome, CleanupItemOutcome::skipped);
  EXPECT_EQ(result.message, "The file\u2019s identity or content state changed.");
  EXPECT_EQ(result.bytes, 0);
  EXPECT_TRUE(fs::exists(file));
}

TEST_F(CleanupExecutionTest, AChangeOfAllocatedSizeAloneFailsTheSizeCheck) {
  // Same length, same time, same inode: only the allocation changes, from a
  // hole to real blocks.
  const std::string file = home.writeFile("Library/Caches/sparse.bin");
  ASSERT_EQ(::truncate(file.c_str(), 1 << 20), 0);
  const CleanupPlan planned = plan({"user-caches"});
  struct stat before;
  ::lstat(file.c_str(), &before);
  {
    const int fd = ::open(file.c_str(), O_WRONLY);
    const std::string block(1 << 16, 'x');
    ASSERT_EQ(::pwrite(fd, block.data(), block.size(), 0), static_cast<ssize_t>(block.size()));
    ::fsync(fd);
    ::close(fd);
  }
  const timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  const auto result = run(planned).results.at(0);
  EXPECT_EQ(result.message, "The file\u2019s size changed.");
  EXPECT_TRUE(fs::exists(file));
}

TEST_F(CleanupExecutionTest, AFolderReplacedByAnotherOrByALinkIsKept) {
  home.writeFile("Library/Caches/swapped/data", "x");
  home.writeFile("Library/Caches/linked/data", "x");
  home.writeFile("Documents/precious", "keep");
  const CleanupPlan planned = plan({"user-caches"});
  ASSERT_EQ(planned.items.size(), 2u);
  fs::remove_all(home / "Library/Caches/swapped");
  home.writeFile("Library/Caches/swapped/data", "x");
  fs::remove_all(home / "Library/Caches/linked");
  home.makeSymlink("Library/Caches/linked", home / "Documents");
  for (const auto& result : run(planned).results) {
    EXPECT_EQ(result.outcome, CleanupItemOutcome::skipped) << result.id;
  }
  EXPECT_TRUE(fs::exists(home / "Documents/precious"));
  EXPECT_TRUE(fs::exists(home / "Library/Caches/swapped/data"));
}

TEST_F(CleanupExecutionTest, APathOutsideItsCategoryIsNeverTrusted) {
  // A plan file is data on disk: an item edited to point elsewhere must fail.
  home.writeFile("Library/Caches/app/data", "x");
  CleanupPlan planned = plan({"user-caches"});
  home.writeFile("Documents/precious", "keep");
  planned.items[0].path = home / "Documents";
  const auto result = run(planned).results.at(0);
  EXPECT_EQ(result.message, "The path is no longer inside the scanned category.");
  EXPECT_TRUE(fs::exists(home / "Documents/precious"));
}

TEST_F(CleanupExecutionTest, AnEditedPlanCanNameNothingTheCategoryWouldNotOffer) {
  // Each forged item has its real identity, so only the selection check can
  // stop it: a fresh log, a hidden cache entry, a protected web app's storage.
  home.writeFile("Library/Logs/App/old.log", "o");
  CleanupPlan planned = plan({"user-logs", "user-caches", "browser-caches"});
  const auto forge = [&](const std::string& relative, const std::string& findingID) {
    const std::string path = home / relative;
    CleanupPlanItem item;
    item.findingID = findingID;
    item.path = path;
    item.identity = *identitySnapshot(path);
    item.estimatedBytes = measuredBytes(path);
    planned.items.push_back(item);
  };
  home.writeFile("Library/Logs/App/today.log", "fresh");
  forge("Library/Logs/App/today.log", "user-logs");
  forge("Library/Logs/App", "user-logs");
  home.writeFile("Library/Caches/.keep-me/data", "x");
  forge("Library/Caches/.keep-me", "user-caches");
  const std::string storage =
      "Library/Application Support/Google/Chrome/Default/Service Worker/CacheStorage";
  home.writeFile(storage + "/https_docs.google.com_0/data", "x");
  forge(storage + "/https_docs.google.com_0", "browser-caches");
  for (const auto& result : run(planned).results) {
    EXPECT_EQ(result.outcome, CleanupItemOutcome::skipped) << result.id;
    EXPECT_EQ(result.message, "The path is no longer inside the scanned category.") << result.id;
  }
  EXPECT_TRUE(fs::exists(home / "Library/Logs/App/today.log"));
  EXPECT_TRUE(fs::exists(home / "Library/Caches/.keep-me/data"));
  EXPECT_TRUE(fs::exists(home / (storage + "/https_docs.google.com_0/data")));
}

TEST_F(CleanupExecutionTest, AnAbsentProcessListBlocksGuardedItemsOnly) {
  home.writeFile("Library/Developer/Xcode/DerivedData/App-abc/data", "x");
  home.writeFile("Library/Caches/app/data", "x");
  const CleanupPlan planned = plan({"xcode-derived-data", "user-caches"});
  ASSERT_EQ(planned.items.size(), 2u);
  const auto receipt = run(planned, std::nullopt);
  for (const auto& result : receipt.results) {
    if (result.id == home / "Library/Caches/app") {
      EXPECT_EQ(result.outcome, CleanupItemOutcome::deleted);
    } else {
      EXPECT_EQ(result.outcome, CleanupItemOutcome::skipped);
      EXPECT_EQ(result.message,
                "\x01%1$@ is running, so \u201c%2$@\u201d can\u2019t be cleaned this time\x02"
                "Xcode\x02Xcode caches");
    }
  }
  EXPECT_TRUE(fs::exists(home / "Library/Developer/Xcode/DerivedData/App-abc"));
  // The same item with a list in which Xcode doesn't run goes.
  const auto second = plan({"xcode-derived-data"});
  EXPECT_EQ(run(second).results.at(0).outcome, CleanupItemOutcome::deleted);
}

TEST_F(CleanupExecutionTest, AFailedRemovalIsReportedAndTheRunGoesOn) {
  home.writeFile("Library/Caches/a/data", std::string(3000, 'a'));
  home.writeFile("Library/Caches/b/data", std::string(2000, 'b'));
  const CleanupPlan planned = plan({"user-caches"});
  int calls = 0;
  const auto receipt = run(planned, std::vector<RunningProcess>{},
                           [&](const std::string& path) -> std::optional<std::string> {
                             if (calls++ == 0) return "Operation not permitted";
                             return removeForTest(path);
                           });
  ASSERT_EQ(receipt.results.size(), 2u);
  EXPECT_EQ(receipt.results[0].outcome, CleanupItemOutcome::failed);
  EXPECT_EQ(receipt.results[0].message, "Operation not permitted");
  EXPECT_EQ(receipt.results[0].bytes, 0);
  EXPECT_EQ(receipt.results[1].outcome, CleanupItemOutcome::deleted);
}

TEST_F(CleanupExecutionTest, AnOrphanItemIsKeptWhenItsAppCannotBeShownGone) {
  home.writeFile("Library/Caches/com.example.gone/data", "x");
  CleanupPlan planned = plan({"user-caches"});
  ASSERT_EQ(planned.items.size(), 1u);
  planned.items[0].findingID = "orphaned-app-data";
  // No inventory on this system: the recheck keeps the folder.
  const auto result = run(planned).results.at(0);
  EXPECT_EQ(result.message, "The app appears to have been reinstalled; skipped this time.");
  EXPECT_TRUE(fs::exists(home / "Library/Caches/com.example.gone"));
}

}  // namespace
}  // namespace brisko
