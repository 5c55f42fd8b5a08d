// The Space page's scan: the cached tree shown first, the scan's events, the
// report with its repair of the position and the basket, and the endings.

#include <utility>

#include "base/date.h"
#include "store/app_store.h"
#include "store/space_basket.h"
#include "store/space_tree_view.h"

namespace brisko {

void AppStore::prepareSpacePage() {
  Batch batch(*this);
  if (hasPreparedSpacePage_) return;
  set(StoreField::hasPreparedSpacePage, hasPreparedSpacePage_, true);
  if (spaceScanState_.kind != SpaceScanState::Kind::idle || !spaceNodes_.empty()) return;
  onWorker([this, cache = spaceCacheStore_] {
    // A cache that can't be read or is damaged leaves the page empty, waiting
    // for "Start analysis"; that is no error for the user.
    std::optional<SpaceScanCacheEnvelope> envelope = cache.load();
    if (!envelope) return;
    postBack([this, report = std::move(envelope->report)] {
      // A scan that the user started meanwhile is newer than the cache.
      if (spaceScanState_.kind != SpaceScanState::Kind::idle || !spaceNodes_.empty()) return;
      set(StoreField::spaceReport, spaceReport_, std::optional(report));
      set(StoreField::spaceNodes, spaceNodes_, report.root.children);
      set(StoreField::spaceLargeFiles, spaceLargeFiles_, report.largeFiles);
      set(StoreField::spaceScanState, spaceScanState_, SpaceScanState::loaded(report.scannedAt));
      // The cached tree is told to the page first, on its own; the refresh
      // follows as the next task.
      postBack([this] { scanSpace(/*incremental=*/true); });
    });
  });
}

void AppStore::scanSpace(bool incremental) {
  Batch batch(*this);
  if (spaceScanState_.kind == SpaceScanState::Kind::scanning) return;
  const std::uint64_t number = ++spaceScanNumber_;
  spaceKeepShowing_ = incremental && !spaceNodes_.empty();
  spacePendingNodes_.clear();
  set(StoreField::spaceScanState, spaceScanState_, SpaceScanState::scanning());
  set(StoreField::spaceProgress, spaceProgress_, std::optional(SpaceScanProgress{}));
  if (!spaceKeepShowing_) {
    set(StoreField::spaceNodes, spaceNodes_, {});
    set(StoreField::spacePathStack, spacePathStack_, {});
    set(StoreField::spaceLargeFiles, spaceLargeFiles_, {});
    set(StoreField::spaceReport, spaceReport_, {});
    setSpaceBasket({});
    set(StoreField::spaceCleanReceipt, spaceCleanReceipt_, {});
  }

  const auto client = activeEngine();
  spaceScanCancelRequested_ = std::make_shared<std::atomic<bool>>(false);
  onStreamWorker([this, client, number, incremental, cancelled = spaceScanCancelRequested_] {
    try {
      EventStream<SpaceEvent> stream = client->scanSpace(incremental);
      // A stop that came before the stream existed had nothing to reach.
      if (cancelled->load()) client->cancelSpaceScan();
      while (auto event = stream.next())
        postBack([this, number, event = std::move(*event)] { applySpaceEvent(number, event); });
      postBack([this, number] { endSpaceScan(number, nullptr); });
    } catch (...) {
      postBack([this, number, error = std::current_exception()] { endSpaceScan(number, error); });
    }
  });
}

void AppStore::stopSpaceScan() {
  Batch batch(*this);
  if (spaceScanState_.kind != SpaceScanState::Kind::scanning) return;
  spaceScanCancelRequested_->store(true);
  activeEngine()->cancelSpaceScan();
}

void AppStore::applySpaceEvent(std::uint64_t scan, const SpaceEvent& event) {
  if (scan != spaceScanNumber_ || spaceScanState_.kind != SpaceScanState::Kind::scanning) return;
  // The report carries its own version, looked at too.
  std::int64_t received = event.protocolVersion;
  if (received == EngineProtocol::version && event.report) received = event.report->protocolVersion;
  if (received != EngineProtocol::version) {
    endSpaceScan(scan, std::make_exception_ptr(
                           EngineClientError::protocolMismatch(EngineProtocol::version, received)));
    // The rest of this engine's stream can't be read either.
    activeEngine()->cancelSpaceScan();
    return;
  }
  if (event.progress) set(StoreField::spaceProgress, spaceProgress_, event.progress);
  if (event.node) {
    spacePendingNodes_.push_back(*event.node);
    // With the old tree on screen, the new one shows only whole, at the report.
    if (!spaceKeepShowing_)
      set(StoreField::spaceNodes, spaceNodes_, liveTopLevel(spacePendingNodes_));
  }
  if (event.report) applySpaceReport(*event.report);
}

void AppStore::applySpaceReport(const SpaceReport& report) {
  set(StoreField::spaceReport, spaceReport_, std::optional(report));
  set(StoreField::spaceNodes, spaceNodes_, report.root.children);
  set(StoreField::spaceLargeFiles, spaceLargeFiles_, report.largeFiles);
  set(StoreField::spaceProgress, spaceProgress_, {});
  set(StoreField::spaceScanState, spaceScanState_, SpaceScanState::loaded(report.scannedAt));
  spacePendingNodes_.clear();
  if (!spaceKeepShowing_) return;
  // The position and the picks were made on the old tree: what is gone from
  // the new one drops out.
  set(StoreField::spacePathStack, spacePathStack_,
      repairedSpaceStack(spaceNodes_, spacePathStack_));
  std::set<std::string> basket;
  for (const SpaceNode& node : spaceBasketNodes())
    basket.insert(node.path);
  setSpaceBasket(std::move(basket));
}

void AppStore::endSpaceScan(std::uint64_t scan, std::exception_ptr error) {
  if (scan != spaceScanNumber_ || spaceScanState_.kind != SpaceScanState::Kind::scanning) return;
  spacePendingNodes_.clear();
  set(StoreField::spaceProgress, spaceProgress_, {});
  // A stream that ended well has brought its report, which set the state.
  // One that ended without it is read as a stop: what shows stays.
  const auto stopped = [this] {
    if (spaceNodes_.empty()) {
      set(StoreField::spaceScanState, spaceScanState_, SpaceScanState::idle());
      return;
    }
    const Date at = spaceReport_ ? spaceReport_->scannedAt : currentDate();
    set(StoreField::spaceScanState, spaceScanState_, SpaceScanState::loaded(at));
  };
  if (!error) {
    stopped();
    return;
  }
  try {
    std::rethrow_exception(error);
  } catch (const CancellationError&) {
    stopped();
  } catch (const std::exception& failure) {
    set(StoreField::spaceScanState, spaceScanState_, SpaceScanState::failed(failure.what()));
  } catch (...) {
    set(StoreField::spaceScanState, spaceScanState_,
        SpaceScanState::failed("The space scan failed."));
  }
}

void AppStore::setSpaceBasket(std::set<std::string> basket) {
  set(StoreField::spaceBasket, spaceBasket_, std::move(basket));
}

}  // namespace brisko
