#include "engine/bundled_engine_client.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "protocol/json_codec.h"
#include "testing/sample_home.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using namespace std::chrono_literals;
using testing::TemporaryDirectory;

// Our own engine children that are still there, zombies included.
int engineChildren() {
  int count = 0;
  DIR* proc = ::opendir("/proc");
  while (const dirent* entry = ::readdir(proc)) {
    std::ifstream stat(std::string("/proc/") + entry->d_name + "/stat");
    std::string pid, name, state;
    pid_t parent = 0;
    if (stat >> pid >> name >> state >> parent && parent == ::getpid() && name == "(BriskoEngine)")
      ++count;
  }
  ::closedir(proc);
  return count;
}

bool eventually(const std::function<bool()>& condition) {
  for (auto waited = 0ms; waited < 20s; waited += 20ms) {
    if (condition()) return true;
    std::this_thread::sleep_for(20ms);
  }
  return condition();
}

template <typename Event>
struct Drained {
  std::vector<Event> events;
  std::exception_ptr error;
};

template <typename Event>
Drained<Event> drain(EventStream<Event>& stream) {
  Drained<Event> drained;
  try {
    while (auto event = stream.next())
      drained.events.push_back(std::move(*event));
  } catch (...) {
    drained.error = std::current_exception();
  }
  return drained;
}

std::optional<EngineClientError> clientErrorOf(const std::exception_ptr& error) {
  try {
    if (error) std::rethrow_exception(error);
  } catch (const EngineClientError& clientError) {
    return clientError;
  } catch (...) {
  }
  return std::nullopt;
}

bool isCancellation(const std::exception_ptr& error) {
  try {
    if (error) std::rethrow_exception(error);
  } catch (const CancellationError&) {
    return true;
  } catch (...) {
  }
  return false;
}

// A home of its own for the real engine, with the environment pointed there.
class RealEngine : public ::testing::Test {
 protected:
  void SetUp() override {
    home_ = folder_.makeDirectory("home");
    testing::buildSampleHome(home_);
    for (const auto& [name, value] : {std::pair{"HOME", home_},
                                      {"XDG_DATA_HOME", home_ + "/.local/share"},
                                      {"XDG_CACHE_HOME", home_ + "/.cache"},
                                      {"XDG_CONFIG_HOME", home_ + "/.config"}}) {
      ::setenv(name, value.c_str(), 1);
    }
  }
  void TearDown() override {
    EXPECT_TRUE(eventually([] { return engineChildren() == 0; }));
  }

  // Enough files that a walk of them takes a while, for a cancel to meet.
  void makeHomeSlowToWalk() {
    for (int i = 0; i < 40; ++i)
      testing::makeEmptyFiles(home_ + "/Library/Caches/com.example.big/" + std::to_string(i), 2500);
  }

  SettingsStore settings() const { return SettingsStore(home_ + "/.config/brisko/settings.json"); }
  BundledEngineClient client() const { return BundledEngineClient(BRISKO_ENGINE_PATH, settings()); }

  TemporaryDirectory folder_;
  std::string home_;
};

TEST_F(RealEngine, ScansTheHomeAndPlansAndCleansWhatItFound) {
  BundledEngineClient engine = client();
  EXPECT_EQ(engine.capabilities().protocolVersion, EngineProtocol::version);
  EXPECT_GT(engine.overview().totalBytes, 0);

  auto stream = engine.scan();
  const auto scan = drain(stream);
  ASSERT_FALSE(scan.error);
  ASSERT_GE(scan.events.size(), 2u);
  EXPECT_EQ(scan.events.front().kind, ScanEventKind::started);
  ASSERT_EQ(scan.events.back().kind, ScanEventKind::completed);
  const ScanReport& report = *scan.events.back().report;
  size_t findingEvents = 0;
  for (const auto& event : scan.events)
    findingEvents += event.kind == ScanEventKind::finding;
  EXPECT_EQ(findingEvents, report.findings.size());

  CreateCleanupPlanRequest request;
  for (const auto& finding : report.findings) {
    if (finding.risk == RiskLevel::recommended && finding.action == RuleAction::cleanup &&
        finding.bytes > 0) {
      request.findingIDs.push_back(finding.id);
    }
  }
  ASSERT_FALSE(request.findingIDs.empty());
  const CleanupPlan plan = engine.createPlan(request);
  ASSERT_FALSE(plan.items.empty());
  auto cleanup = engine.executePlan({plan.id});
  const auto run = drain(cleanup);
  ASSERT_FALSE(run.error);
  ASSERT_EQ(run.events.back().kind, CleanupEventKind::completed);
  const CleanupReceipt& receipt = *run.events.back().receipt;
  EXPECT_EQ(receipt.planID, plan.id);
  ASSERT_EQ(receipt.results.size(), plan.items.size());
  for (const auto& result : receipt.results) {
    if (result.outcome == CleanupItemOutcome::deleted) {
      EXPECT_NE(::access(result.id.c_str(), F_OK), 0) << result.id;
    }
  }
}

TEST_F(RealEngine, InstallersAreScannedUnlessTheSettingTurnsThemOff) {
  const struct {
    const char* settingsText;  // none: no file
    bool expectsInstallers;
  } cases[] = {
      {nullptr, true},
      {R"({"scan.downloadedInstallers": true})", true},
      {R"({"scan.downloadedInstallers": false, "other.key": 1})", false},
      {R"({"scan.downloadedInstallers": "false"})", true},  // wrongly typed: absent
      {"{not json", true},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.settingsText ? testCase.settingsText : "no file");
    ::unlink(settings().path().c_str());
    if (testCase.settingsText) {
      folder_.writeFile("home/.config/brisko/settings.json", testCase.settingsText);
    }
    auto stream = client().scan();
    const auto scan = drain(stream);
    ASSERT_FALSE(scan.error);
    bool hasInstallers = false;
    for (const auto& finding : scan.events.back().report->findings)
      hasInstallers = hasInstallers || finding.id == "downloaded-installers";
    EXPECT_EQ(hasInstallers, testCase.expectsInstallers);
  }
}

TEST_F(RealEngine, ACancelMidScanEndsTheStreamAsCancelledAndTheProcess) {
  makeHomeSlowToWalk();
  BundledEngineClient engine = client();
  auto stream = engine.scan();
  const auto first = stream.next();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->kind, ScanEventKind::started);
  // Any copy of the client reaches the process.
  BundledEngineClient copy = engine;
  copy.cancelScan();
  const auto rest = drain(stream);
  EXPECT_TRUE(isCancellation(rest.error));
  for (const auto& event : rest.events)
    EXPECT_NE(event.kind, ScanEventKind::completed);
  EXPECT_EQ(engineChildren(), 0);
}

TEST_F(RealEngine, AScanDuringASpaceScanIsBusyWhileSingleAnswersRunBeside) {
  makeHomeSlowToWalk();
  BundledEngineClient engine = client();
  auto space = engine.scanSpace();
  ASSERT_TRUE(space.next());

  auto scan = engine.scan();
  const auto refused = drain(scan);
  ASSERT_TRUE(clientErrorOf(refused.error));
  EXPECT_EQ(clientErrorOf(refused.error)->kind(), EngineClientError::Kind::engineBusy);
  EXPECT_TRUE(refused.events.empty());
  EXPECT_EQ(engine.capabilities().protocolVersion, EngineProtocol::version);

  engine.cancelSpaceScan();
  EXPECT_TRUE(isCancellation(drain(space).error));
}

TEST_F(RealEngine, ADroppedConsumerEndsItsEngineAndFreesTheSessionForTheNext) {
  makeHomeSlowToWalk();
  BundledEngineClient engine = client();
  {
    auto dropped = engine.scanSpace();
    ASSERT_TRUE(dropped.next());
  }
  ASSERT_TRUE(eventually([] { return engineChildren() == 0; }));
  testing::removeTree(home_ + "/Library/Caches/com.example.big");
  // The reader releases the session right after reaping the engine.
  ASSERT_TRUE(eventually([&] {
    auto stream = engine.scan();
    const auto scan = drain(stream);
    if (clientErrorOf(scan.error)) return false;
    EXPECT_FALSE(scan.error);
    EXPECT_EQ(scan.events.back().kind, ScanEventKind::completed);
    return true;
  }));
}

// Stand-ins for what the real engine never does, run by explicit path.
class StandInEngine : public ::testing::Test {
 protected:
  BundledEngineClient engineRunning(const std::string& script, mode_t mode = 0755) {
    const std::string path = folder_.writeFile("engine", "#!/bin/sh\n" + script + "\n");
    ::chmod(path.c_str(), mode);
    return BundledEngineClient(path, SettingsStore(folder_ / "settings.json"));
  }

  TemporaryDirectory folder_;
};

constexpr const char* kStarted = R"({"kind":"started","protocolVersion":3})";
constexpr const char* kWarning = R"({"kind":"warning","protocolVersion":3,"warning":"w"})";

TEST_F(StandInEngine, OutputAndExitStatusDecideHowTheStreamEnds) {
  const std::string started = std::string("echo '") + kStarted + "'; ";
  const struct {
    const char* name;
    std::string script;
    size_t events;
    std::optional<int> failedStatus;  // none: finishes cleanly
    std::string message;
    bool decodingFails = false;
  } cases[] = {
      {"clean", started + "echo; echo '" + kWarning + "'", 2, std::nullopt, ""},
      {"silent exit 3", "exit 3", 0, 3, ""},
      {"unterminated last line, exit 1", started + "printf '%s' '" + kWarning + "'; exit 1", 2, 1,
       ""},
      {"words on standard error", started + "printf ' no disk \\n' >&2; exit 2", 1, 2,
       " no disk \n"},
      {"broken UTF-8 on standard error", "printf 'bad \\377' >&2; exit 4", 0, 4,
       "bad \xEF\xBF\xBD"},
      {"killed by a signal", started + "kill -KILL $$", 1, 128 + SIGKILL, ""},
      {"flooded standard error", started + "head -c 3000000 /dev/zero | tr '\\0' e >&2", 1,
       std::nullopt, ""},
      {"a line that isn't JSON", started + "echo 'nonsense'; exec sleep 30", 1, std::nullopt, "",
       true},
      {"an unterminated line that isn't JSON", started + "printf '{'", 1, std::nullopt, "", true},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const auto begun = std::chrono::steady_clock::now();
    auto stream = engineRunning(testCase.script).scan();
    const auto result = drain(stream);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 20s);
    EXPECT_EQ(result.events.size(), testCase.events);
    if (testCase.decodingFails) {
      EXPECT_THROW(std::rethrow_exception(result.error), DecodingError);
    } else if (testCase.failedStatus) {
      const auto error = clientErrorOf(result.error);
      ASSERT_TRUE(error);
      EXPECT_EQ(error->kind(), EngineClientError::Kind::commandFailed);
      EXPECT_EQ(error->command(), "scan-stream");
      EXPECT_EQ(error->status(), *testCase.failedStatus);
      EXPECT_EQ(error->message(), testCase.message);
    } else {
      EXPECT_FALSE(result.error);
    }
  }
}

TEST_F(StandInEngine, SingleAnswersReportTheEnginesFailureAndSurviveAFlood) {
  auto failing = engineRunning("echo \"$*\" >&2; exit 3");
  try {
    failing.capabilities();
    ADD_FAILURE() << "no error";
  } catch (const EngineClientError& error) {
    EXPECT_EQ(error.kind(), EngineClientError::Kind::commandFailed);
    EXPECT_EQ(std::string(error.what()),
              "The scan engine failed to run capabilities (3): capabilities\n");
  }
  // Input is fed while both outputs are read: neither side may stall.
  auto chatty = engineRunning(
      "cat > /dev/null; head -c 3000000 /dev/zero | tr '\\0' e >&2; "
      "echo '{\"protocolVersion\":3,\"engineVersion\":\"x\",\"commands\":[]}'");
  EXPECT_EQ(chatty.capabilities().engineVersion, "x");
}

TEST_F(StandInEngine, AMissingOrNonExecutableEngineFailsAtOnce) {
  const std::string missing = folder_ / "nowhere";
  for (auto engine : {BundledEngineClient(std::nullopt, SettingsStore(missing)),
                      BundledEngineClient(missing, SettingsStore(missing)),
                      BundledEngineClient(folder_.path(), SettingsStore(missing)),
                      engineRunning("exit 0", 0644)}) {
    auto stream = engine.scanSpace(true);
    const auto error = clientErrorOf(drain(stream).error);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), EngineClientError::Kind::executableMissing);
    EXPECT_THROW(engine.overview(), EngineClientError);
    EXPECT_THROW(engine.createPlan({}), EngineClientError);
  }
}

TEST_F(StandInEngine, ACancelAfterAStreamEndedDoesNotReachTheNext) {
  auto engine = engineRunning(std::string("echo '") + kStarted + "'");
  auto first = engine.scan();
  EXPECT_FALSE(drain(first).error);
  engine.cancelScan();
  auto second = engine.scan();
  const auto result = drain(second);
  EXPECT_FALSE(result.error);
  EXPECT_EQ(result.events.size(), 1u);
}

}  // namespace
}  // namespace brisko
