#include "platform/trash_mover.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "base/file_contents.h"
#include "testing/session_bus.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

bool exists(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
}

bool isLink(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

// Runs in a child with its own HOME, under a session bus (see TrashInSession):
// moves each line of BRISKO_TEST_TRASH_ITEMS and writes "moved" or the
// failure, one line each, to BRISKO_TEST_TRASH_REPORT.
TEST(TrashMoverChild, MovesEachListedItem) {
  const std::string items = variable("BRISKO_TEST_TRASH_ITEMS");
  if (items.empty()) GTEST_SKIP() << "runs only as a child of the Trash tests";
  std::ofstream report(variable("BRISKO_TEST_TRASH_REPORT"));
  for (const std::string& item : testing::linesOf(items)) {
    const auto failure = TrashMover::move(item);
    report << (failure ? *failure : std::string("moved")) << "\n";
  }
  ASSERT_TRUE(report.good());
}

// A temporary home folder and a Trash of its own, driven by children.
class TrashInSession : public ::testing::Test {
 protected:
  void SetUp() override { folder.makeDirectory("home/.local/share"); }

  testing::ProcessOptions sessionOptions() const {
    testing::ProcessOptions options;
    options.environment = {{"HOME", home}, {"XDG_DATA_HOME", dataHome}};
    return options;
  }

  // Moves the items in a child process; the outcome of each, in order.
  std::vector<std::string> moveInChild(const std::vector<std::string>& items) const {
    std::string lines;
    for (const auto& item : items)
      lines += item + "\n";
    testing::ProcessOptions options = sessionOptions();
    const std::string report = folder / "report";
    options.environment.push_back({"BRISKO_TEST_TRASH_ITEMS", lines});
    options.environment.push_back({"BRISKO_TEST_TRASH_REPORT", report});
    const auto result = testing::runTestsInSessionBus("TrashMoverChild.*", options);
    EXPECT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
    return testing::linesOf(readFileContents(report).value_or(""));
  }

  std::string gio(const std::vector<std::string>& arguments) const {
    std::vector<std::string> argv{"gio"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    const auto result = testing::runInSessionBus(argv, sessionOptions());
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    return result.standardOutput;
  }

  testing::TemporaryDirectory folder;
  const std::string home = folder / "home";
  const std::string dataHome = home + "/.local/share";
  const std::string trash = dataHome + "/Trash";
};

TEST_F(TrashInSession, MovesWhatFileManagersListAndRestore) {
  folder.writeFile("home/a b%c.txt", "spaces and percent");
  folder.writeFile("home/Old stuff/inner/notes", "in a folder");
  folder.writeFile("home/target/kept", "behind a link");
  folder.makeSymlink("home/shortcut", home + "/target");
  folder.writeFile("home/café.txt", "non-ASCII");

  const std::vector<std::string> outcomes = moveInChild(
      {home + "/a b%c.txt", home + "/Old stuff", home + "/shortcut", home + "/café.txt"});
  EXPECT_EQ(outcomes, std::vector<std::string>(4, "moved"));

  for (const char* gone : {"/a b%c.txt", "/Old stuff", "/shortcut", "/café.txt"})
    EXPECT_FALSE(exists(home + gone)) << gone;
  // A link goes as the link: its target stays whole where it was.
  EXPECT_TRUE(isLink(trash + "/files/shortcut"));
  EXPECT_EQ(readFileContents(home + "/target/kept"), "behind a link");
  EXPECT_EQ(readFileContents(trash + "/files/Old stuff/inner/notes"), "in a folder");
  // The original path, percent-encoded as the freedesktop.org Trash standard asks.
  const auto info = readFileContents(trash + "/info/café.txt.trashinfo");
  ASSERT_TRUE(info);
  EXPECT_NE(info->find("Path=" + home + "/caf%C3%A9.txt\n"), std::string::npos) << *info;
  EXPECT_NE(info->find("DeletionDate="), std::string::npos) << *info;

  const std::string listed = gio({"list", "trash://"});
  for (const char* name : {"a b%c.txt", "Old stuff", "shortcut", "café.txt"})
    EXPECT_NE(listed.find(std::string(name) + "\n"), std::string::npos) << name << " in " << listed;
  const std::string withOrigins = gio({"trash", "--list"});
  EXPECT_NE(withOrigins.find("\t" + home + "/a b%c.txt\n"), std::string::npos) << withOrigins;
  EXPECT_NE(withOrigins.find("\t" + home + "/Old stuff\n"), std::string::npos) << withOrigins;

  gio({"trash", "--restore", "trash:///a%20b%25c.txt"});
  EXPECT_EQ(readFileContents(home + "/a b%c.txt"), "spaces and percent");
  EXPECT_FALSE(exists(trash + "/info/a b%c.txt.trashinfo"));
}

TEST_F(TrashInSession, RefusesWhatGlibWouldGetWrongBeforeAskingIt) {
  folder.writeFile("home/.local/share/Trash/files/old", "already trashed");
  folder.makeDirectory("home/.local/share/Trash/info");
  folder.writeFile("home/keep", "stays");
  const std::vector<std::string> outcomes =
      moveInChild({trash + "/files/old", trash, dataHome, home + "/keep"});
  ASSERT_EQ(outcomes.size(), 4u);
  EXPECT_EQ(outcomes[0], TrashMover::kAlreadyInTrash);
  EXPECT_EQ(outcomes[1], TrashMover::kAlreadyInTrash);
  EXPECT_EQ(outcomes[2], TrashMover::kHoldsTrash);
  EXPECT_EQ(outcomes[3], "moved");
  EXPECT_EQ(readFileContents(trash + "/files/old"), "already trashed");
  EXPECT_TRUE(exists(trash + "/info/keep.trashinfo"));
}

TEST_F(TrashInSession, NeverWritesThroughALinkedTrash) {
  folder.makeDirectory("elsewhere");
  folder.makeSymlink("home/.local/share/Trash", folder / "elsewhere");
  folder.writeFile("home/item", "stays home");
  EXPECT_EQ(moveInChild({home + "/item"}), std::vector<std::string>{TrashMover::kLinkedTrash});
  EXPECT_EQ(readFileContents(home + "/item"), "stays home");
  EXPECT_TRUE(std::filesystem::is_empty(folder / "elsewhere"));
}

TEST_F(TrashInSession, GivesGiosWordsWhenTheMoveFails) {
  const auto outcomes = moveInChild({home + "/never-was"});
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_NE(outcomes[0], "moved");
  EXPECT_NE(outcomes[0].find("No such file or directory"), std::string::npos) << outcomes[0];
}

// The checks alone, in this process: they read the disk but never GLib's
// idea of the home, so any data folder can be named.
TEST(TrashMoverRefusal, JudgesTheItemWhereItReallyIs) {
  testing::TemporaryDirectory folder;
  const std::string uid = std::to_string(::getuid());
  const std::string data = folder.makeDirectory("real-share");
  folder.makeDirectory("real-share/Trash/files/inside");
  folder.makeSymlink("linked-share", data);  // a linked ~/.local/share is fine
  folder.writeFile("plain");
  folder.makeDirectory("volume/.Trash-" + uid + "/files/x");
  folder.makeDirectory("volume/.Trash/" + uid + "/files/x");
  folder.makeDirectory("volume/.Trash/other-uid/files/x");
  folder.makeDirectory("odd-share/Trash/files");
  folder.makeSymlink("odd-share/Trash/info", folder / "plain");
  folder.makeDirectory("linked-trash-share");
  folder.makeSymlink("linked-trash-share/Trash", folder / "volume");

  const struct {
    std::string path;
    std::string dataDirectory;
    const char* refusal;  // none: GLib may have it
  } cases[] = {
      {folder / "plain", data, nullptr},
      {folder / "plain", folder / "linked-share", nullptr},
      {data + "/Trash/files/inside", data, TrashMover::kAlreadyInTrash},
      {folder / "linked-share/Trash/files/inside", data, TrashMover::kAlreadyInTrash},
      {data + "/Trash/files/inside", folder / "linked-share", TrashMover::kAlreadyInTrash},
      {data + "/Trash", data, TrashMover::kAlreadyInTrash},
      {data, data, TrashMover::kHoldsTrash},
      {folder.path(), data, TrashMover::kHoldsTrash},
      {folder / "volume/.Trash-" + uid + "/files/x", data, TrashMover::kAlreadyInTrash},
      {folder / "volume/.Trash/" + uid + "/files/x", data, TrashMover::kAlreadyInTrash},
      {folder / "volume/.Trash/other-uid/files/x", data, nullptr},
      {folder / "plain", folder / "odd-share", TrashMover::kLinkedTrash},
      {folder / "plain", folder / "linked-trash-share", TrashMover::kLinkedTrash},
  };
  for (const auto& c : cases) {
    const auto refusal = TrashMover::refusal(c.path, c.dataDirectory);
    if (c.refusal == nullptr) {
      EXPECT_EQ(refusal, std::nullopt) << c.path << " with " << c.dataDirectory;
    } else {
      EXPECT_EQ(refusal, c.refusal) << c.path << " with " << c.dataDirectory;
    }
  }
}

}  // namespace
}  // namespace brisko
