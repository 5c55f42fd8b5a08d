#include "base/atomic_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

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
