#include "platform/bulk_directory_lister.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using Kind = BulkDirectoryEntry::Kind;

const BulkDirectoryEntry* find(const std::vector<BulkDirectoryEntry>& entries,
                               const std::string& name) {
  auto found = std::find_if(entries.begin(), entries.end(),
                            [&](const BulkDirectoryEntry& entry) { return entry.name == name; });
  return found == entries.end() ? nullptr : &*found;
}

std::int64_t allocatedBytesOf(const std::string& path) {
  struct stat info;
  EXPECT_EQ(::lstat(path.c_str(), &info), 0);
  return static_cast<std::int64_t>(info.st_blocks) * 512;
}

// Both listings must give the same kinds and sizes; only the bulk one sees
// sharing.
class BulkDirectoryListerTest : public ::testing::TestWithParam<bool> {
 protected:
  BulkDirectoryLister::Result list(const std::string& path) {
    return GetParam() ? BulkDirectoryLister::list(path) : BulkDirectoryLister::listSlowly(path);
  }
};

TEST_P(BulkDirectoryListerTest, ReportsEveryKindWithoutFollowingLinks) {
  testing::TemporaryDirectory folder;
  const std::string file = folder.writeFile("d/file.bin", std::string(20000, 'x'));
  ASSERT_EQ(::link(file.c_str(), (folder / "d/hardlink").c_str()), 0);
  folder.makeDirectory("d/sub");
  folder.writeFile("d/sub/inner", std::string(50000, 'y'));
  folder.makeSymlink("d/to-sub", folder / "d/sub");
  folder.makeSymlink("d/dangling", folder / "nowhere");
  ASSERT_EQ(::mkfifo((folder / "d/pipe").c_str(), 0600), 0);
  ASSERT_EQ(::utimensat(
                AT_FDCWD, file.c_str(),
                std::array<timespec, 2>{timespec{1000, 0}, timespec{1700000000, 999999999}}.data(),
                AT_SYMLINK_NOFOLLOW),
            0);

  auto result = list(folder / "d");
  auto* entries = std::get_if<std::vector<BulkDirectoryEntry>>(&result);
  ASSERT_NE(entries, nullptr);
  EXPECT_EQ(entries->size(), 6u);  // no "." or ".."

  const auto* bin = find(*entries, "file.bin");
  ASSERT_NE(bin, nullptr);
  EXPECT_EQ(bin->kind, Kind::file);
  EXPECT_EQ(bin->allocatedBytes, allocatedBytesOf(file));
  EXPECT_GT(bin->allocatedBytes, 0);
  EXPECT_EQ(bin->mayShareStorage, GetParam());  // link count 2
  ASSERT_TRUE(bin->modificationDate.has_value());
  EXPECT_EQ(*bin->modificationDate, Date(std::chrono::seconds(1700000000)));  // whole seconds

  const auto* sub = find(*entries, "sub");
  ASSERT_NE(sub, nullptr);
  EXPECT_EQ(sub->kind, Kind::directory);
  EXPECT_EQ(sub->allocatedBytes, 0);
  EXPECT_FALSE(sub->mayShareStorage);

  for (const char* name : {"to-sub", "dangling"}) {
    const auto* link = find(*entries, name);
    ASSERT_NE(link, nullptr) << name;
    EXPECT_EQ(link->kind, Kind::symlink);
    EXPECT_EQ(link->allocatedBytes, 0);
  }
  const auto* pipe = find(*entries, "pipe");
  ASSERT_NE(pipe, nullptr);
  EXPECT_EQ(pipe->kind, Kind::other);
  EXPECT_EQ(pipe->allocatedBytes, 0);
}

TEST_P(BulkDirectoryListerTest, EmptyFolderLinkToFolderAndMissingFolder) {
  testing::TemporaryDirectory folder;
  folder.makeDirectory("empty");
  folder.makeSymlink("link", folder / "empty");

  auto empty = list(folder / "empty");
  ASSERT_TRUE(std::holds_alternative<std::vector<BulkDirectoryEntry>>(empty));
  EXPECT_TRUE(std::get<std::vector<BulkDirectoryEntry>>(empty).empty());

  // A link to a folder is never listed as its target.
  auto link = list(folder / "link");
  ASSERT_TRUE(std::holds_alternative<BulkDirectoryLister::Failure>(link));
  EXPECT_EQ(std::get<BulkDirectoryLister::Failure>(link).kind,
            BulkDirectoryLister::Failure::Kind::failed);

  auto missing = list(folder / "missing");
  ASSERT_TRUE(std::holds_alternative<BulkDirectoryLister::Failure>(missing));
  EXPECT_EQ(std::get<BulkDirectoryLister::Failure>(missing),
            (BulkDirectoryLister::Failure{BulkDirectoryLister::Failure::Kind::failed, ENOENT}));
}

TEST_P(BulkDirectoryListerTest, ReadsAFolderLargerThanOneBuffer) {
  testing::TemporaryDirectory folder;
  folder.makeDirectory("many");
  const std::string longName(200, 'n');
  for (int i = 0; i < 3000; ++i)  // about 650 KB of records
    folder.writeFile("many/" + longName + std::to_string(i));
  auto result = list(folder / "many");
  auto* entries = std::get_if<std::vector<BulkDirectoryEntry>>(&result);
  ASSERT_NE(entries, nullptr);
  EXPECT_EQ(entries->size(), 3000u);
}

INSTANTIATE_TEST_SUITE_P(BulkAndSlow, BulkDirectoryListerTest, ::testing::Bool());

// Runs as user 65534 (see BulkDirectoryListerPermissions below).
TEST(BulkDirectoryListerAsOrdinaryUser, RefusedFoldersArePermissionDenied) {
  const std::string base = testing::ordinaryUserArgument("BRISKO_LISTER_TREE");
  if (base.empty()) GTEST_SKIP() << "runs only as the ordinary user";
  const std::string root = base;
  for (auto result : {BulkDirectoryLister::list(root + "/closed"),
                      BulkDirectoryLister::listSlowly(root + "/closed")}) {
    ASSERT_TRUE(std::holds_alternative<BulkDirectoryLister::Failure>(result));
    EXPECT_EQ(std::get<BulkDirectoryLister::Failure>(result).kind,
              BulkDirectoryLister::Failure::Kind::permissionDenied);
  }
  // Readable but not searchable: the names can be read, their sizes not. The
  // listing is whole or nothing.
  auto unsearchable = BulkDirectoryLister::list(root + "/readonly");
  ASSERT_TRUE(std::holds_alternative<BulkDirectoryLister::Failure>(unsearchable));
  EXPECT_EQ(std::get<BulkDirectoryLister::Failure>(unsearchable).kind,
            BulkDirectoryLister::Failure::Kind::permissionDenied);
  auto open = BulkDirectoryLister::list(root + "/open");
  ASSERT_TRUE(std::holds_alternative<std::vector<BulkDirectoryEntry>>(open));
}

TEST(BulkDirectoryListerPermissions, RefusedFoldersArePermissionDenied) {
  testing::TemporaryDirectory folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  folder.writeFile("closed/secret", "x");
  folder.writeFile("readonly/file", "x");
  folder.writeFile("open/file", "x");
  ASSERT_EQ(::chmod((folder / "closed").c_str(), 0000), 0);
  ASSERT_EQ(::chmod((folder / "readonly").c_str(), 0444), 0);
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("BulkDirectoryListerAsOrdinaryUser.*",
                                            {{"BRISKO_LISTER_TREE", folder.path()}}),
            0);
}

}  // namespace
}  // namespace brisko
