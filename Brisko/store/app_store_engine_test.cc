// The store driving the real engine through the real client over the sample
// home, with the home's real Trash behind a wrapper that counts the calls.

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "engine/bundled_engine_client.h"
#include "protocol/guard_warning_text.h"
#include "settings/settings_store.h"
#include "store/app_store.h"
#include "testing/forwarding_engine.h"
#include "testing/sample_home.h"
#include "testing/store_harness.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"
#include "testing/trash_folder.h"
#include "text/app_texts.h"
#include "trash/direct_trash_client.h"

namespace brisko {
namespace {

namespace fs = std::filesystem;
using testing::ForwardingEngine;
using testing::ScriptedTrash;
using testing::StoreHarness;

bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

// The sample home as the user's home for the engine, with a Trash of two
// entries that is empty after `empty`.
class AppStoreOnSampleHome : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::buildSampleHome(home_);
    for (const char* name : {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"}) {
      const char* value = std::getenv(name);
      saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
    ::setenv("HOME", home_.c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home_ + "/.local/share").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (home_ + "/.config").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (home_ + "/.cache").c_str(), 1);
    engine_ = std::make_shared<ForwardingEngine>(std::make_shared<BundledEngineClient>(
        std::string(BRISKO_ENGINE_PATH), SettingsStore(home_ + "/.config/brisko/settings.json")));
    const testing::TrashFolder userTrash(trashFolder());
    userTrash.addFile("old.txt", 8192);
    userTrash.addInfo("old.txt");
    userTrash.addFolder("older", 3, 4096);
    userTrash.addInfo("older");
    auto real = std::make_shared<DirectTrashClient>(home_ + "/.local/share", "", ::geteuid());
    trash_->answerInventory([real] { return real->inventory(); });
    trash_->answerEmpty([real] { real->empty(); });
    harness_ = std::make_unique<StoreHarness>(engine_, trash_, trashFolder());
  }

  void TearDown() override {
    harness_.reset();
    for (const auto& [name, value] : saved_) {
      if (value)
        ::setenv(name.c_str(), value->c_str(), 1);
      else
        ::unsetenv(name.c_str());
    }
  }

  std::string trashFolder() const { return home_ + "/.local/share/Trash"; }

  void scanToTheEnd() {
    harness_->onMain([](AppStore& store) { store.scan(); });
    ASSERT_TRUE(harness_->settle());
    ASSERT_EQ(harness_->store->scanState().kind, ScanState::Kind::loaded)
        << harness_->store->scanState().message;
    // The Trash is read beside the scan and may come a moment later.
    ASSERT_TRUE(harness_->runUntil([](const AppStore& s) { return s.trash().has_value(); }));
  }

  const AppStore& store() const { return *harness_->store; }

  testing::TemporaryDirectory directory_;
  std::string home_ = directory_ / "home";
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
  std::shared_ptr<ForwardingEngine> engine_;
  std::shared_ptr<ScriptedTrash> trash_ = std::make_shared<ScriptedTrash>();
  std::unique_ptr<StoreHarness> harness_;
};

std::string describe(const AppStore& store) {
  std::string text;
  text += "engineVersion: " + store.engineVersion() + "\n";
  if (store.disk())
    text += "disk: " + store.disk()->volumeName + ", " +
            std::to_string(store.disk()->availableBytes) + " of " +
            std::to_string(store.disk()->totalBytes) + " bytes free\n";
  text += "scanState: " + std::to_string(static_cast<int>(store.scanState().kind)) + "\n";
  text += "findings:\n";
  for (const ScanFinding& finding : store.findings())
    text += "  " + finding.id + " " + std::to_string(finding.bytes) + " B, " +
            std::to_string(finding.items ? finding.items->size() : 0) + " items, " +
            (store.isFullySelected(finding) ? "selected" : "not selected") + "\n";
  text += "selected: " + std::to_string(store.selectedFindingIDs().size()) + " findings, " +
          std::to_string(store.selectedFindingItemIDs().size()) + " items, " +
          std::to_string(store.selectedBytes()) + " B\n";
  text += "warnings: " + std::to_string(store.warnings().size()) +
          ", blocked: " + std::to_string(store.blockedLocations().size()) + "\n";
  if (store.trash())
    text += "trash: " + std::to_string(store.trash()->entries.size()) + " entries, " +
            std::to_string(store.trash()->totalBytes()) + " B\n";
  if (store.latestReceipt()) {
    text += "latestReceipt:\n";
    for (const CleanupItemResult& result : store.latestReceipt()->results)
      text += "  " +
              std::string(EnumNames<CleanupItemOutcome>::names[static_cast<int>(result.outcome)]) +
              " " + result.originalPath + " " + std::to_string(result.bytes) + " B " +
              AppText::engineText(result.message) + "\n";
  }
  return text;
}

TEST_F(AppStoreOnSampleHome, AScanPreselectsTheRecommendedAndTheTrashAndAGuardedProgramHoldsBack) {
  struct Case {
    const char* name;
    bool xcodeRunning;
  };
  for (const Case& test : {Case{"nothing guarded runs", false}, Case{"Xcode runs", true}}) {
    SCOPED_TRACE(test.name);
    pid_t sleeper = -1;
    testing::TemporaryDirectory bin;
    if (test.xcodeRunning) {
      fs::copy_file("/bin/sleep", bin / "Xcode");
      sleeper = ::fork();
      ASSERT_GE(sleeper, 0);
      if (sleeper == 0) {
        const std::string xcode = bin / "Xcode";
        ::execl(xcode.c_str(), "Xcode", "60", static_cast<char*>(nullptr));
        ::_exit(127);
      }
    }
    scanToTheEnd();
    if (sleeper > 0) {
      ::kill(sleeper, SIGKILL);
      ::waitpid(sleeper, nullptr, 0);
    }
    if (!test.xcodeRunning) std::cout << "After a scan:\n" << describe(store());

    std::set<std::string> expected{"trash"};
    bool sawReview = false, sawReportOnly = false, sawGuarded = false;
    for (const ScanFinding& finding : store().findings()) {
      sawReview = sawReview || finding.risk == RiskLevel::review;
      sawReportOnly = sawReportOnly || finding.action == RuleAction::reportOnly;
      const bool guarded = test.xcodeRunning && finding.id == "xcode-derived-data";
      sawGuarded = sawGuarded || guarded;
      if (finding.risk == RiskLevel::recommended && finding.action == RuleAction::cleanup &&
          !guarded)
        expected.insert(finding.id);
      if (guarded && finding.items) {
        for (const ScanFindingItem& item : *finding.items)
          EXPECT_FALSE(store().selectedFindingItemIDs().contains(item.id)) << item.id;
      }
    }
    EXPECT_TRUE(sawReview && sawReportOnly) << "the sample home lacks a case";
    EXPECT_EQ(sawGuarded, test.xcodeRunning);
    EXPECT_EQ(store().selectedFindingIDs(), expected);
    if (test.xcodeRunning) {
      ASSERT_EQ(store().warnings().size(), 1u);
      EXPECT_EQ(AppText::engineText(store().warnings()[0]),
                "Xcode is running, so \u201cXcode caches\u201d can\u2019t be cleaned this time");
    } else {
      EXPECT_TRUE(store().warnings().empty());
    }
  }
}

TEST_F(AppStoreOnSampleHome, ACleanRemovesExactlyTheSelectionAndEmptiesTheTrash) {
  // What GLib's own tool put into the Trash goes too.
  const bool hasGio =
      testing::runProcess({"sh", "-c", "command -v gio && command -v dbus-run-session"})
          .exitStatus == 0;
  if (hasGio) {
    const std::string trashed = directory_.writeFile("home/notes from gio.txt", "gio");
    testing::ProcessOptions options;
    options.environment = {{"HOME", home_}, {"XDG_DATA_HOME", home_ + "/.local/share"}};
    options.unsetEnvironment = {"DBUS_SESSION_BUS_ADDRESS"};
    const auto result = testing::runProcess(
        {"timeout", "60", "dbus-run-session", "--", "gio", "trash", trashed}, options);
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
  }
  scanToTheEnd();
  // One finding with several items: one item out, then the whole finding
  // off and on again, so the selection went through every toggle.
  const ScanFinding* several = nullptr;
  for (const ScanFinding& finding : store().findings())
    if (finding.items && finding.items->size() > 1 && store().isFullySelected(finding))
      several = &finding;
  ASSERT_NE(several, nullptr);
  const std::string severalID = several->id;
  const std::string keptItem = several->items->front().id;
  harness_->onMain([&](AppStore& s) { s.toggleItem(severalID, keptItem); });
  EXPECT_FALSE(store().selectedFindingIDs().contains(severalID));
  harness_->onMain([&](AppStore& s) { s.toggleFinding(severalID); });
  EXPECT_TRUE(store().selectedFindingIDs().contains(severalID));
  harness_->onMain([&](AppStore& s) { s.toggleItem(severalID, keptItem); });
  EXPECT_FALSE(store().selectedFindingIDs().contains(severalID));

  std::vector<std::string> selectedPaths, unselectedPaths;
  for (const ScanFinding& finding : store().findings()) {
    if (finding.id == "trash") continue;
    for (const ScanFindingItem& item : finding.items.value_or(std::vector<ScanFindingItem>{}))
      (store().selectedFindingItemIDs().contains(item.id) ? selectedPaths : unselectedPaths)
          .push_back(item.path);
    if (!finding.items)
      (store().selectedFindingIDs().contains(finding.id) ? selectedPaths : unselectedPaths)
          .push_back(finding.path);
  }
  ASSERT_FALSE(selectedPaths.empty());

  ASSERT_TRUE(store().trash().has_value());
  const std::int64_t trashBytes = store().trash()->totalBytes();
  EXPECT_EQ(store().trash()->entries.size(), hasGio ? 3u : 2u);

  std::optional<CleanupRunProgress> last;
  auto watch = harness_->store->subscribe([&](const StoreFields& changed) {
    if (changed.contains(StoreField::cleanupProgress) && store().cleanupProgress())
      last = store().cleanupProgress();
  });
  harness_->onMain([](AppStore& s) { s.clean(); });
  ASSERT_TRUE(harness_->runUntil([](const AppStore& s) { return s.latestReceipt().has_value(); }));
  ASSERT_TRUE(harness_->runUntil([&](const AppStore&) { return engine_->overviewCalls > 0; }));
  std::cout << "After a clean:\n" << describe(store());

  // Items that are folders are emptied entry by entry: no deleted path lies
  // in an unselected row.
  const auto& results = store().latestReceipt()->results;
  const auto within = [](const std::string& path, const std::vector<std::string>& roots) {
    return std::any_of(roots.begin(), roots.end(), [&](const std::string& root) {
      return path == root || path.rfind(root + "/", 0) == 0;
    });
  };
  for (const CleanupItemResult& result : results) {
    if (result.outcome != CleanupItemOutcome::deleted || result.id == trashFolder()) continue;
    EXPECT_FALSE(within(result.originalPath, unselectedPaths)) << result.originalPath;
  }
  for (const std::string& path : unselectedPaths)
    EXPECT_TRUE(exists(path)) << path;
  // The last notice with progress is the one before the Trash's row, which
  // ends the run in the same change.
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(last->completedItems + 1, last->totalItems);
  EXPECT_EQ(last->processedBytes + trashBytes, last->plannedBytes);
  ASSERT_FALSE(results.empty());
  EXPECT_EQ(results.back().id, trashFolder());
  EXPECT_EQ(results.back().outcome, CleanupItemOutcome::deleted);
  EXPECT_EQ(results.back().message, "Emptied.");
  EXPECT_EQ(results.back().bytes, trashBytes);
  EXPECT_EQ(trash_->emptyCalls(), 1);
  EXPECT_TRUE(fs::is_empty(trashFolder() + "/files"));
  EXPECT_TRUE(fs::is_empty(trashFolder() + "/info"));
  for (const CleanupItemResult& result : results) {
    if (result.outcome == CleanupItemOutcome::deleted && result.id != trashFolder()) {
      EXPECT_FALSE(exists(result.originalPath)) << result.originalPath;
    }
  }
  // What stays listed is what wasn't deleted: the kept item among it.
  EXPECT_TRUE(store().selectedFindingIDs().contains("trash"));
  EXPECT_EQ(store().cleanupActionState().kind, CleanupActionState::Kind::idle);
}

TEST_F(AppStoreOnSampleHome, AFileAppendedToBetweenPlanAndRunIsSkippedAndStaysSelected) {
  scanToTheEnd();
  std::string findingID, itemID, path;
  for (const ScanFinding& finding : store().findings())
    for (const ScanFindingItem& item : finding.items.value_or(std::vector<ScanFindingItem>{}))
      if (path.empty() && store().selectedFindingItemIDs().contains(item.id) &&
          fs::exists(fs::symlink_status(item.path)))
        findingID = finding.id, itemID = item.id, path = item.path;
  ASSERT_FALSE(path.empty()) << "no selected item on disk";
  // A file grows; a folder is put back as a new one of the same name.
  engine_->beforeExecute = [&] {
    if (fs::is_regular_file(fs::symlink_status(path))) {
      std::ofstream(path, std::ios::app) << std::string(8192, 'y');
      return;
    }
    fs::rename(path, path + ".moved");
    fs::create_directory(path);
  };
  harness_->onMain([](AppStore& s) { s.clean(); });
  ASSERT_TRUE(harness_->runUntil([](const AppStore& s) { return s.latestReceipt().has_value(); }));

  EXPECT_TRUE(exists(path));
  const auto& results = store().latestReceipt()->results;
  // A row such as a folder of versions is planned as the entries it holds.
  const auto row = std::find_if(results.begin(), results.end(), [&](const CleanupItemResult& r) {
    return r.originalPath == path || r.originalPath.starts_with(path + "/");
  });
  ASSERT_NE(row, results.end()) << path;
  EXPECT_EQ(row->outcome, CleanupItemOutcome::skipped);
  EXPECT_TRUE(store().selectedFindingItemIDs().contains(itemID));
  bool listed = false;
  for (const ScanFinding& finding : store().findings())
    for (const ScanFindingItem& item : finding.items.value_or(std::vector<ScanFindingItem>{}))
      listed = listed || item.id == itemID;
  EXPECT_TRUE(listed);
}

TEST_F(AppStoreOnSampleHome, ACleanOfTheTrashAloneAsksTheEngineForNothingButTheVolume) {
  scanToTheEnd();
  for (const ScanFinding& finding : store().findings())
    if (finding.id != "trash" && store().isFullySelected(finding))
      harness_->onMain([&](AppStore& s) { s.toggleFinding(finding.id); });
  ASSERT_EQ(store().selectedFindingIDs(), std::set<std::string>{"trash"});
  ASSERT_TRUE(store().selectedFindingItemIDs().empty());
  const std::int64_t trashBytes = store().trash()->totalBytes();
  harness_->onMain([](AppStore& s) { s.clean(); });
  ASSERT_TRUE(harness_->runUntil([](const AppStore& s) { return s.latestReceipt().has_value(); }));

  EXPECT_EQ(engine_->planCalls, 0);
  EXPECT_EQ(engine_->executeCalls, 0);
  ASSERT_EQ(store().latestReceipt()->results.size(), 1u);
  EXPECT_EQ(store().latestReceipt()->results[0].bytes, trashBytes);
  EXPECT_EQ(trash_->emptyCalls(), 1);
  ASSERT_NE(store().trash(), std::nullopt);
  EXPECT_TRUE(store().trash()->entries.empty());
}

TEST_F(AppStoreOnSampleHome, TheWhitelistNoticeWaitsForAListAndACancelledScanKeepsWhatCame) {
  harness_->onMain([](AppStore& s) { s.whitelistChanged(); });
  EXPECT_FALSE(store().whitelistDirty()) << "nothing was listed yet";
  scanToTheEnd();
  harness_->onMain([](AppStore& s) { s.whitelistChanged(); });
  EXPECT_TRUE(store().whitelistDirty());

  struct Case {
    int findingsBeforeHold;
    ScanState::Kind state;
  };
  for (const Case& test : {Case{0, ScanState::Kind::idle}, Case{1, ScanState::Kind::loaded}}) {
    SCOPED_TRACE(test.findingsBeforeHold);
    engine_->holdScanAfterFindings = test.findingsBeforeHold;
    harness_->onMain([](AppStore& s) { s.scan(); });
    EXPECT_FALSE(store().whitelistDirty()) << "a new scan takes the notice away";
    ASSERT_TRUE(harness_->runUntil([&](const AppStore& s) {
      return static_cast<int>(s.findings().size()) >= test.findingsBeforeHold;
    })) << store().scanState().message;
    harness_->onMain([](AppStore& s) { s.cancelScan(); });
    ASSERT_TRUE(harness_->settle());
    EXPECT_EQ(store().scanState().kind, test.state);
    EXPECT_EQ(store().findings().size(), static_cast<size_t>(test.findingsBeforeHold));
  }
}

TEST(AppStoreWithoutEngine, AMissingEngineReadsUnavailableAndFailsTheFirstScanWithTheClientsWords) {
  testing::TemporaryDirectory directory;
  StoreHarness harness(std::make_shared<BundledEngineClient>(
      std::string(directory / "BriskoEngine"), SettingsStore(directory / "settings.json")));
  harness.onMain([](AppStore& s) { s.load(); });
  ASSERT_TRUE(harness.runUntil([](const AppStore& s) { return !s.engineVersion().empty(); }));
  EXPECT_EQ(harness.store->engineVersion(), "Engine unavailable");
  harness.onMain([](AppStore& s) { s.scan(); });
  ASSERT_TRUE(harness.settle());
  EXPECT_EQ(harness.store->scanState(),
            ScanState::failed("The built-in scan engine is missing. Please reinstall Brisko."));
}

}  // namespace
}  // namespace brisko
