#include "space/disk_usage.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>

#include "platform/file_probe.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using namespace std::chrono_literals;

// What `du -skP` says, in bytes.
std::int64_t duBytes(const std::string& path) {
  FILE* pipe = ::popen(("du -skP -- '" + path + "'").c_str(), "r");
  long long kilobytes = -1;
  EXPECT_EQ(std::fscanf(pipe, "%lld", &kilobytes), 1);
  ::pclose(pipe);
  return kilobytes * 1024;
}

std::int64_t statBytes(const std::string& path) {
  struct stat info;
  EXPECT_EQ(::lstat(path.c_str(), &info), 0);
  return static_cast<std::int64_t>(info.st_blocks) * 512;
}

void fill(const testing::TemporaryDirectory& folder, const std::string& base) {
  folder.writeFile(base + "/a", std::string(10000, 'a'));
  folder.writeFile(base + "/sub/b", std::string(70000, 'b'));
  folder.writeFile(base + "/sub/deeper/c", std::string(5000, 'c'));
  folder.makeSymlink(base + "/sub/up", folder.path());
}

TEST(DiskUsage, MeasuresABatchOfPathsOfEveryKind) {
  testing::TemporaryDirectory folder;
  fill(folder, "plain");
  fill(folder, "-dash");  // would be an option without "--"
  fill(folder, "tab\there");
  const std::string file = folder.writeFile("file.bin", std::string(30000, 'f'));
  const std::string link = folder.makeSymlink("link", folder / "plain");

  const std::vector<std::string> paths = {
      folder / "plain",   folder / "-dash", folder / "tab\there", file, link,
      folder / "missing", folder / "plain"};
  const auto sizes = DiskUsage::allocatedBytes(paths, 120s);
  EXPECT_EQ(sizes.size(), 6u);  // one key per distinct path
  for (const char* name : {"plain", "-dash", "tab\there"})
    EXPECT_EQ(sizes.at(folder / name), duBytes(folder / name)) << name;
  // du counts each folder's own blocks, the fallback walk doesn't: equal
  // sizes mean du's lines were read.
  EXPECT_GT(sizes.at(folder / "plain"), 0);
  EXPECT_EQ(sizes.at(file), statBytes(file));
  EXPECT_EQ(sizes.at(link), 0);
  EXPECT_EQ(sizes.at(folder / "missing"), 0);
}

TEST(FileProbe, WalksFoldersWithoutFollowingLinks) {
  testing::TemporaryDirectory folder;
  fill(folder, "tree");
  for (int i = 0; i < 600; ++i)  // a frontier of more than 512 folders
    folder.writeFile("wide/d" + std::to_string(i) + "/f", std::string(100, 'x'));
  std::int64_t files = 0;
  for (const char* name : {"tree/a", "tree/sub/b", "tree/sub/deeper/c"})
    files += statBytes(folder / name);
  EXPECT_EQ(FileProbe::allocatedBytes(folder / "tree"), files);
  std::int64_t allowance = 1'000'000;
  EXPECT_EQ(FileProbe::boundedBytes(folder / "tree", allowance), files);
  EXPECT_EQ(allowance, 1'000'000 - 6);  // a, sub, b, deeper, c, up

  std::int64_t wide = 0;
  for (int i = 0; i < 600; ++i)
    wide += statBytes(folder / ("wide/d" + std::to_string(i) + "/f"));
  EXPECT_EQ(FileProbe::allocatedBytes(folder / "wide"), wide);
  std::int64_t little = 2;
  EXPECT_LT(FileProbe::boundedBytes(folder / "wide", little), wide);
  EXPECT_EQ(little, 0);

  EXPECT_EQ(FileProbe::kind(folder / "tree"), FileProbe::Kind::directory);
  EXPECT_EQ(FileProbe::kind(folder / "tree/sub/up"), FileProbe::Kind::symlink);
  EXPECT_EQ(FileProbe::kind(folder / "tree/a"), FileProbe::Kind::fileOrOther);
  EXPECT_EQ(FileProbe::kind(folder / "nothing"), FileProbe::Kind::missing);
  EXPECT_EQ(FileProbe::allocatedBytes(folder / "tree/sub/up"), 0);
}

}  // namespace
}  // namespace brisko
