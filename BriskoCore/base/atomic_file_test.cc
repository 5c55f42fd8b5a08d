#include "base/atomic_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/file_contents.h"
#include "base/uuid.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;

std::string contentsOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

mode_t modeOf(const std::string& path) {
  struct stat info;
  EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

TEST(AtomicFile, ReplacesTheWholeFileAndLeavesNoTemporaryBehind) {
  TemporaryDirectory folder;
  const std::string path = folder.writeFile("settings.json", "old contents that are longer");
  writeFileAtomically(path, "new", 0600);
  EXPECT_EQ(contentsOf(path), "new");
  EXPECT_EQ(modeOf(path), 0600u);
  size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    ++entries;
  }
  EXPECT_EQ(entries, 1u);
}

TEST(AtomicFile, ALinkAtTheTargetIsReplacedNotFollowed) {
  TemporaryDirectory folder;
  const std::string outside = folder.writeFile("outside", "keep me");
  const std::string link = folder.makeSymlink("target", outside);
  writeFileAtomically(link, "replaced");
  EXPECT_EQ(contentsOf(outside), "keep me");
  EXPECT_FALSE(std::filesystem::is_symlink(link));
  EXPECT_EQ(contentsOf(link), "replaced");
}

TEST(AtomicFile, AFailureLeavesTheOldFile) {
  TemporaryDirectory folder;
  EXPECT_THROW(writeFileAtomically(folder / "missing-folder/file", "x"), std::system_error);
  // A folder in the way of the rename.
  folder.makeDirectory("occupied/inner");
  EXPECT_THROW(writeFileAtomically(folder / "occupied", "x"), std::system_error);
  EXPECT_TRUE(std::filesystem::is_directory(folder / "occupied/inner"));
  size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    ++entries;
  }
  EXPECT_EQ(entries, 1u) << "a temporary file was left behind";
}

TEST(AtomicFile, StaleTemporaryFilesOfKilledWritesAreSwept) {
  TemporaryDirectory folder;
  const std::string uuid = Uuid::random().text();
  const auto ageBy = [](const std::string& path, time_t seconds) {
    const timespec times[2] = {{::time(nullptr) - seconds, 0}, {::time(nullptr) - seconds, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
  };
  const struct {
    const char* name;
    std::string path;
    time_t age;
    bool swept;
  } rows[] = {
      {"an old temporary file", folder.writeFile("plan.json.tmp-" + uuid, "x"), 7200, true},
      {"a young one, maybe still written", folder.writeFile("cache.json.tmp-" + uuid, "x"), 60,
       false},
      {"a name that only looks alike", folder.writeFile("notes.tmp-draft", "x"), 7200, false},
      {"a folder of that name", folder.makeDirectory("old.json.tmp-" + uuid), 7200, false},
      {"a link of that name", folder.makeSymlink("link.json.tmp-" + uuid, "/etc/hostname"), 7200,
       false},
      {"the data file itself", folder.writeFile("plan.json", "x"), 7200, false},
  };
  for (const auto& row : rows)
    ageBy(row.path, row.age);
  sweepStaleTemporaryFiles(folder.path());
  for (const auto& row : rows) {
    EXPECT_EQ(std::filesystem::exists(std::filesystem::symlink_status(row.path)), !row.swept)
        << row.name;
  }
}

TEST(FileContents, OnlyARegularFileOfItsOwnIsRead) {
  TemporaryDirectory folder;
  const std::string file = folder.writeFile("data.json", "{}");
  ASSERT_EQ(::mkfifo((folder / "fifo.json").c_str(), 0600), 0);
  folder.makeSymlink("link.json", file);
  EXPECT_EQ(readFileContents(file), "{}");
  // A FIFO without a writer would hold a blocking reader for ever.
  EXPECT_EQ(readFileContents(folder / "fifo.json"), std::nullopt);
  EXPECT_EQ(readFileContents(folder / "link.json"), std::nullopt);
  EXPECT_EQ(readFileContents(folder.path()), std::nullopt);
  EXPECT_EQ(readFileContents(file, 1), std::nullopt);
}

TEST(PrivateDirectories, CreatesParentsAndTightensAnExistingFolder) {
  TemporaryDirectory folder;
  const std::string deep = folder / "a/b/c";
  createPrivateDirectories(deep);
  EXPECT_EQ(modeOf(deep), 0700u);
  ::chmod(deep.c_str(), 0755);
  createPrivateDirectories(deep + "/");
  EXPECT_EQ(modeOf(deep), 0700u);
  const std::string file = folder.writeFile("file");
  EXPECT_THROW(createPrivateDirectories(file), std::system_error);
}

}  // namespace
}  // namespace brisko
