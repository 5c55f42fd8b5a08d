// The confirmed clean: the plan, its run with progress, the Trash as one more
// row, the receipt, and the list afterwards.

#include <map>

#include "base/date.h"
#include "base/uuid.h"
#include "store/app_store.h"
#include "store/finding_list.h"
#include "text/app_texts.h"

namespace brisko {

struct AppStore::CleanRun {
  CreateCleanupPlanRequest request;
  bool emptiesTrash = false;
  std::int64_t trashBytes = 0;
  Date startedAt{};
  std::optional<CleanupPlan> plan;
  std::map<std::string, const CleanupPlanItem*> plannedByPath;
  std::vector<CleanupItemResult> results;  // the engine's, in order
  std::optional<CleanupReceipt> receipt;
  std::optional<CleanupItemResult> trashRow;
  bool cancelRequested = false;
  bool ended = false;  // the engine's part ended; its later events are dropped
};

namespace {

std::vector<std::string> leftOutPaths(const std::optional<CleanupPlan>& plan) {
  std::vector<std::string> paths;
  if (plan)
    for (const CleanupPlanSkip& skip : plan->skipped)
      paths.push_back(skip.path);
  return paths;
}

std::string messageOf(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& failure) {
    return failure.what();
  } catch (...) {
    return "Unknown error.";
  }
}

bool isCancellation(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const CancellationError&) {
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace

void AppStore::clean() {
  startClean(std::nullopt);
}

void AppStore::clean(CleanupPlan plan) {
  startClean(std::move(plan));
}

void AppStore::startClean(std::optional<CleanupPlan> preparedPlan) {
  Batch batch(*this);
  if (scanState_.kind == ScanState::Kind::scanning) return;
  auto run = std::make_shared<CleanRun>();
  run->request = selection_.cleanupRequest(findings_);
  run->emptiesTrash = selection_.isTrashSelected() && trash_.has_value();
  const bool withEngine = !run->request.findingIDs.empty() || !run->request.itemIDs.empty();
  if (!withEngine && !run->emptiesTrash) return;
  if (cleanupActionState_.kind != CleanupActionState::Kind::idle &&
      cleanupActionState_.kind != CleanupActionState::Kind::failed)
    return;
  run->trashBytes = run->emptiesTrash ? trash_->totalBytes() : 0;
  run->startedAt = currentDate();
  cleanRun_ = run;
  set(StoreField::cleanupActionState, cleanupActionState_, CleanupActionState::preparing());
  if (withEngine && preparedPlan) {
    run->plan = std::move(preparedPlan);
    startExecution(std::move(run));
  } else if (withEngine) {
    startPlan(std::move(run));
  } else {
    startExecution(std::move(run));
  }
}

void AppStore::cancelClean() {
  Batch batch(*this);
  // Once the engine's part ended the Trash may be emptying: that can't stop.
  if (!cleanRun_ || cleanRun_->ended) return;
  cleanRun_->cancelRequested = true;
  activeEngine()->cancelCleanup();
}

void AppStore::continueCleaning() {
  Batch batch(*this);
  set(StoreField::latestReceipt, latestReceipt_, {});
}

void AppStore::startPlan(std::shared_ptr<CleanRun> run) {
  const auto client = activeEngine();
  onWorker([this, client, run] {
    try {
      CleanupPlan plan = client->createPlan(run->request);
      postBack([this, run, plan = std::move(plan)]() mutable {
        run->plan = std::move(plan);
        if (run->cancelRequested) {
          endExecution(run, std::make_exception_ptr(CancellationError()));
          return;
        }
        startExecution(run);
      });
    } catch (...) {
      postBack(
          [this, run, message = messageOf(std::current_exception())] { failClean(run, message); });
    }
  });
}

void AppStore::startExecution(std::shared_ptr<CleanRun> run) {
  CleanupRunProgress progress;
  if (run->plan) {
    progress.totalItems = static_cast<std::int64_t>(run->plan->items.size());
    for (const CleanupPlanItem& item : run->plan->items) {
      progress.plannedBytes += item.estimatedBytes;
      run->plannedByPath.emplace(item.path, &item);
    }
  }
  if (run->emptiesTrash) {
    progress.totalItems += 1;
    progress.plannedBytes += run->trashBytes;
  }
  set(StoreField::cleanupProgress, cleanupProgress_, std::optional(progress));
  set(StoreField::cleanupActionState, cleanupActionState_, CleanupActionState::executing());

  if (!run->plan || run->plan->items.empty()) {
    endExecution(run, nullptr);
    return;
  }
  const auto client = activeEngine();
  const ExecuteCleanupPlanRequest request{run->plan->id};
  onStreamWorker([this, client, run, request] {
    try {
      EventStream<CleanupEvent> stream = client->executePlan(request);
      while (auto event = stream.next())
        postBack([this, run, event = std::move(*event)] { applyCleanupEvent(run, event); });
      postBack([this, run] { endExecution(run, nullptr); });
    } catch (...) {
      postBack([this, run, error = std::current_exception()] { endExecution(run, error); });
    }
  });
}

void AppStore::applyCleanupEvent(const std::shared_ptr<CleanRun>& run, const CleanupEvent& event) {
  if (run != cleanRun_ || run->ended) return;
  if (event.protocolVersion != EngineProtocol::version) {
    endExecution(run, std::make_exception_ptr(EngineClientError::protocolMismatch(
                          EngineProtocol::version, event.protocolVersion)));
    activeEngine()->cancelCleanup();
    return;
  }
  if (event.kind == CleanupEventKind::item && event.result) {
    const CleanupItemResult& result = *event.result;
    run->results.push_back(result);
    CleanupRunProgress progress = cleanupProgress_.value_or(CleanupRunProgress{});
    progress.completedItems += 1;
    progress.freedBytes += result.bytes;
    const auto planned = run->plannedByPath.find(result.originalPath);
    if (planned != run->plannedByPath.end()) {
      progress.processedBytes += planned->second->estimatedBytes;
      progress.currentTitle = planned->second->title;
    } else {
      progress.currentTitle = result.originalPath;
    }
    set(StoreField::cleanupProgress, cleanupProgress_, std::optional(progress));
  }
  if (event.kind == CleanupEventKind::completed && event.receipt) run->receipt = event.receipt;
}

void AppStore::endExecution(const std::shared_ptr<CleanRun>& run, std::exception_ptr error) {
  if (run != cleanRun_ || run->ended) return;
  run->ended = true;
  if (!error) {
    if (run->emptiesTrash && !run->cancelRequested)
      emptyTrash(run);
    else
      finishClean(run);
    return;
  }
  if (isCancellation(error)) {
    run->cancelRequested = true;
    finishClean(run);
    return;
  }
  failClean(run, messageOf(error));
}

void AppStore::emptyTrash(std::shared_ptr<CleanRun> run) {
  CleanupRunProgress progress = cleanupProgress_.value_or(CleanupRunProgress{});
  progress.isEmptyingTrash = true;
  progress.currentTitle = AppText::localized(AppText::kTrashTitle);
  set(StoreField::cleanupProgress, cleanupProgress_, std::optional(progress));

  const auto trashClient = realTrashClient_;
  const bool viaFinder = !fullDiskAccessGranted_;
  onWorker([this, trashClient, run, viaFinder] {
    CleanupItemResult row;
    row.id = trashFolder_;
    row.originalPath = trashFolder_;
    std::optional<FinderTrash::Failure::Reason> emptyFailure;
    try {
      trashClient->empty();
      row.outcome = CleanupItemOutcome::deleted;
      row.bytes = run->trashBytes;
      row.message =
          AppText::localized(viaFinder ? AppText::kTrashEmptiedViaFinder : AppText::kTrashEmptied);
    } catch (const FinderTrash::Failure& failure) {
      emptyFailure = failure.reason();
      row.outcome = CleanupItemOutcome::skipped;
      row.message = failure.reason() == FinderTrash::Failure::Reason::cancelled
                        ? AppText::localized(AppText::kTrashCancelledInFinder)
                        : failure.message();
    } catch (const std::exception& failure) {
      row.outcome = CleanupItemOutcome::skipped;
      row.message = failure.what();
    }
    // Read again whatever happened: an empty that failed may still have
    // taken most entries, and the old size must not come back.
    std::optional<FinderTrash::Inventory> inventory;
    std::optional<FinderTrash::Failure::Reason> readFailure;
    try {
      inventory = trashClient->inventory();
    } catch (const FinderTrash::Failure& failure) {
      readFailure = failure.reason();
    } catch (...) {
    }
    postBack([this, run, row, emptyFailure, inventory, readFailure] {
      run->trashRow = row;
      applyTrashResult(inventory, readFailure);
      if (emptyFailure == FinderTrash::Failure::Reason::automationDenied)
        set(StoreField::trashNeedsAutomation, trashNeedsAutomation_, true);
      CleanupRunProgress finished = cleanupProgress_.value_or(CleanupRunProgress{});
      finished.completedItems += 1;
      finished.processedBytes += run->trashBytes;
      finished.freedBytes += row.bytes;
      finished.isEmptyingTrash = false;
      set(StoreField::cleanupProgress, cleanupProgress_, std::optional(finished));
      finishClean(run);
    });
  });
}

void AppStore::finishClean(const std::shared_ptr<CleanRun>& run) {
  std::vector<CleanupItemResult> results = run->results;
  if (run->trashRow) results.push_back(*run->trashRow);
  std::vector<ScanFinding> findings = findings_;
  FindingSelection selection = selection_;
  removeDeleted(findings, selection, results, leftOutPaths(run->plan));
  rebuildTrashFinding(findings, selection, trash_, trashFolder_, fullDiskAccessGranted_);
  setFindings(std::move(findings));
  setSelection(std::move(selection));

  if (!run->cancelRequested) {
    CleanupReceipt receipt;
    if (run->receipt) {
      receipt = *run->receipt;
    } else {
      // Without the engine's receipt (the Trash alone, or a plan that kept
      // nothing) the run's own rows make one.
      receipt.id = Uuid::random();
      if (run->plan) receipt.planID = run->plan->id;
      receipt.startedAt = run->startedAt;
      receipt.completedAt = currentDate();
      receipt.results = run->results;
    }
    if (run->trashRow) receipt.results.push_back(*run->trashRow);
    set(StoreField::latestReceipt, latestReceipt_, std::optional(std::move(receipt)));
  }
  set(StoreField::cleanupProgress, cleanupProgress_, {});
  set(StoreField::cleanupActionState, cleanupActionState_, CleanupActionState::idle());
  cleanRun_.reset();
  refreshDisk();
}

// What was deleted before the failure is gone from the disk, so it goes from
// the list as well; no receipt, since the run didn't finish.
void AppStore::failClean(const std::shared_ptr<CleanRun>& run, std::string message) {
  if (run != cleanRun_) return;
  run->ended = true;
  std::vector<ScanFinding> findings = findings_;
  FindingSelection selection = selection_;
  removeDeleted(findings, selection, run->results, leftOutPaths(run->plan));
  sortFindings(findings);
  setFindings(std::move(findings));
  setSelection(std::move(selection));
  set(StoreField::cleanupProgress, cleanupProgress_, {});
  set(StoreField::cleanupActionState, cleanupActionState_,
      CleanupActionState::failed(std::move(message)));
  cleanRun_.reset();
  refreshDisk();
}

}  // namespace brisko
