#include "store/app_store.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "platform/home_directory.h"
#include "text/app_texts.h"

namespace brisko {

namespace {

std::string spaceHome(const AppStoreDependencies& dependencies) {
  if (!dependencies.homeDirectory.empty()) return dependencies.homeDirectory;
  if (auto home = currentHomeDirectory()) return *home;
  throw std::runtime_error("The home folder can't be found: HOME isn't set.");
}

SpaceCleanService spaceCleanServiceOf(const AppStoreDependencies& dependencies) {
  const std::string home = spaceHome(dependencies);
  auto operations = dependencies.spaceFileOperations
                        ? dependencies.spaceFileOperations
                        : std::make_shared<SystemSpaceFileOperations>(home);
  return SpaceCleanService(home, std::move(operations));
}

}  // namespace

struct AppStore::PermissionPoll {
  int wakesLeft = 0;
  bool cancelled = false;
};

AppStore::AppStore(AppStoreDependencies dependencies)
    : executor_(*dependencies.executor),
      realEngine_(std::move(dependencies.realEngine)),
      realTrashClient_(std::move(dependencies.realTrashClient)),
      fullDiskAccessProbe_(std::move(dependencies.fullDiskAccessProbe)),
      trashFolder_(std::move(dependencies.trashFolder)),
      openFullDiskAccessSettings_(std::move(dependencies.openFullDiskAccessSettings)),
      permissionPollInterval_(dependencies.permissionPollInterval),
      permissionPollWakes_(dependencies.permissionPollWakes),
      spaceCleanService_(spaceCleanServiceOf(dependencies)),
      spaceCacheStore_(dependencies.spaceCacheStore
                           ? *dependencies.spaceCacheStore
                           : SpaceCacheStore::forHome(spaceCleanService_.homeDirectory())) {
  if (!fullDiskAccessProbe_) fullDiskAccessProbe_ = [] { return true; };
  // A command that scans without the start-up load must not show the texts of
  // a missing permission that Linux doesn't have.
  fullDiskAccessGranted_ = fullDiskAccessProbe_();
}

AppStore::~AppStore() {
  *alive_ = false;
  // The workers are joined after this body; streams that still run must end.
  if (scanState_.kind == ScanState::Kind::scanning) activeEngine()->cancelScan();
  if (cleanRun_) activeEngine()->cancelCleanup();
  if (spaceScanState_.kind == SpaceScanState::Kind::scanning) activeEngine()->cancelSpaceScan();
}

void AppStore::checkOnMain() const {
  if (executor_.isCurrent()) return;
  std::fputs("Brisko[store]: state changed off the main executor\n", stderr);
  std::abort();
}

std::shared_ptr<EngineClient> AppStore::activeEngine() const {
  if (debugEngine_) return debugEngine_;
  return realEngine_;
}

void AppStore::onWorker(std::function<void()> work) {
  workers_.start(std::move(work));
}

void AppStore::postBack(std::function<void()> task) {
  executor_.post([this, alive = alive_, task = std::move(task)] {
    if (!*alive) return;
    Batch batch(*this);
    task();
  });
}

void AppStore::setSelection(FindingSelection selection) {
  set(StoreField::selectedFindingIDs, selection_.findingIDs, std::move(selection.findingIDs));
  set(StoreField::selectedFindingItemIDs, selection_.itemIDs, std::move(selection.itemIDs));
}

void AppStore::setFindings(std::vector<ScanFinding> findings) {
  set(StoreField::findings, findings_, std::move(findings));
}

void AppStore::load() {
  Batch batch(*this);
  set(StoreField::fullDiskAccessGranted, fullDiskAccessGranted_, fullDiskAccessProbe_());
  const auto client = activeEngine();
  onWorker([this, client] {
    std::string version;
    try {
      version = AppText::localized(AppText::kEnginePrefix) + client->capabilities().engineVersion;
    } catch (...) {
      version = AppText::localized(AppText::kEngineUnavailable);
    }
    postBack([this, version] { set(StoreField::engineVersion, engineVersion_, version); });
  });
  onWorker([this, client] {
    try {
      DiskSnapshot disk = client->overview();
      postBack([this, disk] { set(StoreField::disk, disk_, std::optional(disk)); });
    } catch (...) {
      // The volume line stays empty until the scan brings it.
    }
  });
}

void AppStore::setDebugEngine(std::shared_ptr<DebugMockEngine> engine) {
  Batch batch(*this);
  set(StoreField::debugEngine, debugEngine_, std::move(engine));
}

void AppStore::refreshDisk() {
  const auto client = activeEngine();
  onWorker([this, client] {
    try {
      DiskSnapshot disk = client->overview();
      postBack([this, disk] { set(StoreField::disk, disk_, std::optional(disk)); });
    } catch (...) {
      // The last known volume stays.
    }
  });
}

void AppStore::whitelistChanged() {
  Batch batch(*this);
  if (scanState_.kind == ScanState::Kind::loaded || !findings_.empty())
    set(StoreField::whitelistDirty, whitelistDirty_, true);
}

void AppStore::requestFullDiskAccess() {
  Batch batch(*this);
  if (openFullDiskAccessSettings_) openFullDiskAccessSettings_();
  if (permissionPollTask_) permissionPollTask_->cancelled = true;
  auto poll = std::make_shared<PermissionPoll>();
  poll->wakesLeft = permissionPollWakes_;
  set(StoreField::permissionPollTask, permissionPollTask_, poll);
  schedulePermissionPoll(std::move(poll));
}

void AppStore::schedulePermissionPoll(std::shared_ptr<PermissionPoll> poll) {
  if (poll->wakesLeft <= 0) {
    if (permissionPollTask_ == poll) set(StoreField::permissionPollTask, permissionPollTask_, {});
    return;
  }
  executor_.postAfter(permissionPollInterval_, [this, alive = alive_, poll] {
    if (!*alive) return;
    Batch batch(*this);
    wakePermissionPoll(poll);
  });
}

void AppStore::wakePermissionPoll(const std::shared_ptr<PermissionPoll>& poll) {
  if (poll->cancelled) return;
  --poll->wakesLeft;
  if (!fullDiskAccessProbe_()) {
    schedulePermissionPoll(poll);
    return;
  }
  set(StoreField::fullDiskAccessGranted, fullDiskAccessGranted_, true);
  set(StoreField::permissionPollTask, permissionPollTask_, {});
  // The privacy-protected rows fill in with a new scan, unless one runs.
  if (scanState_.kind != ScanState::Kind::scanning &&
      cleanupActionState_.kind == CleanupActionState::Kind::idle)
    scan();
}

}  // namespace brisko
