#include "cleanup/safe_removal.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "cleanup/file_identity.h"
#include "testing/deep_nest.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;
namespace fs = std::filesystem;

bool exists(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
}

TEST(SafeRemoval, RemovesFilesFoldersAndDeepTrees) {
  TemporaryDirectory home;
  const std::string file = home.writeFile("Caches/one.bin", "x");
  EXPECT_EQ(removeWithoutFollowingLinks(file), std::nullopt);
  EXPECT_FALSE(exists(file));

  std::string deep = "Caches/tree";
  for (int depth = 0; depth < 60; ++depth) {
    deep += "/d" + std::to_string(depth);
    home.writeFile(deep + "/f", "data");
  }
  home.writeFile("Caches/tree/.hidden", "h");
  ::chmod((home / "Caches/tree/d0").c_str(), 0500);  // not writable: root still may
  EXPECT_EQ(removeWithoutFollowingLinks(home / "Caches/tree"), std::nullopt);
  EXPECT_FALSE(exists(home / "Caches/tree"));
  EXPECT_TRUE(exists(home / "Caches"));
}

TEST(SafeRemoval, NestsDeeperThanTheOpenFileLimitAndPathMaxGoWhole) {
  // One descriptor held per level made a 2,100-level cache fail with "Too
  // many open files" under the usual limit of 1,024, so it could never go.
  struct Case {
    int depth;
    bool withSiblings;  // a file and a second folder at every level
  };
  for (const Case nest : {Case{2100, false}, Case{2100, true}}) {
    TemporaryDirectory home;
    const std::string top = home.makeDirectory("Caches/app");
    testing::makeDeepNest(top, nest.depth, "d", nest.withSiblings ? "data" : "");
    if (nest.withSiblings) testing::makeDeepNest(top, 40, "e", "data");
    const std::string outside = home.writeFile("Documents/keep.txt", "precious");
    const auto identity = identitySnapshot(top);
    const testing::OpenFileLimit limit(1024);
    EXPECT_EQ(removeWithoutFollowingLinks(top, identity), std::nullopt) << nest.depth;
    EXPECT_FALSE(exists(top));
    EXPECT_TRUE(exists(outside));
  }
}

TEST(SafeRemoval, LinksInsideTheItemAreRemovedNeverFollowed) {
  TemporaryDirectory home;
  const std::string outside = home.writeFile("Documents/keep.txt", "precious");
  home.writeFile("Caches/app/data", "x");
  home.makeSymlink("Caches/app/to-documents", home / "Documents");
  home.makeSymlink("Caches/app/to-file", outside);
  home.makeSymlink("Caches/app/dangling", home / "nowhere");
  EXPECT_EQ(removeWithoutFollowingLinks(home / "Caches/app"), std::nullopt);
  EXPECT_FALSE(exists(home / "Caches/app"));
  EXPECT_TRUE(exists(outside));
}

TEST(SafeRemoval, ALinkAtTheItemIsRemovedAsALink) {
  TemporaryDirectory home;
  const std::string target = home.writeFile("Documents/keep.txt", "precious");
  const std::string link = home.makeSymlink("Caches/link", home / "Documents");
  EXPECT_EQ(removeWithoutFollowingLinks(link), std::nullopt);
  EXPECT_FALSE(exists(link));
  EXPECT_TRUE(exists(target));
}

TEST(SafeRemoval, ALinkAboveTheItemFailsTheRemoval) {
  TemporaryDirectory home;
  const std::string target = home.writeFile("Documents/cache/keep.txt", "precious");
  home.makeSymlink("Caches", home / "Documents");
  const auto failure = removeWithoutFollowingLinks(home / "Caches/cache");
  ASSERT_TRUE(failure.has_value());
  // The kernel names a link met where a folder must be either way.
  EXPECT_TRUE(*failure == "Not a directory" || *failure == "Too many levels of symbolic links")
      << *failure;
  EXPECT_TRUE(exists(target));
}

TEST(SafeRemoval, MissingItemsAndOddPathsFailWithTheSystemsWords) {
  TemporaryDirectory home;
  EXPECT_EQ(removeWithoutFollowingLinks(home / "missing"), "No such file or directory");
  EXPECT_TRUE(removeWithoutFollowingLinks("relative/path").has_value());
  EXPECT_TRUE(removeWithoutFollowingLinks("/").has_value());
  EXPECT_TRUE(removeWithoutFollowingLinks(home / "a/../b").has_value());
  EXPECT_TRUE(exists(home.path()));
}

TEST(SafeRemoval, AFailureDeepInsideStopsAndReportsAsAnOrdinaryUser) {
  // Root may delete anything, so the denial is shown as the nobody user: the
  // remover runs in a child process with its identity dropped.
  TemporaryDirectory home;
  ::chmod(home.path().c_str(), 0755);
  home.writeFile("Caches/app/a/file", "x");
  home.writeFile("Caches/app/b/locked/file", "x");
  ASSERT_EQ(std::system(("chown -R 65534:65534 '" + home / "Caches" + "'").c_str()), 0);
  ::chmod((home / "Caches/app/b/locked").c_str(), 0555);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(3);
    const auto failure = removeWithoutFollowingLinks(home / "Caches/app");
    ::_exit(failure && *failure == "Permission denied" ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(exists(home / "Caches/app/b/locked/file"));
}

TEST(SafeRemoval, AFolderSwappedForALinkDuringTheRemovalNeverLeadsOutside) {
  // Another process keeps replacing a sub-folder of the item with a link to a
  // folder outside it; whatever the interleaving, the outside stays whole.
  for (int round = 0; round < 15; ++round) {
    TemporaryDirectory home;
    const std::string outside = home.makeDirectory("Documents");
    for (int i = 0; i < 50; ++i)
      home.writeFile("Documents/doc" + std::to_string(i), "precious");
    for (int i = 0; i < 400; ++i) {
      home.writeFile("Caches/big/part" + std::to_string(i % 20) + "/f" + std::to_string(i), "x");
    }
    const std::string victim = home.makeDirectory("Caches/big/part7/swap");
    home.writeFile("Caches/big/part7/swap/inner", "x");

    std::atomic<bool> stop{false};
    std::thread swapper([&] {
      const std::string parked = home / "parked";
      while (!stop.load()) {
        std::error_code error;
        fs::rename(victim, parked, error);
        fs::create_symlink(outside, victim, error);
        std::this_thread::yield();
        fs::remove(victim, error);  // removes the link, never its target
        fs::create_directories(fs::path(victim).parent_path(), error);
        fs::rename(parked, victim, error);
      }
    });
    const auto failure = removeWithoutFollowingLinks(home / "Caches/big");
    stop = true;
    swapper.join();
    (void)failure;  // deleted or failed: both are fine, a wider deletion is not
    for (int i = 0; i < 50; ++i) {
      ASSERT_TRUE(exists(home / ("Documents/doc" + std::to_string(i)))) << "round " << round;
    }
  }
}

TEST(SafeRemoval, SomethingMovedIntoTheItemsPlaceAfterTheChecksIsKept) {
  // What was checked was the cache folder; what stands there at removal is
  // the user's documents, moved in by another process. It must survive.
  TemporaryDirectory home;
  home.writeFile("Library/Caches/app/data", "cache");
  home.writeFile("Documents/thesis.tex", "precious");
  const auto checkedFolder = identitySnapshot(home / "Library/Caches/app");
  std::filesystem::remove_all(home / "Library/Caches/app");
  std::filesystem::rename(home / "Documents", home / "Library/Caches/app");
  EXPECT_EQ(removeWithoutFollowingLinks(home / "Library/Caches/app", checkedFolder),
            kRemovalIdentityChanged);
  EXPECT_TRUE(exists(home / "Library/Caches/app/thesis.tex"));

  // The same for a single file, which is checked under a private name and
  // put back.
  home.writeFile("Library/Caches/one.bin", "cache");
  home.writeFile("Documents/letter.txt", "precious");
  const auto checkedFile = identitySnapshot(home / "Library/Caches/one.bin");
  std::filesystem::rename(home / "Documents/letter.txt", home / "Library/Caches/one.bin");
  EXPECT_EQ(removeWithoutFollowingLinks(home / "Library/Caches/one.bin", checkedFile),
            kRemovalIdentityChanged);
  EXPECT_TRUE(exists(home / "Library/Caches/one.bin"));
  size_t entries = 0;
  for ([[maybe_unused]] const auto& entry :
       std::filesystem::directory_iterator(home / "Library/Caches")) {
    ++entries;
  }
  EXPECT_EQ(entries, 2u) << "nothing is left under a private name";

  // A file whose device and inode are the checked ones but whose content
  // changed (rewritten in place, or a new file given the freed inode) is
  // not the checked file either.
  home.writeFile("Library/Caches/two.bin", "cache");
  const auto checkedTwo = identitySnapshot(home / "Library/Caches/two.bin");
  { std::ofstream(home / "Library/Caches/two.bin", std::ios::app) << " and the user's new data"; }
  EXPECT_EQ(removeWithoutFollowingLinks(home / "Library/Caches/two.bin", checkedTwo),
            kRemovalIdentityChanged);
  EXPECT_TRUE(exists(home / "Library/Caches/two.bin"));
  std::filesystem::remove(home / "Library/Caches/two.bin");

  // Unchanged, both go.
  const auto file = identitySnapshot(home / "Library/Caches/one.bin");
  EXPECT_EQ(removeWithoutFollowingLinks(home / "Library/Caches/one.bin", file), std::nullopt);
  EXPECT_FALSE(exists(home / "Library/Caches/one.bin"));
}

TEST(SafeRemoval, MountsInsideTheItemAreNeverEntered) {
  // Mounting needs a private mount namespace, made in a child process; where
  // the system refuses one, there is nothing to test.
  TemporaryDirectory home;
  home.writeFile("Documents/thesis.tex", "precious");
  home.writeFile("Library/Caches/app/data", "cache");
  home.makeDirectory("Library/Caches/app/bound");
  home.makeDirectory("Library/Caches/ramdisk");
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
      ::_exit(77);
    }
    if (::mount((home / "Documents").c_str(), (home / "Library/Caches/app/bound").c_str(), nullptr,
                MS_BIND, nullptr) != 0 ||
        ::mount("tmpfs", (home / "Library/Caches/ramdisk").c_str(), "tmpfs", 0, nullptr) != 0) {
      ::_exit(77);
    }
    std::ofstream(home / "Library/Caches/ramdisk/on-tmpfs") << "precious";
    const bool boundKept = removeWithoutFollowingLinks(home / "Library/Caches/app").has_value() &&
                           exists(home / "Library/Caches/app/bound/thesis.tex");
    const bool mountKept =
        removeWithoutFollowingLinks(home / "Library/Caches/ramdisk").has_value() &&
        exists(home / "Library/Caches/ramdisk/on-tmpfs");
    ::_exit(boundKept && mountKept ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no private mount namespace here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(exists(home / "Documents/thesis.tex"));
}

}  // namespace
}  // namespace brisko
