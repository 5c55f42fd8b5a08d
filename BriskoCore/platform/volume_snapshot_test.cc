#include "platform/volume_snapshot.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

constexpr const char* kMountinfo =
    "22 1 254:1 / / rw,relatime shared:1 - ext4 /dev/vda1 rw\n"
    "23 22 0:21 / /proc rw - proc proc rw\n"
    "30 22 254:2 / /home rw - ext4 /dev/vda2 rw\n"
    "31 30 254:3 / /home/ada/My\\040Disk rw - ext4 /dev/vda3 rw\n"
    "40 22 0:40 / /work rw - overlay overlay rw\n"
    "41 22 0:41 / /work rw - tmpfs tmpfs rw\n"
    "malformed line\n";

TEST(MountPoint, TheLongestHoldingMountPointWins) {
  EXPECT_EQ(mountPointHolding(kMountinfo, "/home/ada"), "/home");
  EXPECT_EQ(mountPointHolding(kMountinfo, "/home"), "/home");
  EXPECT_EQ(mountPointHolding(kMountinfo, "/homeless"), "/");
  EXPECT_EQ(mountPointHolding(kMountinfo, "/home/ada/My Disk/x"), "/home/ada/My Disk");
  EXPECT_EQ(mountPointHolding(kMountinfo, "/work/main"), "/work");
  EXPECT_EQ(mountPointHolding("", "/anything"), "/");
}

TEST(VolumeSnapshot, AMissingPathIsAClearError) {
  try {
    volumeSnapshot("/nonexistent/brisko");
    FAIL();
  } catch (const VolumeError& error) {
    EXPECT_NE(std::string(error.what()).find("/nonexistent/brisko"), std::string::npos);
    EXPECT_NE(std::string(error.what()).find("No such file"), std::string::npos);
  }
}

}  // namespace
}  // namespace brisko
