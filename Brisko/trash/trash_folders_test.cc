#include "trash/trash_folders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <sstream>

#include <gtest/gtest.h>

#include "testing/subprocess.h"
#include "testing/temporary_directory.h"
#include "testing/trash_folder.h"
#include "trash/direct_trash_client.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;
using testing::TrashFolder;
using Kind = TrashFolderLocation::Kind;

TEST(TrashFolderLocations, OnlyLocalDiskFileSystemsAreLookedAt) {
  const std::string mountinfo =
      "26 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
      "21 26 0:20 / /proc rw - proc proc rw\n"
      "24 23 0:22 / /dev/shm rw - tmpfs tmpfs rw\n"
      "40 26 0:40 / /net/home rw shared:4 - nfs4 server:/home rw\n"
      "41 26 0:41 / /mnt/remote rw - fuse.sshfs me@host: rw\n"
      "42 26 0:42 / /media/me/USB\\040stick rw shared:9 master:2 - fuseblk /dev/sdb1 rw\n"
      "43 26 0:43 / /auto rw - autofs systemd-1 rw\n"
      "44 26 8:1 /sub /media/me/USB\\040stick rw - ext4 /dev/sdb2 rw\n"
      "garbage line\n";
  const auto locations = trashFolderLocations("/nonexistent/share", mountinfo);
  std::vector<std::string> paths;
  for (const auto& location : locations)
    paths.push_back(location.path(1000));
  EXPECT_EQ(paths, (std::vector<std::string>{
                       "/nonexistent/share/Trash",
                       "/.Trash/1000",
                       "/.Trash-1000",
                       "/media/me/USB stick/.Trash/1000",
                       "/media/me/USB stick/.Trash-1000",
                   }));
  EXPECT_EQ(locations.front().kind, Kind::home);
}

// A real ext4 file system on a loop device: tmpfs can't stand in, since the
// Trash passes over in-memory file systems.
class LoopMountedExt4 : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "mounting needs root";
    const std::string image = folder_ / "disk.img";
    mountPoint_ = folder_.makeDirectory("mnt");
    const auto made = testing::runProcess({"mkfs.ext4", "-q", "-F", image, "8M"});
    if (made.exitStatus != 0) GTEST_SKIP() << "mkfs.ext4: " << made.standardError;
    const auto mounted = testing::runProcess({"mount", "-o", "loop", image, mountPoint_});
    if (mounted.exitStatus != 0) GTEST_SKIP() << "no loop mount here: " << mounted.standardError;
    isMounted_ = true;
    std::ifstream in("/proc/self/mountinfo");
    std::string line;
    while (std::getline(in, line)) {
      std::istringstream fields(line);
      std::string id, parent, device, root, point;
      fields >> id >> parent >> device >> root >> point;
      if (point == mountPoint_) mountTable_ += line + "\n";
    }
    ASSERT_FALSE(mountTable_.empty());
  }
  void TearDown() override {
    if (isMounted_) {
      EXPECT_EQ(testing::runProcess({"umount", mountPoint_}).exitStatus, 0);
    }
  }

  DirectTrashClient client() const {
    return DirectTrashClient(folder_ / "no-home", mountTable_, ::geteuid());
  }
  std::string onDisk(const std::string& relative) const { return mountPoint_ + "/" + relative; }
  void clearDisk() const {
    for (const auto& name : {".Trash", ".Trash-0", "elsewhere"})
      testing::removeTree(onDisk(name));
  }

  TemporaryDirectory folder_;
  std::string mountPoint_;
  std::string mountTable_;
  bool isMounted_ = false;
};

TEST_F(LoopMountedExt4, BothTrashFoldersOfTheUserAreListedAndEmptied) {
  TrashFolder own(onDisk(".Trash-0"));
  own.addFolder("folder", 5, 3000);
  ::mkdir(onDisk(".Trash").c_str(), 0);
  ::chmod(onDisk(".Trash").c_str(), 01777);
  TrashFolder shared(onDisk(".Trash/0"));
  shared.addFile("file", 70000);

  const auto inventory = client().inventory();
  ASSERT_EQ(inventory.entries.size(), 2u);
  EXPECT_EQ(inventory.entries[0].name, "file");
  EXPECT_EQ(inventory.entries[0].bytes, testing::duBytes(shared.entry("file")));
  EXPECT_EQ(inventory.entries[1].name, "folder");
  EXPECT_EQ(inventory.entries[1].bytes, testing::duBytes(own.entry("folder")));

  client().empty();
  EXPECT_TRUE(client().inventory().entries.empty());
  EXPECT_NE(::access(own.entry("folder").c_str(), F_OK), 0);
  EXPECT_NE(::access((shared.info() + "/file.trashinfo").c_str(), F_OK), 0);
}

TEST_F(LoopMountedExt4, TrashFoldersThatFailTheirChecksAreLeftAlone) {
  const struct {
    const char* name;
    std::function<std::string()> make;  // answers the entry that must stay
  } cases[] = {
      {".Trash without the sticky bit",
       [&] {
         ::mkdir(onDisk(".Trash").c_str(), 0777);
         return TrashFolder(onDisk(".Trash/0")).addFile("kept", 100);
       }},
      {".Trash that is a link",
       [&] {
         ::mkdir(onDisk("elsewhere").c_str(), 0);
         ::chmod(onDisk("elsewhere").c_str(), 01777);
         ::symlink("elsewhere", onDisk(".Trash").c_str());
         return TrashFolder(onDisk("elsewhere/0")).addFile("kept", 100);
       }},
      {".Trash-0 owned by another user",
       [&] {
         const std::string kept = TrashFolder(onDisk(".Trash-0")).addFile("kept", 100);
         ::chown(onDisk(".Trash-0").c_str(), 65534, 65534);
         return kept;
       }},
      {".Trash-0 that is a link",
       [&] {
         const std::string kept = TrashFolder(onDisk("elsewhere")).addFile("kept", 100);
         ::symlink("elsewhere", onDisk(".Trash-0").c_str());
         return kept;
       }},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    clearDisk();
    const std::string kept = testCase.make();
    EXPECT_TRUE(client().inventory().entries.empty());
    client().empty();
    EXPECT_EQ(::access(kept.c_str(), F_OK), 0);
  }
}

}  // namespace
}  // namespace brisko
