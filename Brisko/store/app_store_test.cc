// The store against recorded engine answers and a scripted Trash: the cases
// that the real engine and the real Trash can't be made to produce.

#include "store/app_store.h"

#include <gtest/gtest.h>

#include "protocol/guard_warning_text.h"
#include "testing/store_harness.h"
#include "testing/temporary_directory.h"
#include "text/app_texts.h"

namespace brisko {
namespace {

using testing::FixtureSet;
using testing::inventoryOf;
using testing::ScriptedTrash;
using testing::StoreHarness;
using Reason = FinderTrash::Failure::Reason;

ScanFinding finding(std::string id, std::int64_t bytes, std::string title = {}) {
  ScanFinding finding;
  finding.id = id;
  finding.title = title.empty() ? id : title;
  finding.path = "/home/u/" + id;
  finding.bytes = bytes;
  finding.risk = RiskLevel::recommended;
  return finding;
}

ScanEvent event(ScanEventKind kind) {
  ScanEvent event;
  event.kind = kind;
  return event;
}

ScanEvent findingEvent(ScanFinding found) {
  ScanEvent result = event(ScanEventKind::finding);
  result.finding = std::move(found);
  return result;
}

ScanEvent blockedEvent(std::string id) {
  ScanEvent result = event(ScanEventKind::blocked);
  result.blocked = BlockedLocation{id, id, "/home/u/" + id, false};
  return result;
}

std::vector<std::string> idsOf(const std::vector<ScanFinding>& findings) {
  std::vector<std::string> ids;
  for (const ScanFinding& finding : findings)
    ids.push_back(finding.id);
  return ids;
}

class AppStoreReplayTest : public ::testing::Test {
 protected:
  testing::TemporaryDirectory fixtures;
  FixtureSet set{fixtures.path()};

  std::unique_ptr<StoreHarness> harness(std::shared_ptr<TrashClient> trash = nullptr,
                                        std::function<bool()> probe = nullptr) {
    return std::make_unique<StoreHarness>(std::make_shared<DebugMockEngine>(fixtures.path()),
                                          std::move(trash), "/home/u/.local/share/Trash",
                                          std::move(probe));
  }
};

TEST_F(AppStoreReplayTest, EventsFoldIntoTheStateAndBadStreamsFailTheScanWithTheirWords) {
  ScanEvent both = event(ScanEventKind::progress);
  both.finding = finding("a", 10);
  both.progress = ScanProgress{1, 3, "a"};
  ScanEvent oldEvent = findingEvent(finding("b", 20));
  oldEvent.protocolVersion = 2;
  ScanEvent oldReport = event(ScanEventKind::completed);
  oldReport.report = ScanReport{};
  oldReport.report->protocolVersion = 2;
  ScanFinding renamed = finding("a", 30, "a again");
  const std::string mismatch =
      "Incompatible scan protocol: the app needs 3, the engine returned 2.";

  struct Case {
    const char* name;
    std::vector<ScanEvent> events;
    std::string trailing;  // raw lines after the events
    std::string standardError;
    ScanState::Kind state;
    std::string message;  // part of the failure's text
    std::vector<std::string> findings;
    size_t blocked;
    bool findingWithProgress;  // one notice saw both
    std::string firstTitle;
  };
  const std::vector<Case> cases = {
      {"one event with a finding and progress",
       {both, event(ScanEventKind::completed)},
       "",
       "",
       ScanState::Kind::loaded,
       "",
       {"a"},
       0,
       true,
       "a"},
      {"a repeated blocked id is dropped",
       {blockedEvent("x"), blockedEvent("y"), blockedEvent("x")},
       "",
       "",
       ScanState::Kind::loaded,
       "",
       {},
       2,
       false,
       ""},
      {"a second finding event replaces the row and the sort places it",
       {findingEvent(finding("a", 10)), findingEvent(finding("b", 20)), findingEvent(renamed)},
       "",
       "",
       ScanState::Kind::loaded,
       "",
       {"a", "b"},
       0,
       false,
       "a again"},
      {"an event of version 2",
       {findingEvent(finding("a", 10)), oldEvent},
       "",
       "",
       ScanState::Kind::failed,
       mismatch,
       {"a"},
       0,
       false,
       "a"},
      {"a report of version 2",
       {findingEvent(finding("a", 10)), oldReport},
       "",
       "",
       ScanState::Kind::failed,
       mismatch,
       {"a"},
       0,
       false,
       "a"},
      {"an undecodable line after three findings",
       {findingEvent(finding("a", 1)), findingEvent(finding("b", 2)),
        findingEvent(finding("c", 3))},
       "{\"kind\": \n",
       "",
       ScanState::Kind::failed,
       "",
       {"c", "b", "a"},
       0,
       false,
       "c"},
      {"a failed exit after three findings",
       {findingEvent(finding("a", 1)), findingEvent(finding("b", 2)),
        findingEvent(finding("c", 3))},
       "",
       "disk on fire",
       ScanState::Kind::failed,
       "The scan engine failed to run scan-stream (1): disk on fire",
       {"c", "b", "a"},
       0,
       false,
       "c"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    testing::TemporaryDirectory folder;
    FixtureSet caseSet(folder.path());
    caseSet.stream("scan-stream", test.events, test.trailing);
    if (!test.standardError.empty()) caseSet.failWith("scan-stream", test.standardError);
    StoreHarness harness(std::make_shared<DebugMockEngine>(folder.path()));
    std::vector<std::pair<size_t, bool>> seen;  // findings and progress at each notice
    auto watch = harness.store->subscribe([&](const StoreFields&) {
      seen.emplace_back(harness.store->findings().size(),
                        harness.store->scanProgress().has_value());
    });
    harness.onMain([](AppStore& store) { store.scan(); });
    ASSERT_TRUE(harness.settle());
    const AppStore& store = *harness.store;
    EXPECT_EQ(store.scanState().kind, test.state);
    EXPECT_NE(store.scanState().message.find(test.message), std::string::npos)
        << store.scanState().message;
    EXPECT_EQ(store.scanState().message.empty(), test.state != ScanState::Kind::failed);
    EXPECT_EQ(idsOf(store.findings()), test.findings);
    EXPECT_EQ(store.blockedLocations().size(), test.blocked);
    EXPECT_FALSE(store.scanProgress().has_value());
    EXPECT_EQ(std::find(seen.begin(), seen.end(), std::make_pair(size_t{1}, true)) != seen.end(),
              test.findingWithProgress);
    EXPECT_EQ(store.findings().empty() ? "" : store.findings().front().title, test.firstTitle);
  }
}

TEST_F(AppStoreReplayTest, AnEngineThatCantAnswerReadsUnavailableAndFailsTheScanWithItsWords) {
  auto harness = this->harness();  // the fixture folder is empty
  harness->onMain([](AppStore& store) { store.load(); });
  ASSERT_TRUE(harness->runUntil([](const AppStore& s) { return !s.engineVersion().empty(); }));
  EXPECT_EQ(harness->store->engineVersion(), "Engine unavailable");
  EXPECT_TRUE(harness->store->fullDiskAccessGranted());
  EXPECT_FALSE(harness->store->disk().has_value());
  harness->onMain([](AppStore& store) { store.scan(); });
  ASSERT_TRUE(harness->settle());
  EXPECT_EQ(
      harness->store->scanState().message.rfind("The scan engine failed to run scan-stream", 0),
      0u);
}

TEST_F(AppStoreReplayTest, ANoticeNamesTheChangedFieldsAndNothingUnchangedWakesAnyone) {
  set.answer("capabilities", EngineCapabilities{3, "1.2.3", {}});
  auto harness = this->harness();
  harness->onMain([](AppStore& store) { store.load(); });
  ASSERT_TRUE(harness->runUntil([](const AppStore& s) { return !s.engineVersion().empty(); }));
  EXPECT_EQ(harness->store->engineVersion(), "Engine 1.2.3");
  harness->notices.clear();
  harness->onMain([](AppStore& store) {
    store.whitelistChanged();  // nothing listed: no notice is due
    store.setDebugEngine(nullptr);
    store.toggleFinding("absent");
  });
  EXPECT_TRUE(harness->notices.empty());
  harness->onMain([](AppStore& store) { store.toggleExpansion("a"); });
  ASSERT_EQ(harness->notices.size(), 1u);
  EXPECT_EQ(harness->notices[0], StoreFields{StoreField::expandedFindingIDs});
}

TEST_F(AppStoreReplayTest, TheTrashRowFollowsWhatTheTrashClientSays) {
  struct Case {
    const char* name;
    std::function<FinderTrash::Inventory()> answer;
    bool row;
    bool needsAutomation;
  };
  const std::vector<Case> cases = {
      {"read",
       [] {
         return inventoryOf({{"a", 100}, {"b", 50}});
       },
       true, false},
      {"automation denied",
       []() -> FinderTrash::Inventory {
         throw FinderTrash::Failure(Reason::automationDenied, "no");
       },
       false, true},
      {"another failure", []() -> FinderTrash::Inventory { throw std::runtime_error("disk gone"); },
       false, false},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    testing::TemporaryDirectory folder;
    FixtureSet(folder.path()).stream<ScanEvent>("scan-stream", {event(ScanEventKind::completed)});
    auto trash = std::make_shared<ScriptedTrash>();
    trash->answerInventory(test.answer);
    StoreHarness harness(std::make_shared<DebugMockEngine>(folder.path()), trash);
    harness.onMain([](AppStore& store) { store.scan(); });
    ASSERT_TRUE(harness.runUntil([&](const AppStore&) { return trash->inventoryCalls() == 1; }));
    ASSERT_TRUE(harness.settle());
    harness.executor.runUntil([] { return false; }, std::chrono::milliseconds(50));
    const AppStore& store = *harness.store;
    EXPECT_EQ(store.trashNeedsAutomation(), test.needsAutomation);
    EXPECT_EQ(store.selectedFindingIDs().contains("trash"), test.row);
    ASSERT_EQ(store.findings().size(), test.row ? 1u : 0u);
    if (test.row) {
      EXPECT_EQ(store.findings()[0].bytes, 150);
      EXPECT_EQ(store.findings()[0].path, "/home/u/.local/share/Trash");
      EXPECT_EQ(store.findings()[0].subtitle, "");
    }
  }
}

// A clean of the Trash alone, with every way the empty can end.
TEST_F(AppStoreReplayTest, EmptyingTheTrashGivesOneReceiptRowAndReadsTheTrashAgain) {
  struct Case {
    const char* name;
    std::function<void()> empty;
    CleanupItemOutcome outcome;
    std::int64_t bytes;
    std::string message;
    bool needsAutomation;
  };
  const std::vector<Case> cases = {
      {"emptied", [] {}, CleanupItemOutcome::deleted, 150, "Emptied.", false},
      {"cancelled in Finder",
       [] { throw FinderTrash::Failure(Reason::cancelled, "User canceled. (-128)"); },
       CleanupItemOutcome::skipped, 0, "Canceled in Finder\u2019s confirmation dialog.", false},
      {"automation denied",
       [] { throw FinderTrash::Failure(Reason::automationDenied, "Not authorized (-1743)"); },
       CleanupItemOutcome::skipped, 0, "Not authorized (-1743)", true},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    testing::TemporaryDirectory folder;  // no engine answers: the engine must not be asked
    auto trash = std::make_shared<ScriptedTrash>();
    trash->answerInventory([] { return inventoryOf({{"a", 100}, {"b", 50}}); });
    trash->answerInventory([] { return inventoryOf({{"b", 50}}); });
    trash->answerEmpty(test.empty);
    trash->holdEmpty();
    StoreHarness harness(std::make_shared<DebugMockEngine>(folder.path()), trash);
    harness.onMain([](AppStore& store) { store.scan(); });
    ASSERT_TRUE(harness.runUntil([](const AppStore& s) { return !s.findings().empty(); }));
    ASSERT_TRUE(harness.settle());
    harness.onMain([](AppStore& store) { store.clean(); });
    ASSERT_TRUE(harness.runUntil([](const AppStore& s) {
      return s.cleanupProgress() && s.cleanupProgress()->isEmptyingTrash;
    }));
    EXPECT_EQ(harness.store->cleanupProgress()->totalItems, 1);
    EXPECT_EQ(harness.store->cleanupProgress()->plannedBytes, 150);
    harness.onMain([](AppStore& store) { store.clean(); });  // a second start does nothing
    EXPECT_EQ(harness.store->cleanupActionState().kind, CleanupActionState::Kind::executing);
    trash->release();
    ASSERT_TRUE(harness.runUntil([](const AppStore& s) { return s.latestReceipt().has_value(); }));

    const AppStore& store = *harness.store;
    EXPECT_EQ(trash->emptyCalls(), 1);
    EXPECT_EQ(store.cleanupActionState().kind, CleanupActionState::Kind::idle);
    EXPECT_FALSE(store.cleanupProgress().has_value());
    ASSERT_EQ(store.latestReceipt()->results.size(), 1u);
    const CleanupItemResult& row = store.latestReceipt()->results[0];
    EXPECT_EQ(row.id, "/home/u/.local/share/Trash");
    EXPECT_EQ(row.originalPath, row.id);
    EXPECT_EQ(row.outcome, test.outcome);
    EXPECT_EQ(row.bytes, test.bytes);
    EXPECT_EQ(row.message, test.message);
    EXPECT_EQ(store.trashNeedsAutomation(), test.needsAutomation);
    // Read again after the empty, whatever it did: the old size doesn't return.
    ASSERT_EQ(store.findings().size(), 1u);
    EXPECT_EQ(store.findings()[0].bytes, 50);
    EXPECT_TRUE(store.selectedFindingIDs().contains("trash"));
    harness.onMain([](AppStore& onMain) { onMain.continueCleaning(); });
    EXPECT_FALSE(harness.store->latestReceipt().has_value());
  }
}

TEST_F(AppStoreReplayTest, TheFullDiskAccessPollScansOnceAccessArrivesAndEndsQuietlyWithout) {
  set.stream<ScanEvent>("scan-stream", {event(ScanEventKind::completed)});
  struct Case {
    const char* name;
    std::vector<bool> answers;  // at construction and load, then at each wake
    bool granted;
    int probeCalls;
  };
  const std::vector<Case> cases = {
      {"false, false, then true", {false, false, false, false, true}, true, 5},
      {"never", {false}, false, 5},  // construction, load and three wakes
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    int calls = 0;
    auto harness = this->harness(nullptr, [&] {
      const bool answer = test.answers.at(std::min<size_t>(calls, test.answers.size() - 1));
      ++calls;
      return answer;
    });
    harness->onMain([](AppStore& store) { store.load(); });
    EXPECT_FALSE(harness->store->fullDiskAccessGranted());
    harness->onMain([](AppStore& store) { store.requestFullDiskAccess(); });
    EXPECT_TRUE(harness->store->isPermissionPollRunning());
    ASSERT_TRUE(harness->runUntil([](const AppStore& s) { return !s.isPermissionPollRunning(); },
                                  std::chrono::seconds(5)));
    ASSERT_TRUE(harness->settle());
    EXPECT_EQ(calls, test.probeCalls);
    EXPECT_EQ(harness->store->fullDiskAccessGranted(), test.granted);
    EXPECT_EQ(harness->store->scanState().kind,
              test.granted ? ScanState::Kind::loaded : ScanState::Kind::idle);
  }
}

}  // namespace
}  // namespace brisko
