// The scan of the clean flow: its start, the folding of its events, its end,
// and the reading of the Trash beside it.

#include <algorithm>
#include <utility>

#include "base/date.h"
#include "store/app_store.h"
#include "store/finding_list.h"
#include "text/app_texts.h"

namespace brisko {

void AppStore::scan() {
  Batch batch(*this);
  if (scanState_.kind == ScanState::Kind::scanning) return;
  const std::uint64_t number = ++scanNumber_;
  set(StoreField::scanState, scanState_, ScanState::scanning());
  set(StoreField::scanProgress, scanProgress_, {});
  setFindings({});
  setSelection({});
  set(StoreField::expandedFindingIDs, expandedFindingIDs_, {});
  set(StoreField::warnings, warnings_, {});
  set(StoreField::blockedLocations, blockedLocations_, {});
  set(StoreField::whitelistDirty, whitelistDirty_, false);

  const auto client = activeEngine();
  scanCancelRequested_ = std::make_shared<std::atomic<bool>>(false);
  onStreamWorker([this, client, number, cancelled = scanCancelRequested_] {
    try {
      EventStream<ScanEvent> stream = client->scan();
      // A cancel that came before the stream existed had nothing to reach.
      if (cancelled->load()) client->cancelScan();
      while (auto event = stream.next())
        postBack([this, number, event = std::move(*event)] { applyScanEvent(number, event); });
      postBack([this, number] { endScan(number, nullptr); });
    } catch (...) {
      postBack([this, number, error = std::current_exception()] { endScan(number, error); });
    }
  });
  if (!trash_) readTrash();
}

void AppStore::onStreamWorker(std::function<void()> body) {
  auto ended = std::make_shared<std::promise<void>>();
  std::shared_future<void> previous = std::exchange(lastStreamEnded_, ended->get_future().share());
  onWorker([previous, ended, body = std::move(body)] {
    if (previous.valid()) previous.wait();
    body();
    ended->set_value();
  });
}

void AppStore::cancelScan() {
  Batch batch(*this);
  if (scanState_.kind != ScanState::Kind::scanning) return;
  scanCancelRequested_->store(true);
  activeEngine()->cancelScan();
}

void AppStore::readTrash() {
  const auto trashClient = realTrashClient_;
  onWorker([this, trashClient] {
    try {
      FinderTrash::Inventory inventory = trashClient->inventory();
      postBack([this, inventory] { applyTrashResult(inventory, std::nullopt); });
    } catch (const FinderTrash::Failure& failure) {
      postBack([this, reason = failure.reason()] { applyTrashResult(std::nullopt, reason); });
    } catch (...) {
      postBack([this] { applyTrashResult(std::nullopt, std::nullopt); });
    }
  });
}

void AppStore::applyTrashResult(std::optional<FinderTrash::Inventory> inventory,
                                std::optional<FinderTrash::Failure::Reason> failure) {
  const bool succeeded = inventory.has_value();
  set(StoreField::trash, trash_, std::move(inventory));
  if (succeeded)
    set(StoreField::trashNeedsAutomation, trashNeedsAutomation_, false);
  else if (failure)
    set(StoreField::trashNeedsAutomation, trashNeedsAutomation_,
        *failure == FinderTrash::Failure::Reason::automationDenied);
  rebuildTrash();
}

void AppStore::rebuildTrash() {
  std::vector<ScanFinding> findings = findings_;
  FindingSelection selection = selection_;
  rebuildTrashFinding(findings, selection, trash_, trashFolder_, fullDiskAccessGranted_);
  setFindings(std::move(findings));
  setSelection(std::move(selection));
}

const ScanFinding* AppStore::finding(const std::string& id) const {
  const auto found = std::find_if(findings_.begin(), findings_.end(),
                                  [&](const ScanFinding& finding) { return finding.id == id; });
  return found == findings_.end() ? nullptr : &*found;
}

// Every payload counts, whatever the event's kind says, in a fixed order.
void AppStore::applyScanEvent(std::uint64_t scan, const ScanEvent& event) {
  if (scan != scanNumber_ || scanState_.kind != ScanState::Kind::scanning) return;
  if (event.protocolVersion != EngineProtocol::version) {
    endScan(scan, std::make_exception_ptr(EngineClientError::protocolMismatch(
                      EngineProtocol::version, event.protocolVersion)));
    // The rest of this engine's stream can't be read either.
    activeEngine()->cancelScan();
    return;
  }
  if (event.disk) set(StoreField::disk, disk_, event.disk);
  if (event.progress) set(StoreField::scanProgress, scanProgress_, event.progress);
  if (event.warning) {
    warnings_.push_back(*event.warning);
    mark(StoreField::warnings);
  }
  if (event.blocked &&
      std::none_of(blockedLocations_.begin(), blockedLocations_.end(),
                   [&](const BlockedLocation& known) { return known.id == event.blocked->id; })) {
    blockedLocations_.push_back(*event.blocked);
    mark(StoreField::blockedLocations);
  }
  if (event.finding) {
    std::vector<ScanFinding> findings = findings_;
    const auto known = std::find_if(findings.begin(), findings.end(), [&](const ScanFinding& f) {
      return f.id == event.finding->id;
    });
    if (known != findings.end())
      *known = *event.finding;
    else
      findings.push_back(*event.finding);
    sortFindings(findings);
    setFindings(std::move(findings));
    if (isPreselectable(*event.finding)) {
      FindingSelection selection = selection_;
      selection.selectAutomatically(*event.finding, warnings_);
      setSelection(std::move(selection));
    }
  }
  if (event.report) {
    const ScanReport& report = *event.report;
    if (report.protocolVersion != EngineProtocol::version) {
      set(StoreField::scanState, scanState_,
          ScanState::failed(
              EngineClientError::protocolMismatch(EngineProtocol::version, report.protocolVersion)
                  .what()));
      return;
    }
    set(StoreField::disk, disk_, std::optional(report.disk));
    setFindings(report.findings);
    set(StoreField::warnings, warnings_, report.warnings);
    set(StoreField::blockedLocations, blockedLocations_, report.blocked);
    FindingSelection selection;
    selection.redo(findings_, warnings_);
    setSelection(std::move(selection));
    rebuildTrash();
    set(StoreField::scanProgress, scanProgress_, {});
    set(StoreField::scanState, scanState_, ScanState::loaded(report.scannedAt));
  } else if (event.kind == ScanEventKind::completed) {
    set(StoreField::scanProgress, scanProgress_, {});
    set(StoreField::scanState, scanState_, ScanState::loaded(currentDate()));
  }
}

void AppStore::endScan(std::uint64_t scan, std::exception_ptr error) {
  if (scan != scanNumber_ || scanState_.kind != ScanState::Kind::scanning) return;
  try {
    if (error) std::rethrow_exception(error);
    // The engine ended well without its `completed` line: what arrived stands.
    set(StoreField::scanProgress, scanProgress_, {});
    set(StoreField::scanState, scanState_, ScanState::loaded(currentDate()));
  } catch (const CancellationError&) {
    set(StoreField::scanState, scanState_,
        findings_.empty() ? ScanState::idle() : ScanState::loaded(currentDate()));
  } catch (const std::exception& failure) {
    set(StoreField::scanProgress, scanProgress_, {});
    set(StoreField::scanState, scanState_, ScanState::failed(failure.what()));
  }
}

}  // namespace brisko
