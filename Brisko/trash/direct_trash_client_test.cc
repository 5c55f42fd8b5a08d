#include "trash/direct_trash_client.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "base/file_contents.h"
#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"
#include "testing/trash_folder.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;
using testing::TrashFolder;

bool exists(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
}

const FinderTrash::Entry* entryNamed(const FinderTrash::Inventory& inventory,
                                     const std::string& name) {
  for (const auto& entry : inventory.entries) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

class HomeTrash : public ::testing::Test {
 protected:
  std::string dataHome() const { return folder_ / "home/.local/share"; }
  DirectTrashClient client(std::int64_t budget = DirectTrashClient::kFileBudget) const {
    return DirectTrashClient(dataHome(), "", ::geteuid(), budget);
  }

  TemporaryDirectory folder_;
  TrashFolder trash_{folder_ / "home/.local/share/Trash"};
};

TEST_F(HomeTrash, MeasuresEveryEntryAsDuDoesAndSortsLargestFirst) {
  const std::string outside = folder_.writeFile("outside/big", std::string(300000, 'b'));
  trash_.addFile("file 10", 5000);
  trash_.addFile("File 9", 5000);  // same size: numbers by value, case ignored
  trash_.addFile("empty", 0);
  trash_.addFolder("folder", 7, 9000);
  trash_.addLink("link", outside);
  trash_.addLink("long link", std::string(200, 'x'));  // stored in a block of its own
  trash_.addFile(".DS_Store", 6000);
  // Two names of one file inside an entry count once.
  trash_.addFolder("hard links", 1, 20000);
  ASSERT_EQ(::link(trash_.entry("hard links/0").c_str(), trash_.entry("hard links/again").c_str()),
            0);
  // An entry whose .trashinfo is missing still counts.
  folder_.writeFile("home/.local/share/Trash/files/no info", std::string(100, 'n'));

  const auto inventory = client().inventory();
  ASSERT_EQ(inventory.entries.size(), 8u);
  for (const auto& entry : inventory.entries) {
    SCOPED_TRACE(entry.name);
    EXPECT_EQ(entry.bytes, testing::duBytes(trash_.entry(entry.name)));
    EXPECT_TRUE(entry.isSizeComplete);
  }
  EXPECT_EQ(inventory.entries.front().name, "folder");
  for (size_t i = 1; i < inventory.entries.size(); ++i)
    EXPECT_GE(inventory.entries[i - 1].bytes, inventory.entries[i].bytes);
  EXPECT_LT(entryNamed(inventory, "File 9") - entryNamed(inventory, "file 10"), 0);
  // Ordinals are places in the listing: each once.
  std::vector<bool> seen(inventory.entries.size());
  for (const auto& entry : inventory.entries)
    seen.at(static_cast<size_t>(entry.ordinal)) = true;
  EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 8);
}

TEST_F(HomeTrash, AFileBudgetBoundsTheMeasuringAndMarksWhatItCut) {
  trash_.addFolder("a", 10, 4096);
  trash_.addFolder("b", 10, 4096);
  const struct {
    std::int64_t budget;
    bool complete;
  } cases[] = {{1000, true}, {24, true}, {23, false}, {5, false}, {0, false}};
  const std::int64_t whole =
      testing::duBytes(trash_.entry("a")) + testing::duBytes(trash_.entry("b"));
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.budget);
    const auto inventory = client(testCase.budget).inventory();
    ASSERT_EQ(inventory.entries.size(), 2u);
    const bool complete =
        inventory.entries[0].isSizeComplete && inventory.entries[1].isSizeComplete;
    EXPECT_EQ(complete, testCase.complete);
    if (complete) {
      EXPECT_EQ(inventory.totalBytes(), whole);
    } else {
      EXPECT_LT(inventory.totalBytes(), whole);
    }
  }
}

TEST_F(HomeTrash, EmptyingRemovesEntriesTheirInfoAndStaleBookkeeping) {
  const std::string outside = folder_.makeDirectory("outside");
  folder_.writeFile("outside/kept", "target of a link");
  trash_.addFile("file", 5000);
  trash_.addFolder("folder", 6, 3000);
  trash_.addLink("link to a folder", outside);
  trash_.addFile(".DS_Store", 10);
  trash_.addInfo("gone long ago");  // an info file without its entry
  folder_.writeFile("home/.local/share/Trash/info/notes.txt", "not ours");
  folder_.writeFile("home/.local/share/Trash/directorysizes",
                    "12288 1700000000 folder\n4096 1700000000 gone%20long%20ago\n");
  const std::string unusualName = "caf\xE9 \xFF";  // not UTF-8
  trash_.addFile(unusualName, 100);
  EXPECT_NE(entryNamed(client().inventory(), "caf\xEF\xBF\xBD \xEF\xBF\xBD"), nullptr);

  client().empty();
  EXPECT_TRUE(client().inventory().entries.empty());
  for (const auto& name : {"file", "folder", "link to a folder", ".DS_Store", unusualName.c_str()})
    EXPECT_FALSE(exists(trash_.info() + "/" + name + ".trashinfo")) << name;
  EXPECT_FALSE(exists(trash_.info() + "/gone long ago.trashinfo"));
  EXPECT_TRUE(exists(trash_.info() + "/notes.txt"));
  EXPECT_EQ(readFileContents(trash_.path() + "/directorysizes"), "");
  EXPECT_EQ(readFileContents(outside + "/kept"), "target of a link");
}

TEST_F(HomeTrash, ALinkedTrashIsRefusedAndALinkedDataHomeFollowedOnce) {
  // Dotfile managers link ~/.local/share: that is followed.
  const std::string realShare = folder_.makeDirectory("dotfiles/share");
  TrashFolder elsewhere(realShare + "/Trash");
  elsewhere.addFile("kept in the real share", 4096);
  folder_.makeSymlink("linked/.local/share", realShare);
  DirectTrashClient linkedShare(folder_ / "linked/.local/share", "", ::geteuid());
  ASSERT_EQ(linkedShare.inventory().entries.size(), 1u);

  // A Trash that is itself a link is never read or emptied.
  folder_.makeSymlink("other/.local/share/Trash", realShare + "/Trash");
  DirectTrashClient linkedTrash(folder_ / "other/.local/share", "", ::geteuid());
  for (const auto& operation : {std::function<void()>([&] { linkedTrash.inventory(); }),
                                std::function<void()>([&] { linkedTrash.empty(); })}) {
    try {
      operation();
      ADD_FAILURE() << "a linked Trash was used";
    } catch (const FinderTrash::Failure& failure) {
      EXPECT_EQ(failure.reason(), FinderTrash::Failure::Reason::other);
      EXPECT_EQ(failure.message(), "Can\u2019t read the Trash.");
    }
  }
  EXPECT_TRUE(exists(elsewhere.entry("kept in the real share")));

  // No Trash at all is an empty one.
  EXPECT_TRUE(DirectTrashClient(folder_ / "nobody", "", ::geteuid()).inventory().entries.empty());
}

TEST_F(HomeTrash, AFolderSwappedForALinkWhileEmptyingNeverTakesTheOutsideAlong) {
  const std::string outside = folder_.makeDirectory("outside");
  for (int round = 0; round < 30; ++round) {
    SCOPED_TRACE(round);
    for (int i = 0; i < 50; ++i)
      folder_.writeFile("outside/keep" + std::to_string(i), "precious");
    const std::string victim = trash_.addFolder("victim", 200, 10);
    const std::string sub = victim + "/inner";
    const std::string parked = folder_ / "parked";
    std::atomic<bool> done{false};
    std::thread swapper([&] {
      // Put a link to the outside where the folder was, and back, as fast as it goes.
      while (!done.load()) {
        if (::rename(sub.c_str(), parked.c_str()) == 0) {
          ::symlink(outside.c_str(), sub.c_str());
          std::this_thread::yield();
          ::unlink(sub.c_str());
          ::rename(parked.c_str(), sub.c_str());
        }
      }
    });
    try {
      client().empty();
    } catch (const FinderTrash::Failure&) {
      // The swap may make the entry fail; it must not widen what goes.
    }
    done = true;
    swapper.join();
    for (int i = 0; i < 50; ++i)
      ASSERT_EQ(readFileContents(outside + "/keep" + std::to_string(i)), "precious");
    testing::removeTree(victim);
    testing::removeTree(parked);
  }
}

// Run as an ordinary user by the test below.
TEST(HomeTrashAsOrdinaryUser, AnUnreadableEntryIsIncompleteAndKeptWithItsInfo) {
  const std::string dataHome = testing::ordinaryUserArgument("BRISKO_TEST_TRASH_DATA_HOME");
  if (dataHome.empty()) GTEST_SKIP() << "runs as an ordinary user only";
  DirectTrashClient client(dataHome, "", ::geteuid());
  const auto inventory = client.inventory();
  ASSERT_EQ(inventory.entries.size(), 2u);
  const auto* locked = entryNamed(inventory, "locked");
  ASSERT_NE(locked, nullptr);
  EXPECT_FALSE(locked->isSizeComplete);
  EXPECT_TRUE(entryNamed(inventory, "readable")->isSizeComplete);

  try {
    client.empty();
    ADD_FAILURE() << "the unreadable entry was not reported";
  } catch (const FinderTrash::Failure& failure) {
    EXPECT_EQ(failure.message(),
              "Can\u2019t remove \u201Clocked\u201D from the Trash: Permission denied");
  }
  const TrashFolder trash(dataHome + "/Trash");
  EXPECT_FALSE(exists(trash.entry("readable")));
  EXPECT_FALSE(exists(trash.info() + "/readable.trashinfo"));
  EXPECT_TRUE(exists(trash.info() + "/locked.trashinfo"));
}

TEST_F(HomeTrash, AnUnreadableEntryIsIncompleteAndKeptWithItsInfoForAnOrdinaryUser) {
  trash_.addFolder("readable", 3, 100);
  const std::string locked = trash_.addFolder("locked", 3, 100);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(std::system(("chown -R 65534:65534 '" + folder_.path() + "/home'").c_str()), 0);
  ASSERT_EQ(::chmod(locked.c_str(), 0), 0);
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("HomeTrashAsOrdinaryUser.*",
                                            {{"BRISKO_TEST_TRASH_DATA_HOME", dataHome()}}),
            0);
  ::chmod(locked.c_str(), 0755);
}

}  // namespace
}  // namespace brisko
