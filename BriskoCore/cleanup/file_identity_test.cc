#include "cleanup/file_identity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

#include "testing/deep_nest.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;

std::int64_t duBytes(const std::string& path) {
  // du -s -B1 --apparent-size=no counts allocated bytes; -P never follows links.
  const auto result = testing::runProcess({"du", "-sPB1", "--", path});
  return std::stoll(result.standardOutput);
}

TEST(FileIdentity, DescribesTheLinkNotItsTarget) {
  TemporaryDirectory home;
  const std::string file = home.writeFile("file", "12345");
  const std::string link = home.makeSymlink("link", file);
  const auto fileIdentity = identitySnapshot(file);
  const auto linkIdentity = identitySnapshot(link);
  ASSERT_TRUE(fileIdentity && linkIdentity);
  EXPECT_EQ(fileIdentity->fileType, static_cast<std::uint32_t>(S_IFREG));
  EXPECT_EQ(fileIdentity->logicalBytes, 5);
  EXPECT_EQ(linkIdentity->fileType, static_cast<std::uint32_t>(S_IFLNK));
  EXPECT_NE(linkIdentity->fileID, fileIdentity->fileID);
  EXPECT_FALSE(identitySnapshot(home / "missing"));
}

TEST(FileIdentity, ModificationTimeKeepsItsNanoseconds) {
  TemporaryDirectory home;
  const std::string file = home.writeFile("file", "x");
  const timespec times[2] = {{0, UTIME_OMIT}, {1'700'000'000, 123'456'789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_EQ(identitySnapshot(file)->modificationTimeNanoseconds, 1'700'000'000'123'456'789);
}

TEST(MeasuredBytes, AgreesWithDuAndNeverCountsThroughLinks) {
  TemporaryDirectory home;
  home.writeFile("Caches/app/a", std::string(10000, 'a'));
  home.writeFile("Caches/app/sub/b", std::string(70000, 'b'));
  home.writeFile("Caches/app/sub/.hidden", "h");
  home.writeFile("Outside/huge", std::string(200000, 'x'));
  home.makeSymlink("Caches/app/to-outside", home / "Outside");
  home.makeSymlink("Caches/app/sub/to-huge", home / "Outside/huge");

  // du counts each folder's own blocks too; the measure counts files only.
  const std::int64_t files = measuredBytes(home / "Caches/app/a") +
                             measuredBytes(home / "Caches/app/sub/b") +
                             measuredBytes(home / "Caches/app/sub/.hidden");
  EXPECT_EQ(measuredBytes(home / "Caches/app"), files);
  EXPECT_EQ(measuredBytes(home / "Caches/app/a"), duBytes(home / "Caches/app/a"));
  EXPECT_GE(files, 80000);
  EXPECT_LT(measuredBytes(home / "Caches/app"), duBytes(home / "Outside"));
  EXPECT_EQ(measuredBytes(home / "Caches/app/to-outside"), 0);
  EXPECT_EQ(measuredBytes(home / "missing"), 0);
}

TEST(MeasuredBytes, APackageInsideCountsAsNothingAsInTheScan) {
  TemporaryDirectory home;
  const std::string data = home.writeFile("Caches/app/data", std::string(8192, 'd'));
  home.writeFile("Caches/app/Updater.app/Contents/MacOS/updater", std::string(500000, 'u'));
  EXPECT_EQ(measuredBytes(home / "Caches/app"), measuredBytes(data));
  // The item itself may be one: what it holds is what it frees.
  EXPECT_GT(measuredBytes(home / "Caches/app/Updater.app"), 400000);
}

TEST(MeasuredBytes, NestsOfAnyDepthUnderTheUsualOpenFileLimit) {
  // A program that can write into a cache can nest it this deep: the measure
  // must neither recurse once per level nor hold a descriptor per level, and
  // must count what lies past PATH_MAX.
  struct Case {
    int depth;
    std::string name;
  };
  const Case cases[] = {{2100, "d"}, {25000, "d"}, {300, std::string(200, 'n')}};
  for (const Case& nest : cases) {
    TemporaryDirectory home;
    const std::string top = home.makeDirectory("Caches/app");
    testing::makeDeepNest(top, nest.depth, nest.name, "data");
    const std::int64_t oneLevel = testing::allocatedBytesOfOneLevel(top, nest.name);
    ASSERT_GT(oneLevel, 0);
    const testing::OpenFileLimit limit(1024);
    EXPECT_EQ(measuredBytes(top), oneLevel * nest.depth) << nest.depth << " levels";
  }
}

}  // namespace
}  // namespace brisko
