// create-plan and execute-plan through the real engine: the plan passes from
// one process to the next only through its file.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "protocol/line_framer.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::ProcessOptions;
using testing::ProcessResult;
using testing::TemporaryDirectory;
namespace fs = std::filesystem;

class CleanRoadTest : public ::testing::Test {
 protected:
  ProcessResult engine(const std::string& command, const std::string& input) {
    ProcessOptions options;
    options.standardInput = input;
    options.environment = {{"HOME", home.path()}};
    options.unsetEnvironment = {"XDG_DATA_HOME", "XDG_CACHE_HOME"};
    return testing::runProcess({BRISKO_ENGINE_PATH, command}, options);
  }

  CleanupPlan createPlan(const CreateCleanupPlanRequest& request) {
    const ProcessResult result = engine("create-plan", encodeJson(request));
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    return decodeJson<CleanupPlan>(result.standardOutput);
  }

  std::vector<CleanupEvent> executePlan(const Uuid& id, ProcessResult* raw = nullptr) {
    const ProcessResult result = engine("execute-plan", encodeJson(ExecuteCleanupPlanRequest{id}));
    if (raw) *raw = result;
    std::vector<CleanupEvent> events;
    LineFramer framer;
    framer.append(result.standardOutput);
    while (auto line = framer.nextLine())
      events.push_back(decodeJson<CleanupEvent>(*line));
    EXPECT_EQ(framer.takeRemainder(), "") << "every event ends with a line feed";
    return events;
  }

  std::string planFile(const Uuid& id) {
    return home / (".local/share/brisko/Plans/" + id.text() + ".json");
  }

  TemporaryDirectory home;
};

TEST_F(CleanRoadTest, APlanIsStoredRunAndAnsweredWithAReceipt) {
  home.writeFile("Library/Caches/app/data", std::string(20000, 'x'));
  home.writeFile("Library/Caches/other/data", std::string(1000, 'y'));
  const CleanupPlan plan = createPlan({{"user-caches"}, {}});
  ASSERT_EQ(plan.items.size(), 2u);
  EXPECT_TRUE(fs::exists(planFile(plan.id)));
  struct stat folder;
  ::stat((home / ".local/share/brisko/Plans").c_str(), &folder);
  EXPECT_EQ(folder.st_mode & 0777, 0700u);

  ProcessResult raw;
  const auto events = executePlan(plan.id, &raw);
  ASSERT_EQ(raw.exitStatus, 0) << raw.standardError;
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(events[0].kind, CleanupEventKind::started);
  EXPECT_EQ(events[0].totalItems, 2);
  EXPECT_EQ(events[1].kind, CleanupEventKind::item);
  EXPECT_EQ(events[1].result->id, plan.items[0].path);
  EXPECT_EQ(events[2].result->id, plan.items[1].path);
  ASSERT_EQ(events[3].kind, CleanupEventKind::completed);
  const CleanupReceipt& receipt = *events[3].receipt;
  EXPECT_EQ(receipt.planID, plan.id);
  EXPECT_EQ(receipt.results.size(), 2u);
  for (const auto& result : receipt.results) {
    EXPECT_EQ(result.outcome, CleanupItemOutcome::deleted) << result.message;
  }
  EXPECT_FALSE(fs::exists(home / "Library/Caches/app"));
  EXPECT_FALSE(fs::exists(planFile(plan.id))) << "a plan runs once";
  // The receipt is in the history.
  size_t receipts = 0;
  for (const auto& entry : fs::directory_iterator(home / ".local/share/brisko/History")) {
    EXPECT_NE(entry.path().filename().string().find(receipt.id.text()), std::string::npos);
    ++receipts;
  }
  EXPECT_EQ(receipts, 1u);
  // Running it again finds no plan.
  ProcessResult again;
  executePlan(plan.id, &again);
  EXPECT_NE(again.exitStatus, 0);
  EXPECT_NE(again.standardError.find("The cleanup plan is missing or was removed; scan again."),
            std::string::npos);
}

TEST_F(CleanRoadTest, AnEmptyPlanRunsToAnEmptyReceipt) {
  const CleanupPlan plan = createPlan({{"user-caches"}, {}});
  EXPECT_TRUE(plan.items.empty());
  const auto events = executePlan(plan.id);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].totalItems, 0);
  EXPECT_TRUE(events[1].receipt->results.empty());
}

TEST_F(CleanRoadTest, BadRequestsAndDamagedPlansEndWithOneLine) {
  for (const std::string command : {"create-plan", "execute-plan"}) {
    for (const std::string input : {"", "not json", "{}", "[]", "{\"planID\":\"nope\"}"}) {
      const ProcessResult result = engine(command, input);
      EXPECT_NE(result.exitStatus, 0) << command << " " << input;
      EXPECT_EQ(result.signal, 0);
      EXPECT_EQ(result.standardOutput, "");
      EXPECT_EQ(testing::linesOf(result.standardError).size(), 1u) << result.standardError;
    }
  }
  const ProcessResult empty = engine("create-plan", R"({"findingIDs":[],"itemIDs":[]})");
  EXPECT_NE(empty.standardError.find("No categories were selected for the cleanup plan."),
            std::string::npos);

  const Uuid id = Uuid::random();
  home.writeFile(".local/share/brisko/Plans/" + id.text() + ".json", "{\"protocolVersion\":3,");
  ProcessResult damaged;
  executePlan(id, &damaged);
  EXPECT_NE(damaged.exitStatus, 0);
  EXPECT_NE(damaged.standardError.find("missing or was removed"), std::string::npos);
}

TEST_F(CleanRoadTest, AnExpiredPlanIsRefusedAndKept) {
  home.writeFile("Library/Caches/app/data", "x");
  CleanupPlan plan = createPlan({{"user-caches"}, {}});
  plan.expiresAt = plan.createdAt - std::chrono::seconds(1);
  home.writeFile(".local/share/brisko/Plans/" + plan.id.text() + ".json", encodeJson(plan, true));
  ProcessResult result;
  const auto events = executePlan(plan.id, &result);
  EXPECT_NE(result.exitStatus, 0);
  // The run is refused before any item: at most the opening event was written.
  for (const auto& event : events)
    EXPECT_EQ(event.kind, CleanupEventKind::started);
  EXPECT_NE(result.standardError.find("The cleanup plan has expired"), std::string::npos);
  EXPECT_TRUE(fs::exists(home / "Library/Caches/app/data"));
}

TEST_F(CleanRoadTest, SwappingAFolderForALinkDuringTheRunNeverDeletesOutside) {
  // While the engine removes a large item, another thread keeps replacing one
  // of its sub-folders with a link to a folder outside the home's caches.
  for (int round = 0; round < 4; ++round) {
    const std::string outside = home.makeDirectory("Documents");
    for (int i = 0; i < 20; ++i)
      home.writeFile("Documents/doc" + std::to_string(i), "precious");
    for (int i = 0; i < 1500; ++i) {
      home.writeFile("Library/Caches/big/p" + std::to_string(i % 30) + "/f" + std::to_string(i),
                     "x");
    }
    const std::string victim = home.makeDirectory("Library/Caches/big/p17/swap");
    home.writeFile("Library/Caches/big/p17/swap/inner", "x");
    const CleanupPlan plan = createPlan({{"user-caches"}, {}});
    ASSERT_EQ(plan.items.size(), 1u);

    std::atomic<bool> stop{false};
    std::thread swapper([&] {
      const std::string parked = home / "parked";
      // Let the engine start and pass its checks on an unchanged tree first.
      std::this_thread::sleep_for(std::chrono::milliseconds(5 * round));
      while (!stop.load()) {
        std::error_code error;
        fs::rename(victim, parked, error);
        fs::create_symlink(outside, victim, error);
        std::this_thread::yield();
        fs::remove(victim, error);
        fs::create_directories(fs::path(victim).parent_path(), error);
        fs::rename(parked, victim, error);
      }
    });
    ProcessResult result;
    executePlan(plan.id, &result);
    stop = true;
    swapper.join();
    EXPECT_EQ(result.signal, 0);
    for (int i = 0; i < 20; ++i) {
      ASSERT_TRUE(fs::exists(home / ("Documents/doc" + std::to_string(i)))) << "round " << round;
    }
    fs::remove_all(home / "Library/Caches");
    fs::remove_all(home / "parked");
  }
}

}  // namespace
}  // namespace brisko
