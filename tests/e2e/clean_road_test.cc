// create-plan and execute-plan through the real engine: the plan passes from
// one process to the next only through its file.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "protocol/line_framer.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "testing/deep_nest.h"
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

  // The engine under strace, which acts at exact system calls: `rules` are
  // strace's -e options (trace=..., inject=...).
  ProcessResult engineUnderStrace(const std::string& command, const std::string& input,
                                  const std::vector<std::string>& rules) {
    std::vector<std::string> argv = {"strace", "-qq", "-o", "/dev/null"};
    for (const auto& rule : rules) {
      argv.push_back("-e");
      argv.push_back(rule);
    }
    argv.push_back(BRISKO_ENGINE_PATH);
    argv.push_back(command);
    ProcessOptions options;
    options.standardInput = input;
    options.environment = {{"HOME", home.path()}};
    options.unsetEnvironment = {"XDG_DATA_HOME", "XDG_CACHE_HOME"};
    return testing::runProcess(argv, options);
  }

  // Names in `folder` that begin with `prefix`.
  std::vector<std::string> namesBeginning(const std::string& folder, const std::string& prefix) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with(prefix)) names.push_back(name);
    }
    return names;
  }

  std::string dataFolder() { return home / ".local/share/brisko"; }

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

TEST_F(CleanRoadTest, APlanFileUnderAnotherNameOrWithALongerLifeIsRefused) {
  home.writeFile("Library/Caches/app/data", "x");
  CleanupPlan plan = createPlan({{"user-caches"}, {}});
  const Uuid other = Uuid::random();
  fs::rename(planFile(plan.id), planFile(other));
  ProcessResult renamed;
  executePlan(other, &renamed);
  EXPECT_NE(renamed.exitStatus, 0);
  EXPECT_NE(renamed.standardError.find("missing or was removed"), std::string::npos);

  plan.expiresAt = plan.createdAt + std::chrono::hours(24);
  home.writeFile(".local/share/brisko/Plans/" + plan.id.text() + ".json", encodeJson(plan, true));
  ProcessResult stretched;
  executePlan(plan.id, &stretched);
  EXPECT_NE(stretched.exitStatus, 0);
  EXPECT_NE(stretched.standardError.find("expired"), std::string::npos);
  EXPECT_TRUE(fs::exists(home / "Library/Caches/app/data"));
}

TEST_F(CleanRoadTest, APlanRunsInOneProcessAtATime) {
  for (int i = 0; i < 40; ++i)
    home.writeFile("Library/Caches/app" + std::to_string(i) + "/data", "x");
  const CleanupPlan plan = createPlan({{"user-caches"}, {}});
  ASSERT_EQ(plan.items.size(), 40u);
  {
    // Another process holds the plan: the run is refused before any item.
    const int fd = ::open(planFile(plan.id).c_str(), O_RDONLY);
    ASSERT_EQ(::flock(fd, LOCK_EX), 0);
    ProcessResult held;
    EXPECT_TRUE(executePlan(plan.id, &held).empty());
    ::close(fd);
    EXPECT_NE(held.exitStatus, 0);
    EXPECT_NE(held.standardError.find("already running in another process"), std::string::npos)
        << held.standardError;
    EXPECT_TRUE(fs::exists(home / "Library/Caches/app0/data"));
    EXPECT_FALSE(fs::exists(home / ".local/share/brisko/History"));
  }
  // Two runs at once: one deletes everything, the other is refused (or finds
  // the plan gone), and there is one receipt.
  ProcessResult results[2];
  std::vector<CleanupEvent> events[2];
  std::thread second([&] { events[1] = executePlan(plan.id, &results[1]); });
  events[0] = executePlan(plan.id, &results[0]);
  second.join();
  EXPECT_EQ((results[0].exitStatus == 0) + (results[1].exitStatus == 0), 1)
      << results[0].standardError << results[1].standardError;
  for (int run = 0; run < 2; ++run) {
    for (const auto& event : events[run]) {
      if (event.result) {
        EXPECT_NE(event.result->outcome, CleanupItemOutcome::failed);
      }
    }
    if (results[run].exitStatus != 0) {
      EXPECT_TRUE(results[run].standardError.find("already running") != std::string::npos ||
                  results[run].standardError.find("missing or was removed") != std::string::npos)
          << results[run].standardError;
    }
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(home / ".local/share/brisko/History"),
                          fs::directory_iterator()),
            1);
  EXPECT_FALSE(fs::exists(home / "Library/Caches/app0"));
}

TEST_F(CleanRoadTest, APlanFileThatIsNoPlainFileIsNotFound) {
  home.writeFile("Library/Caches/app/data", "x");
  const CleanupPlan plan = createPlan({{"user-caches"}, {}});
  const std::string parked = home / "elsewhere.json";
  fs::rename(planFile(plan.id), parked);
  // A FIFO would hold a reader that waits for a writer for ever; a link would
  // run a plan stored anywhere.
  ASSERT_EQ(::mkfifo(planFile(plan.id).c_str(), 0600), 0);
  ProcessResult fifo;
  executePlan(plan.id, &fifo);
  EXPECT_NE(fifo.standardError.find("missing or was removed"), std::string::npos)
      << fifo.standardError;
  fs::remove(planFile(plan.id));
  fs::create_symlink(parked, planFile(plan.id));
  ProcessResult linked;
  executePlan(plan.id, &linked);
  EXPECT_NE(linked.standardError.find("missing or was removed"), std::string::npos)
      << linked.standardError;
  EXPECT_TRUE(fs::exists(home / "Library/Caches/app/data"));
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

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST_F(CleanRoadTest, ATerminationInsideARemovalWaitsUntilTheFileIsGone) {
  // SIGTERM arrives as the engine unlinks the file under its private name:
  // it is held, the file goes, and the run ends only then, between items.
  home.writeFile("Library/Caches/App.dmg", std::string(20000, 'a'));
  const CleanupPlan plan = createPlan({{"user-caches"}, {}});
  ASSERT_EQ(plan.items.size(), 1u);
  const auto result =
      engineUnderStrace("execute-plan", encodeJson(ExecuteCleanupPlanRequest{plan.id}),
                        {"trace=unlinkat", "inject=unlinkat:signal=SIGTERM:when=1"});
  EXPECT_EQ(result.signal, SIGTERM) << result.standardError;
  EXPECT_FALSE(fs::exists(home / "Library/Caches/App.dmg"));
  EXPECT_TRUE(namesBeginning(home / "Library/Caches", ".brisko-removing-").empty());
  EXPECT_TRUE(namesBeginning(dataFolder(), "removal-journal-").empty());
  EXPECT_TRUE(namesBeginning(dataFolder() + "/History", "").empty()) << "no receipt";
}

TEST_F(CleanRoadTest, APlannedFileLeftUnderItsPrivateNameByAKillIsFinishedAtTheNextStart) {
  home.writeFile("Library/Caches/App.dmg", std::string(20000, 'a'));
  home.writeFile("Library/Caches/keep/data", "x");
  const CleanupPlan plan = createPlan({{}, {"user-caches:" + home / "Library/Caches/App.dmg"}});
  ASSERT_EQ(plan.items.size(), 1u);
  // Killed as it unlinks the parked file: nothing can hold SIGKILL.
  const auto killed =
      engineUnderStrace("execute-plan", encodeJson(ExecuteCleanupPlanRequest{plan.id}),
                        {"trace=unlinkat", "inject=unlinkat:signal=SIGKILL:when=1"});
  ASSERT_EQ(killed.signal, SIGKILL) << killed.standardError;
  ASSERT_EQ(namesBeginning(home / "Library/Caches", ".brisko-removing-").size(), 1u);
  ASSERT_EQ(namesBeginning(dataFolder(), "removal-journal-").size(), 1u);

  const auto next = engine("capabilities", "");
  EXPECT_EQ(next.exitStatus, 0) << next.standardError;
  EXPECT_EQ(next.standardError, "");
  EXPECT_TRUE(namesBeginning(home / "Library/Caches", ".brisko-removing-").empty());
  EXPECT_FALSE(fs::exists(home / "Library/Caches/App.dmg"));
  EXPECT_TRUE(fs::exists(home / "Library/Caches/keep/data"));
  EXPECT_TRUE(namesBeginning(dataFolder(), "removal-journal-").empty());
}

TEST_F(CleanRoadTest, AFileThatTookThePlannedNameIsNeverLeftHidden) {
  // The user saves a new App.dmg after the checks and just before the engine
  // parks the name; the engine sees it isn't the planned file and is killed
  // as it renames it back. The next start puts it back: under its name, or
  // beside it when yet another file took the name meanwhile.
  for (const bool nameTakenAgain : {false, true}) {
    const std::string caches = home / "Library/Caches";
    home.writeFile("Library/Caches/App.dmg", std::string(20000, 'a'));
    const CleanupPlan plan = createPlan({{"user-caches"}, {}});
    ASSERT_EQ(plan.items.size(), 1u);

    // Held at the sync of its note, just before the rename, while the new
    // file takes the name; killed at the next rename, the one back.
    std::thread user([&] {
      for (int wait = 0; wait < 3000; ++wait) {
        if (!namesBeginning(dataFolder(), "removal-journal-").empty()) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      // Written beside it first, so that it can't take the old file's inode.
      home.writeFile("Library/Caches/App.dmg.part", "the user's new file");
      fs::rename(caches + "/App.dmg.part", caches + "/App.dmg");
    });
    const auto killed =
        engineUnderStrace("execute-plan", encodeJson(ExecuteCleanupPlanRequest{plan.id}),
                          {"trace=fsync,renameat2", "inject=fsync:delay_enter=1500000:when=1",
                           "inject=renameat2:signal=SIGKILL:when=2"});
    user.join();
    ASSERT_EQ(killed.signal, SIGKILL) << killed.standardError;
    ASSERT_FALSE(fs::exists(caches + "/App.dmg")) << "the new file stands parked";
    ASSERT_EQ(namesBeginning(caches, ".brisko-removing-").size(), 1u);

    if (nameTakenAgain) home.writeFile("Library/Caches/App.dmg", "another new file");
    const auto next = engine("capabilities", "");
    EXPECT_EQ(next.exitStatus, 0) << next.standardError;
    EXPECT_TRUE(namesBeginning(caches, ".brisko-removing-").empty());
    if (nameTakenAgain) {
      EXPECT_EQ(contentsOf(caches + "/App.dmg"), "another new file");
      EXPECT_EQ(contentsOf(caches + "/App (restored).dmg"), "the user's new file");
      EXPECT_NE(next.standardError.find("App (restored).dmg"), std::string::npos)
          << next.standardError;
    } else {
      EXPECT_EQ(contentsOf(caches + "/App.dmg"), "the user's new file");
      EXPECT_EQ(next.standardError, "");
    }
    fs::remove_all(caches);
  }
}

TEST_F(CleanRoadTest, DeepNestsArePlannedMeasuredAndRemovedUnderTheUsualOpenFileLimit) {
  // 25,000 levels crashed create-plan through the recursion of its measure,
  // and past 1,024 the removal failed with "Too many open files".
  for (const int depth : {25000}) {
    const std::string top = home.makeDirectory("Library/Caches/app");
    testing::makeDeepNest(top, depth, "d", "data");
    const std::int64_t oneLevel = testing::allocatedBytesOfOneLevel(top);
    const testing::OpenFileLimit limit(1024);  // inherited by the engine
    const CleanupPlan plan = createPlan({{"user-caches"}, {}});
    ASSERT_EQ(plan.items.size(), 1u) << depth;
    EXPECT_EQ(plan.items[0].estimatedBytes, oneLevel * depth);
    ProcessResult raw;
    const auto events = executePlan(plan.id, &raw);
    ASSERT_EQ(raw.exitStatus, 0) << raw.standardError;
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[1].result->outcome, CleanupItemOutcome::deleted) << events[1].result->message;
    EXPECT_FALSE(fs::exists(top));
  }
}

}  // namespace
}  // namespace brisko
