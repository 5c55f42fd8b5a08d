#include "cleanup/file_identity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

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

}  // namespace
}  // namespace brisko
