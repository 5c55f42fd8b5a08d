#include "cli/cli_session.h"

#include <atomic>
#include <chrono>
#include <stdexcept>

#include "platform/home_directory.h"
#include "text/app_texts.h"
#include "trash/auto_trash_client.h"
#include "trash/direct_trash_client.h"

namespace brisko::cli {

// The user's Trash, counting the readings that failed, so that a command knows
// when the reading beside a scan is over: a reading that succeeded shows as
// the store's Trash, one that failed leaves no trace there.
class CountingTrashClient : public TrashClient {
 public:
  explicit CountingTrashClient(std::shared_ptr<TrashClient> inner) : inner_(std::move(inner)) {}

  FinderTrash::Inventory inventory() override {
    try {
      return inner_->inventory();
    } catch (...) {
      ++failed_;
      throw;
    }
  }
  void empty() override { inner_->empty(); }
  int failedReadings() const { return failed_.load(); }

 private:
  std::shared_ptr<TrashClient> inner_;
  std::atomic<int> failed_{0};
};

namespace {

std::string dataHome() {
  const char* configured = std::getenv("XDG_DATA_HOME");
  if (configured && configured[0] == '/') return configured;
  return currentHomeDirectory().value_or("/") + "/.local/share";
}

}  // namespace

CliSession::CliSession(Console& console, CliSessionOptions options) : console_(console) {
  auto bundled = std::make_shared<BundledEngineClient>();
  if (options.scansInstallers) bundled->overrideDownloadedInstallers(*options.scansInstallers);
  engine_ = bundled;
  if (options.recorder)
    engine_ = std::make_shared<RecordingEngineClient>(engine_, std::move(options.recorder));
  trash_ = std::make_shared<CountingTrashClient>(std::make_shared<AutoTrashClient>(
      std::make_shared<DirectTrashClient>(DirectTrashClient::forCurrentUser()),
      [] { return hasFullDiskAccess(); }));

  AppStoreDependencies dependencies;
  dependencies.executor = &executor_;
  dependencies.realEngine = engine_;
  dependencies.realTrashClient = trash_;
  dependencies.fullDiskAccessProbe = [] { return hasFullDiskAccess(); };
  dependencies.trashFolder = dataHome() + "/Trash";
  store_ = std::make_unique<AppStore>(std::move(dependencies));
}

CliSession::~CliSession() {
  // The store cancels what still runs and joins its workers; what they post
  // back is dropped with the executor.
  store_.reset();
}

void CliSession::onMain(const std::function<void(AppStore&)>& call) {
  // The posted call is ready at once, so running until idle runs it, and
  // what it posted in turn.
  executor_.post([&] { call(*store_); });
  executor_.runUntilIdle();
}

void CliSession::runUntil(const std::function<bool(const AppStore&)>& done,
                          const std::function<void(const AppStore&)>& tick) {
  while (!executor_.runUntil(
      [&] {
        if (tick) tick(*store_);
        return done(*store_);
      },
      std::chrono::hours(24))) {
  }
}

void CliSession::scan() {
  const int failuresBefore = trash_->failedReadings();
  const bool readsTrash = !store_->trash().has_value();
  onMain([](AppStore& store) { store.scan(); });
  runUntil(
      [&](const AppStore& store) {
        return store.scanState().kind != ScanState::Kind::scanning &&
               (!readsTrash || store.trash().has_value() ||
                trash_->failedReadings() > failuresBefore ||
                store.scanState().kind == ScanState::Kind::failed);
      },
      [&](const AppStore& store) {
        if (store.scanState().kind == ScanState::Kind::scanning)
          console_.progress(scanProgressLine(store));
      });
  console_.clearProgress();
  if (store_->scanState().kind == ScanState::Kind::failed)
    throw std::runtime_error(store_->scanState().message);
}

std::string scanProgressLine(const AppStore& store) {
  const auto& progress = store.scanProgress();
  if (!progress || progress->totalLocations == 0)
    return AppText::localized(AppText::kPreparingScan);
  if (progress->completedLocations >= progress->totalLocations)
    return AppText::localized(AppText::kOrganizingResults);
  std::string line = "Scanning " + std::to_string(progress->completedLocations) + " of " +
                     std::to_string(progress->totalLocations) + " locations";
  if (progress->currentTitle) line += ": " + AppText::engineText(*progress->currentTitle);
  return line;
}

}  // namespace brisko::cli
