#pragma once

// The application's one observable model: what the window's pages and
// `brisko`'s commands read. This file holds the clean flow: the start-up
// load, the scan and the folding of its events, the selection, the Trash row,
// the confirmed clean with its progress and receipt, the whitelist notice and
// the Full Disk Access poll. Later flows add sections and files of their own:
// the Space page's scan, drill-down, basket and clean are in app_store_space*.cc.
//
// Threads: every operation and every read runs on the main executor handed in
// (each change checks it and stops the program when it doesn't). Engine and
// Trash calls run on worker threads of the store and post their results back
// in order. The store deletes nothing itself: only the engine, the
// `TrashClient` and, for the Space basket, `SpaceCleanService` on a worker do. Dropping the store
// cancels what runs and waits for its workers.

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/debug_mock_engine.h"
#include "engine/engine_client.h"
#include "protocol/receipt_records.h"
#include "protocol/scan_records.h"
#include "protocol/space_records.h"
#include "space/space_cache_store.h"
#include "space/space_clean_service.h"
#include "store/finding_selection.h"
#include "store/main_executor.h"
#include "store/space_states.h"
#include "store/store_observation.h"
#include "store/store_states.h"
#include "store/worker_threads.h"
#include "trash/trash_client.h"

namespace brisko {

struct AppStoreDependencies {
  MainExecutor* executor = nullptr;  // outlives the store
  std::shared_ptr<EngineClient> realEngine;
  std::shared_ptr<TrashClient> realTrashClient;
  // Called on the main executor; must answer quickly. None answers true, as
  // Linux has no such permission.
  std::function<bool()> fullDiskAccessProbe;
  // The folder that the Trash row stands for: the home Trash.
  std::string trashFolder;
  // Opens the system's Full Disk Access settings; nothing on Linux.
  std::function<void()> openFullDiskAccessSettings;
  // The Full Disk Access poll: a wake every `interval`, `wakes` times.
  std::chrono::milliseconds permissionPollInterval{1000};
  int permissionPollWakes = 300;
  // The Space page: the home folder that bounds its cleans (empty: the
  // user's), the disk that a clean acts on (none: the real one, GIO's Trash
  // and the link-proof removal), the cache that the page shows first (none:
  // the default place under the home).
  std::string homeDirectory;
  std::shared_ptr<SpaceFileOperations> spaceFileOperations;
  std::optional<SpaceCacheStore> spaceCacheStore;
};

class AppStore {
 public:
  explicit AppStore(AppStoreDependencies dependencies);
  ~AppStore();
  AppStore(const AppStore&) = delete;
  AppStore& operator=(const AppStore&) = delete;

  StoreObservers::Subscription subscribe(StoreObservers::Subscriber subscriber) {
    return observers_.subscribe(std::move(subscriber));
  }

  // --- The fields -----------------------------------------------------------
  const std::optional<DiskSnapshot>& disk() const { return disk_; }
  const std::vector<ScanFinding>& findings() const { return findings_; }
  const std::set<std::string>& selectedFindingIDs() const { return selection_.findingIDs; }
  const std::set<std::string>& selectedFindingItemIDs() const { return selection_.itemIDs; }
  const std::set<std::string>& expandedFindingIDs() const { return expandedFindingIDs_; }
  const ScanState& scanState() const { return scanState_; }
  const std::optional<ScanProgress>& scanProgress() const { return scanProgress_; }
  const std::string& engineVersion() const { return engineVersion_; }
  const std::vector<std::string>& warnings() const { return warnings_; }
  const std::vector<BlockedLocation>& blockedLocations() const { return blockedLocations_; }
  const std::optional<FinderTrash::Inventory>& trash() const { return trash_; }
  bool trashNeedsAutomation() const { return trashNeedsAutomation_; }
  bool fullDiskAccessGranted() const { return fullDiskAccessGranted_; }
  const CleanupActionState& cleanupActionState() const { return cleanupActionState_; }
  const std::optional<CleanupRunProgress>& cleanupProgress() const { return cleanupProgress_; }
  const std::optional<CleanupReceipt>& latestReceipt() const { return latestReceipt_; }
  bool whitelistDirty() const { return whitelistDirty_; }
  const std::shared_ptr<DebugMockEngine>& debugEngine() const { return debugEngine_; }
  const std::shared_ptr<EngineClient>& realEngine() const { return realEngine_; }
  const std::shared_ptr<TrashClient>& realTrashClient() const { return realTrashClient_; }
  bool isPermissionPollRunning() const { return permissionPollTask_ != nullptr; }

  // --- The Space page's fields (app_store_space*.cc) ---------------------------
  const std::optional<SpaceReport>& spaceReport() const { return spaceReport_; }
  const std::vector<SpaceNode>& spaceNodes() const { return spaceNodes_; }
  const std::vector<std::string>& spacePathStack() const { return spacePathStack_; }
  const std::vector<LargeFileItem>& spaceLargeFiles() const { return spaceLargeFiles_; }
  const std::optional<SpaceScanProgress>& spaceProgress() const { return spaceProgress_; }
  const SpaceScanState& spaceScanState() const { return spaceScanState_; }
  const std::set<std::string>& spaceBasket() const { return spaceBasket_; }
  const std::optional<SpaceCleanReceipt>& spaceCleanReceipt() const { return spaceCleanReceipt_; }
  bool isSpaceCleaning() const { return isSpaceCleaning_; }
  const SpaceCleanService& spaceCleanService() const { return spaceCleanService_; }
  const SpaceCacheStore& spaceCacheStore() const { return spaceCacheStore_; }
  bool hasPreparedSpacePage() const { return hasPreparedSpacePage_; }

  // --- Start-up and the scan ------------------------------------------------
  // Takes the probe's answer, then asks the engine for its version and the
  // volume side by side.
  void load();
  // Does nothing while a scan runs.
  void scan();
  // The scan then ends as cancelled: `loaded` with findings, else `idle`.
  void cancelScan();
  // When set, the debug engine answers in place of the real one.
  void setDebugEngine(std::shared_ptr<DebugMockEngine> engine);

  // --- The selection ----------------------------------------------------------
  void toggleFinding(const std::string& findingID);
  void toggleItem(const std::string& findingID, const std::string& itemID);
  void setItems(const std::string& findingID, const std::vector<std::string>& itemIDs,
                bool selected);
  void toggleExpansion(const std::string& findingID);
  bool isFullySelected(const ScanFinding& finding) const;
  // The bytes and the number of rows that a clean of the selection would
  // take: whole findings, single items, the Trash.
  // `reportOnly` findings never count: they can't be cleaned.
  std::int64_t selectedBytes() const;
  // Selected items, plus selected findings that have none.
  std::int64_t selectedItemCount() const;

  // --- The clean --------------------------------------------------------------
  // After the user confirmed. Does nothing with an empty selection, while a
  // scan runs, and while a clean is preparing or executing.
  void clean();
  // The same with a plan that the caller made from this selection (and showed
  // the user) beforehand: it runs as it stands, no second plan is made. An
  // expired plan fails the run as the engine refuses it.
  void clean(CleanupPlan plan);
  // The running clean stops after the item in work; what finished stays.
  void cancelClean();
  // After a run: the receipt is put away.
  void continueCleaning();

  // --- Notices and permissions ----------------------------------------------
  void whitelistChanged();
  void requestFullDiskAccess();

  // --- The Space page -----------------------------------------------------------
  // When the page opens; only the first call counts. Shows the cached tree
  // (read on a worker) at once and refreshes it in place with a new scan.
  void prepareSpacePage();
  // Does nothing while a space scan runs. With `incremental` and a tree on
  // screen, that tree stays until the new report replaces it, and the
  // position and the basket are then repaired against it; otherwise the page
  // starts empty and fills in as the scan streams.
  void scanSpace(bool incremental);
  // Only while a space scan runs: it ends as cancelled, keeping what shows.
  void stopSpaceScan();
  // Drill-down: a node without children changes nothing.
  void enterSpaceNode(const SpaceNode& node);
  // Cuts the stack to `depth` entries when that is shorter than it.
  void popSpacePath(std::int64_t depth);
  void toggleBasket(const SpaceNode& node);
  bool isCoveredBySelection(const std::string& path) const;
  // Moves the picked items to the Trash or deletes them, on a worker, then
  // prunes them from the tree. Does nothing while a clean runs or with an
  // empty basket. Refused and failed items stay picked.
  void cleanBasket(SpaceCleanMode mode);
  // The receipt dock's "Done".
  void dismissSpaceCleanReceipt();

  // Derived values, computed when read.
  const std::vector<SpaceNode>& spaceDisplayNodes() const;
  // Pointers into spaceNodes(), valid until it changes.
  std::vector<const SpaceNode*> spaceBreadcrumb() const;
  std::int64_t spaceMeasuredBytes() const;
  std::vector<SpaceNode> spaceBasketNodes() const;
  std::int64_t spaceBasketBytes() const;
  std::int64_t spaceBasketFreeableBytes() const;
  SpaceView::DockPhase spaceDockPhase() const;
  // The rows of the level shown, their bars scaled to its largest row.
  std::vector<DirectoryRow> spaceRows() const;
  // The selection control shows when the row is picked or covered, or when
  // the pointer is over a row that can be picked.
  bool showsSelectionControl(const DirectoryRow& row) const;
  std::string selectionHelp(const DirectoryRow& row) const;
  // The texts of the page in its present state.
  std::string spaceMeasuredText() const;
  std::string spaceStatusText() const;
  std::string spaceBasketText() const;

 private:
  class Batch;
  friend class Batch;
  struct PermissionPoll;
  struct CleanRun;

  std::shared_ptr<EngineClient> activeEngine() const;
  void checkOnMain() const;
  // Runs `work` on a worker; whatever it posts with `postBack` runs on the
  // main executor, unless the store went in between.
  void onWorker(std::function<void()> work);
  void postBack(std::function<void()> task);

  // Assigns and records a change only when the value differs.
  template <typename Value>
  void set(StoreField field, Value& member, Value value);
  // For a change made in place, known to be one.
  void mark(StoreField field) { pendingChanges_.insert(field); }
  void setSelection(FindingSelection selection);
  void setFindings(std::vector<ScanFinding> findings);
  void readTrash();

  void applyScanEvent(std::uint64_t scan, const ScanEvent& event);
  void endScan(std::uint64_t scan, std::exception_ptr error);
  void applyTrashResult(std::optional<FinderTrash::Inventory> inventory,
                        std::optional<FinderTrash::Failure::Reason> failure);
  void rebuildTrash();
  const ScanFinding* finding(const std::string& id) const;

  void startClean(std::optional<CleanupPlan> preparedPlan);
  void startPlan(std::shared_ptr<CleanRun> run);
  void startExecution(std::shared_ptr<CleanRun> run);
  void applyCleanupEvent(const std::shared_ptr<CleanRun>& run, const CleanupEvent& event);
  void endExecution(const std::shared_ptr<CleanRun>& run, std::exception_ptr error);
  void emptyTrash(std::shared_ptr<CleanRun> run);
  void finishClean(const std::shared_ptr<CleanRun>& run);
  void failClean(const std::shared_ptr<CleanRun>& run, std::string message);
  void refreshDisk();

  void applySpaceEvent(std::uint64_t scan, const SpaceEvent& event);
  void applySpaceReport(const SpaceReport& report);
  void endSpaceScan(std::uint64_t scan, std::exception_ptr error);
  void applySpaceCleanReceipt(SpaceCleanReceipt receipt);
  void setSpaceBasket(std::set<std::string> basket);

  void schedulePermissionPoll(std::shared_ptr<PermissionPoll> poll);
  void wakePermissionPoll(const std::shared_ptr<PermissionPoll>& poll);

  // Constant after construction.
  MainExecutor& executor_;
  std::shared_ptr<EngineClient> realEngine_;
  std::shared_ptr<TrashClient> realTrashClient_;
  std::function<bool()> fullDiskAccessProbe_;
  std::string trashFolder_;
  std::function<void()> openFullDiskAccessSettings_;
  std::chrono::milliseconds permissionPollInterval_;
  int permissionPollWakes_;
  SpaceCleanService spaceCleanService_;
  SpaceCacheStore spaceCacheStore_;

  // Observable state; main executor only.
  std::optional<DiskSnapshot> disk_;
  std::vector<ScanFinding> findings_;
  FindingSelection selection_;
  std::set<std::string> expandedFindingIDs_;
  ScanState scanState_;
  std::optional<ScanProgress> scanProgress_;
  std::string engineVersion_;
  std::vector<std::string> warnings_;
  std::vector<BlockedLocation> blockedLocations_;
  std::optional<FinderTrash::Inventory> trash_;
  bool trashNeedsAutomation_ = false;
  bool fullDiskAccessGranted_ = false;
  CleanupActionState cleanupActionState_;
  std::optional<CleanupRunProgress> cleanupProgress_;
  std::optional<CleanupReceipt> latestReceipt_;
  bool whitelistDirty_ = false;
  std::shared_ptr<DebugMockEngine> debugEngine_;
  std::shared_ptr<PermissionPoll> permissionPollTask_;
  std::optional<SpaceReport> spaceReport_;
  std::vector<SpaceNode> spaceNodes_;
  std::vector<std::string> spacePathStack_;
  std::vector<LargeFileItem> spaceLargeFiles_;
  std::optional<SpaceScanProgress> spaceProgress_;
  SpaceScanState spaceScanState_;
  std::set<std::string> spaceBasket_;
  std::optional<SpaceCleanReceipt> spaceCleanReceipt_;
  bool isSpaceCleaning_ = false;
  bool hasPreparedSpacePage_ = false;

  // Bookkeeping; main executor only.
  std::uint64_t scanNumber_ = 0;                            // events of an earlier scan are dropped
  std::shared_ptr<std::atomic<bool>> scanCancelRequested_;  // of the running scan
  // The end of the store's last engine stream. A stream's last event comes
  // before its engine has exited and let go of the session, so the next
  // stream waits for this rather than meet "busy".
  std::shared_future<void> lastStreamEnded_;

  // Runs `body` on a worker once the previous engine stream has ended.
  void onStreamWorker(std::function<void()> body);
  std::shared_ptr<CleanRun> cleanRun_;
  // The running space scan: its number (events of an earlier one are
  // dropped), whether it keeps the old tree on screen, the nodes streamed so
  // far, and a cancel that came before its stream existed.
  std::uint64_t spaceScanNumber_ = 0;
  bool spaceKeepShowing_ = false;
  std::vector<SpaceNode> spacePendingNodes_;
  std::shared_ptr<std::atomic<bool>> spaceScanCancelRequested_;
  StoreObservers observers_;
  StoreFields pendingChanges_;
  int batchDepth_ = 0;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

  // Last, so that it goes first: the workers are joined before the rest.
  WorkerThreads workers_;
};

// Gathers the changes of one operation or one posted result, and tells the
// subscribers once, when the outermost batch ends.
class AppStore::Batch {
 public:
  explicit Batch(AppStore& store) : store_(store) {
    store_.checkOnMain();
    ++store_.batchDepth_;
  }
  ~Batch() {
    if (--store_.batchDepth_ > 0) return;
    const StoreFields changed = std::exchange(store_.pendingChanges_, {});
    store_.observers_.notify(changed);
  }
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

 private:
  AppStore& store_;
};

template <typename Value>
void AppStore::set(StoreField field, Value& member, Value value) {
  checkOnMain();
  if (member == value) return;
  member = std::move(value);
  pendingChanges_.insert(field);
}

}  // namespace brisko
