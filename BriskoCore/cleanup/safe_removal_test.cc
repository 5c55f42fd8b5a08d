#include "cleanup/safe_removal.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

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

}  // namespace
}  // namespace brisko
