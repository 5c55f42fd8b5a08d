#include "rules/tree_walker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/folder_walk.h"
#include "testing/deep_nest.h"
#include "testing/ordinary_user.h"
#include "testing/sample_home.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::allocatedBytesBelow;
using testing::TemporaryDirectory;

TreeTotals walk(const std::string& root, const PathSafetyPolicy& policy,
                std::int64_t maximumItems = 150000, bool applyPolicy = true) {
  TreeWalkOptions options;
  options.policy = &policy;
  options.applySafetyPolicy = applyPolicy;
  options.maximumItems = maximumItems;
  return walkTree(root, options);
}

// Many small files across nested folders, so that helpers start.
void writeWideTree(const TemporaryDirectory& dir, const std::string& top, int folders, int files) {
  for (int f = 0; f < folders; ++f) {
    for (int i = 0; i < files; ++i) {
      dir.writeFile(top + "/d" + std::to_string(f) + "/sub/" + std::to_string(i),
                    std::string(static_cast<size_t>(100 + i * 37 % 9000), 'x'));
    }
  }
}

TEST(TreeWalker, CountsAllocatedBytesOfRegularFilesAndNeverFollowsLinks) {
  TemporaryDirectory dir;
  const PathSafetyPolicy policy(dir.path(), {});
  const std::string root = dir.makeDirectory("cache");
  dir.writeFile("cache/a/one", std::string(5000, 'a'));
  dir.writeFile("cache/a/b/two", std::string(70000, 'b'));
  dir.writeFile("cache/empty", "");
  dir.writeFile("outside/big", std::string(200000, 'c'));
  dir.makeSymlink("cache/to-outside", dir / "outside");
  dir.makeSymlink("cache/a/loop", dir / "cache");
  dir.makeSymlink("cache/dangling", dir / "missing");
  ASSERT_EQ(::mkfifo((dir / "cache/fifo").c_str(), 0644), 0);
  // A package counts as nothing: neither walked nor added.
  dir.writeFile("cache/Updater.app/Contents/MacOS/updater", std::string(90000, 'd'));

  const TreeTotals totals = walk(root, policy);
  EXPECT_EQ(totals.bytes,
            allocatedBytesBelow(dir / "cache/a") + allocatedBytesBelow(dir / "cache/empty"));
  EXPECT_EQ(totals.items, 3);
  EXPECT_EQ(totals.skippedInvalid, 3);  // the three links
  EXPECT_FALSE(totals.isPartial);

  // A root that is a file is measured by its own visit; a root that is a link isn't entered.
  const TreeTotals file = walk(dir / "cache/a/b/two", policy);
  EXPECT_EQ(file.bytes, allocatedBytesBelow(dir / "cache/a/b/two"));
  EXPECT_EQ(file.items, 1);
  const TreeTotals link = walk(dir / "cache/to-outside", policy);
  EXPECT_EQ(link, (TreeTotals{.skippedInvalid = 1}));
}

TEST(TreeWalker, RefusedFoldersAreCountedAndStillLookedInto) {
  TemporaryDirectory dir;
  const std::string home = dir.makeDirectory("home");
  const PathSafetyPolicy policy(home, {home + "/cache/keep"});
  dir.writeFile("home/cache/com.1password.helper/vault", std::string(8000, 'v'));
  dir.writeFile("home/cache/keep/kept", std::string(8000, 'k'));
  dir.writeFile("home/cache/plain/file", std::string(8000, 'p'));
  // A name that isn't UTF-8 can't pass the policy, nor can what lies below it.
  dir.writeFile(std::string("home/cache/bad\xff/inner"), std::string(8000, 'i'));

  const TreeTotals totals = walk(home + "/cache", policy);
  EXPECT_EQ(totals.bytes, allocatedBytesBelow(home + "/cache/plain"));
  EXPECT_EQ(totals.items, 1);
  // The protected folder and the file inside it (same component match).
  EXPECT_EQ(totals.skippedProtected, 2);
  EXPECT_GE(totals.skippedWhitelisted, 1);
  EXPECT_EQ(totals.skippedInvalid, 2);

  // Without the policy (report-only rules) everything counts.
  const TreeTotals all = walk(home + "/cache", policy, 150000, /*applyPolicy=*/false);
  EXPECT_EQ(all.items, 4);
  EXPECT_EQ(all.bytes, allocatedBytesBelow(home + "/cache"));
}

TEST(TreeWalker, BudgetCapsAWalkOnlyWhenOneMoreFileIsMet) {
  TemporaryDirectory dir;
  const PathSafetyPolicy policy(dir.path(), {});
  testing::makeEmptyFiles(dir / "flat", 1000);
  EXPECT_FALSE(walk(dir / "flat", policy, 1000).isPartial);
  const TreeTotals capped = walk(dir / "flat", policy, 999);
  EXPECT_TRUE(capped.isPartial);
  EXPECT_EQ(capped.items, 999);

  // Spread over folders with helpers at work, the cap still holds.
  writeWideTree(dir, "wide", 40, 30);
  const TreeTotals wide = walk(dir / "wide", policy, 500);
  EXPECT_TRUE(wide.isPartial);
  EXPECT_LE(wide.items, 500);
  EXPECT_GT(wide.items, 0);
}

TEST(TreeWalker, ParallelWalksAgreeWithTheReference) {
  TemporaryDirectory dir;
  const PathSafetyPolicy policy(dir.path(), {});
  writeWideTree(dir, "wide", 60, 25);
  const std::int64_t reference = allocatedBytesBelow(dir / "wide");
  for (int round = 0; round < 20; ++round) {
    const TreeTotals totals = walk(dir / "wide", policy);
    ASSERT_EQ(totals.items, 1500);
    ASSERT_EQ(totals.bytes, reference);
    ASSERT_FALSE(totals.isPartial);
  }
}

TEST(TreeWalker, DeepNestsAreMeasuredPastPathMaxAndMarkedPartialPastTheDepthLimit) {
  // Folders were opened by their whole path: everything past PATH_MAX counted
  // as 0 with no sign of it.
  struct Case {
    int depth;
    int wideFolders;  // beside the nest, so that helpers join in
    std::int64_t countedLevels;
    std::int64_t tooDeep;
  };
  const auto limit = static_cast<std::int64_t>(kMaximumWalkDepth);
  for (const Case nest : {Case{2100, 0, 2100, 0}, Case{2100, 8, 2100, 0},
                          Case{static_cast<int>(limit) + 300, 0, limit, 1}}) {
    TemporaryDirectory home;
    const std::string top = home.makeDirectory("Caches/app");
    testing::makeDeepNest(top, nest.depth, "d", "data");
    writeWideTree(home, "Caches/app/wide", nest.wideFolders, 20);
    const std::int64_t wideBytes =
        nest.wideFolders > 0 ? allocatedBytesBelow(home / "Caches/app/wide") : 0;
    const std::int64_t oneLevel = testing::allocatedBytesOfOneLevel(top);
    const PathSafetyPolicy policy(home.path(), {});
    const testing::OpenFileLimit openFiles(1024);
    const TreeTotals totals = walk(top, policy);
    EXPECT_EQ(totals.items, nest.countedLevels + nest.wideFolders * 20) << nest.depth;
    EXPECT_EQ(totals.bytes, oneLevel * nest.countedLevels + wideBytes) << nest.depth;
    EXPECT_EQ(totals.foldersTooDeep, nest.tooDeep);
    EXPECT_EQ(totals.isPartial, nest.tooDeep > 0);
  }
}

TEST(TreeWalker, FilesThatVanishMidWalkNeverBreakIt) {
  TemporaryDirectory dir;
  const PathSafetyPolicy policy(dir.path(), {});
  writeWideTree(dir, "busy", 20, 20);
  std::atomic<bool> done{false};
  std::thread churn([&] {
    for (int i = 0; !done; ++i) {
      const std::string path = dir / ("busy/d" + std::to_string(i % 20) + "/sub/churn");
      const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
      if (fd >= 0) ::close(fd);
      ::unlink(path.c_str());
      ::rmdir((dir / ("busy/d" + std::to_string((i + 7) % 20) + "/gone")).c_str());
      ::mkdir((dir / ("busy/d" + std::to_string(i % 20) + "/gone")).c_str(), 0755);
    }
  });
  for (int round = 0; round < 30; ++round) {
    const TreeTotals totals = walk(dir / "busy", policy);
    // The churning file may be met in any of the 20 folders as it moves on.
    EXPECT_GE(totals.items, 400);
    EXPECT_LE(totals.items, 420);
  }
  done = true;
  churn.join();
}

TEST(TreeWalker, CancellationStopsTheWalk) {
  TemporaryDirectory dir;
  const PathSafetyPolicy policy(dir.path(), {});
  writeWideTree(dir, "wide", 10, 10);
  std::atomic<bool> cancelled{true};
  TreeWalkOptions options;
  options.policy = &policy;
  options.cancelled = &cancelled;
  const TreeTotals totals = walkTree(dir / "wide", options);
  EXPECT_TRUE(totals.isPartial);
  EXPECT_EQ(totals.items, 0);
}

// Runs as an ordinary user in a child (see below); skipped alone.
TEST(TreeWalkerAsOrdinaryUser, UnreadableFoldersCountAsEmpty) {
  const std::string root = testing::ordinaryUserArgument("BRISKO_TEST_WALK_ROOT");
  if (root.empty()) GTEST_SKIP() << "runs only as a child of the permission test";
  ASSERT_NE(::geteuid(), 0u);
  const PathSafetyPolicy policy(root, {});
  const TreeTotals totals = walk(root + "/cache", policy);
  EXPECT_EQ(totals.items, 1);
  EXPECT_EQ(totals.bytes, std::stoll(testing::ordinaryUserArgument("BRISKO_TEST_WALK_BYTES")));
  EXPECT_FALSE(totals.isPartial);
}

TEST(TreeWalker, UnreadableFoldersCountAsEmptyForAnOrdinaryUser) {
  TemporaryDirectory dir;
  dir.writeFile("cache/open/file", std::string(9000, 'o'));
  dir.writeFile("cache/closed/file", std::string(9000, 'c'));
  for (const char* path : {"", "/cache", "/cache/open"})
    ASSERT_EQ(::chmod((dir.path() + path).c_str(), 0755), 0);
  ASSERT_EQ(::chmod((dir / "cache/open/file").c_str(), 0644), 0);
  ASSERT_EQ(::chmod((dir / "cache/closed").c_str(), 0), 0);
  const int status = testing::runTestsAsOrdinaryUser(
      "TreeWalkerAsOrdinaryUser.*",
      {{"BRISKO_TEST_WALK_ROOT", dir.path()},
       {"BRISKO_TEST_WALK_BYTES", std::to_string(allocatedBytesBelow(dir / "cache/open"))}});
  EXPECT_EQ(status, 0);
  ::chmod((dir / "cache/closed").c_str(), 0755);
}

}  // namespace
}  // namespace brisko
