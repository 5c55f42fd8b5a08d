// What GLib's own `gio trash` puts into the Trash, Brisko must list and empty
// as any file manager would: the two must agree on the freedesktop.org Trash.

#include <unistd.h>

#include <gtest/gtest.h>

#include "base/file_contents.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"
#include "testing/trash_folder.h"
#include "trash/direct_trash_client.h"

namespace brisko {
namespace {

using testing::ProcessResult;
using testing::TemporaryDirectory;

class GioTrash : public ::testing::Test {
 protected:
  void SetUp() override {
    if (testing::runProcess({"sh", "-c", "command -v gio && command -v dbus-run-session"})
            .exitStatus != 0) {
      GTEST_SKIP() << "needs gio (libglib2.0-bin) and dbus-run-session (dbus-daemon)";
    }
    home_ = folder_.makeDirectory("home");
  }

  // Runs gio on a session bus of its own, as a desktop session would, so
  // that gvfs's trash backend answers `trash://`.
  ProcessResult gio(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"timeout", "60", "dbus-run-session", "--", "gio"});
    testing::ProcessOptions options;
    options.environment = {{"HOME", home_}, {"XDG_DATA_HOME", dataHome()}};
    options.unsetEnvironment = {"DBUS_SESSION_BUS_ADDRESS"};
    return testing::runProcess(arguments, options);
  }

  std::string dataHome() const { return home_ + "/.local/share"; }
  DirectTrashClient client() const { return DirectTrashClient(dataHome(), "", ::geteuid()); }

  TemporaryDirectory folder_;
  std::string home_;
};

TEST_F(GioTrash, WhatGioTrashedIsListedAtDuSizesAndEmptiedLeavingLinkTargetsWhole) {
  const std::string outside = folder_.makeDirectory("outside");
  folder_.writeFile("outside/target", std::string(50000, 't'));
  folder_.writeFile("home/a file with 100% and spaces.txt", std::string(9000, 'a'));
  folder_.writeFile("home/caf\xC3\xA9.txt", "non-ASCII name");
  for (int i = 0; i < 20; ++i)
    folder_.writeFile("home/Folder/inner/" + std::to_string(i), std::string(3000, 'f'));
  folder_.makeSymlink("home/link to outside", outside);
  const std::vector<std::string> names = {"a file with 100% and spaces.txt", "caf\xC3\xA9.txt",
                                          "Folder", "link to outside"};
  std::vector<std::string> arguments = {"trash"};
  for (const auto& name : names)
    arguments.push_back(home_ + "/" + name);
  const ProcessResult trashed = gio(arguments);
  ASSERT_EQ(trashed.exitStatus, 0) << trashed.standardError;

  // gio writes the original path percent-encoded, as the freedesktop.org Trash standard asks.
  const testing::TrashFolder trash(dataHome() + "/Trash");
  const auto info = readFileContents(trash.info() + "/caf\xC3\xA9.txt.trashinfo");
  ASSERT_TRUE(info);
  EXPECT_NE(info->find("Path=" + home_ + "/caf%C3%A9.txt\n"), std::string::npos) << *info;

  const auto inventory = client().inventory();
  ASSERT_EQ(inventory.entries.size(), names.size());
  for (const auto& name : names) {
    SCOPED_TRACE(name);
    const FinderTrash::Entry* found = nullptr;
    for (const auto& entry : inventory.entries) {
      if (entry.name == name) found = &entry;
    }
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->bytes, testing::duBytes(trash.entry(name)));
  }
  EXPECT_EQ(inventory.entries.front().name, "Folder");
  EXPECT_EQ(testing::linesOf(gio({"trash", "--list"}).standardOutput).size(), names.size());

  client().empty();
  EXPECT_TRUE(client().inventory().entries.empty());
  EXPECT_EQ(readFileContents(outside + "/target"), std::string(50000, 't'));
  // gvfs's view of the Trash agrees: nothing left in it.
  const ProcessResult listed = gio({"trash", "--list"});
  EXPECT_EQ(listed.exitStatus, 0) << listed.standardError;
  EXPECT_EQ(listed.standardOutput, "");
  EXPECT_EQ(gio({"list", "trash://"}).standardOutput, "");
}

}  // namespace
}  // namespace brisko
