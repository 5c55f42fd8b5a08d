// Plans and receipts on disk: file names, permissions, atomic writes, and the
// load rules for missing and damaged files.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "base/file_contents.h"
#include "cleanup/cleanup_plan_repository.h"
#include "cleanup/cleanup_planning_error.h"
#include "cleanup/cleanup_receipt_repository.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;

Date at(std::int64_t seconds) {
  return Date{std::chrono::seconds{seconds}};
}

CleanupPlan samplePlan() {
  CleanupPlan plan;
  plan.id = Uuid::random();
  plan.createdAt = at(1'790'000'000);
  plan.expiresAt = at(1'790'000'900);
  plan.items = {
      {"user-caches:1:2", "user-caches", "app", "/h/.cache/app", 4096, {1, 2, S_IFDIR, 4096, 5}}};
  return plan;
}

mode_t modeOf(const std::string& path) {
  struct stat info;
  ::stat(path.c_str(), &info);
  return info.st_mode & 07777;
}

TEST(CleanupPlanRepository, SavesUnderTheDataFolderAndLoadsBack) {
  TemporaryDirectory home;
  ::setenv("XDG_DATA_HOME", "", 1);
  const CleanupPlanRepository repository(home.path());
  EXPECT_EQ(repository.plansDirectory(), home / ".local/share/brisko/Plans");
  const CleanupPlan plan = samplePlan();
  repository.save(plan);
  const std::string file = repository.plansDirectory() + "/" + plan.id.text() + ".json";
  ASSERT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(modeOf(repository.plansDirectory()), 0700u);
  const auto text = readFileContents(file);
  EXPECT_NE(text->find("\n  \"createdAt\": \"2026-09-21T14:13:20Z\""), std::string::npos) << *text;
  EXPECT_EQ(repository.load(plan.id), plan);
  // What a killed write left goes when the folder is next written.
  const std::string left = home.writeFile(
      ".local/share/brisko/Plans/" + plan.id.text() + ".json.tmp-" + Uuid::random().text(), "{");
  const timespec old[2] = {{1'700'000'000, 0}, {1'700'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, left.c_str(), old, 0), 0);
  repository.save(samplePlan());
  EXPECT_FALSE(std::filesystem::exists(left));

  repository.remove(plan.id);
  EXPECT_FALSE(std::filesystem::exists(file));
  repository.remove(plan.id);  // already gone: no error
}

TEST(CleanupPlanRepository, MissingPlansAreNotFoundAndDamagedOnesFailToDecode) {
  TemporaryDirectory folder;
  const CleanupPlanRepository repository("/unused", folder.path());
  try {
    repository.load(Uuid::random());
    FAIL();
  } catch (const CleanupPlanningError& error) {
    EXPECT_EQ(error.kind(), CleanupPlanningError::Kind::planNotFound);
    EXPECT_STREQ(error.what(), "The cleanup plan is missing or was removed; scan again.");
  }
  const CleanupPlan plan = samplePlan();
  folder.writeFile(plan.id.text() + ".json", "{\"protocolVersion\": 3, \"id\": ");
  EXPECT_THROW(repository.load(plan.id), DecodingError);
}

TEST(CleanupReceiptRepository, NamesFilesByCompletionTimeAndLoadsNewestFirst) {
  TemporaryDirectory home;
  const CleanupReceiptRepository repository(home.path(), home / "History");
  CleanupReceipt older;
  older.id = Uuid::random();
  older.completedAt = at(1'790'000'000) + std::chrono::milliseconds(250);
  CleanupReceipt newer = older;
  newer.id = Uuid::random();
  newer.completedAt = at(1'790'000'100);
  newer.results = {{"/h/a", "/h/a", 10, CleanupItemOutcome::deleted, "Permanently deleted."}};

  EXPECT_EQ(CleanupReceiptRepository::fileName(older),
            "1790000000.25-" + older.id.text() + ".json");
  EXPECT_EQ(CleanupReceiptRepository::fileName(newer), "1790000100.0-" + newer.id.text() + ".json");
  repository.save(older);
  repository.save(newer);
  EXPECT_EQ(modeOf(repository.historyDirectory()), 0700u);

  // Damaged and foreign files are passed over.
  home.writeFile("History/garbage.json", "not json");
  home.writeFile("History/1790000200-truncated.json", "{\"protocolVersion\":3,");
  home.writeFile("History/notes.txt", "hello");
  home.makeDirectory("History/folder.json");

  const auto loaded = repository.load();
  ASSERT_EQ(loaded.size(), 2u);
  EXPECT_EQ(loaded[0], newer);
  EXPECT_EQ(loaded[1].id, older.id);
  EXPECT_EQ(loaded[1].completedAt, at(1'790'000'000));  // whole seconds once on disk
}

TEST(CleanupReceiptRepository, AFolderThatCannotBeListedGivesNoReceipts) {
  TemporaryDirectory home;
  const CleanupReceiptRepository repository(home.path(), home / "never-created");
  EXPECT_TRUE(repository.load().empty());
}

}  // namespace
}  // namespace brisko
