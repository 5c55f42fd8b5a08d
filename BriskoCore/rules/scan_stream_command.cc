#include "rules/scan_stream_command.h"

#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <set>

#include "base/utf8.h"
#include "platform/process_inventory.h"
#include "platform/system_spotlight_resolver.h"
#include "platform/volume_snapshot.h"
#include "protocol/engine_text.h"
#include "rules/caching_spotlight_resolver.h"
#include "rules/cleanup_rule_evaluator.h"
#include "rules/concurrent_scan.h"
#include "rules/scan_progress_ledger.h"

namespace brisko {

namespace {

constexpr double kSpotlightTimeoutSeconds = 2.0;

bool isText(const ScanFindingItem& item) {
  return isValidUtf8(item.id) && isValidUtf8(item.title) && isValidUtf8(item.subtitle) &&
         isValidUtf8(item.path);
}

// The finding as it can be written as JSON: rows that aren't valid text are
// left out (with their bytes), and a finding whose own path isn't is dropped
// whole. Adds what was left out to `leftOut`.
std::optional<ScanFinding> writableFinding(ScanFinding finding, std::int64_t& leftOut) {
  if (!isValidUtf8(finding.path)) {
    leftOut += 1 + (finding.items ? static_cast<std::int64_t>(finding.items->size()) : 0);
    return std::nullopt;
  }
  if (finding.items) {
    std::vector<ScanFindingItem> kept;
    for (ScanFindingItem& item : *finding.items) {
      if (isText(item)) {
        kept.push_back(std::move(item));
        continue;
      }
      ++leftOut;
      finding.bytes -= item.bytes;
      finding.itemCount -= item.itemCount;
      finding.isPartial = true;
    }
    finding.items = std::move(kept);
    if (finding.action != RuleAction::reportOnly && finding.bytes < 1) return std::nullopt;
  }
  return finding;
}

// The events of one scan, written one at a time in the order they are made.
class ScanStream {
 public:
  ScanStream(const ScanEventSink& sink, std::atomic<bool>& stop) : sink_(sink), stop_(stop) {}

  void emit(ScanEvent event) {
    std::lock_guard lock(lock_);
    emitLocked(std::move(event));
  }

  std::mutex& lock() { return lock_; }

  // Called with lock() held.
  void emitLocked(ScanEvent event) {
    if (failure_ || stop_.load(std::memory_order_relaxed)) return;
    try {
      sink_(event);
    } catch (...) {
      // The reader is gone or the output broke: nothing more can be told.
      failure_ = std::current_exception();
      stop_.store(true);
    }
  }

  void rethrowFailure() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  const ScanEventSink& sink_;
  std::atomic<bool>& stop_;
  std::mutex lock_;
  std::exception_ptr failure_;  // guarded by lock_
};

ScanEvent progressEvent(ScanProgress progress) {
  ScanEvent event;
  event.kind = ScanEventKind::progress;
  event.progress = std::move(progress);
  return event;
}

}  // namespace

ScanReport runScanStream(const std::string& home, bool includeDownloadedInstallers,
                         const ScanEventSink& sink, std::atomic<bool>* stop) {
  std::atomic<bool> localStop{false};
  std::atomic<bool>& stopFlag = stop != nullptr ? *stop : localStop;

  ScanReport report;
  report.scannedAt = currentDate();
  report.disk = volumeSnapshot(home);

  // Linux has no application bundles to take an inventory of, and its
  // resolver never answers: the orphan rule runs and keeps every folder.
  CleanupRuleEvaluator evaluator(home, report.scannedAt, ProcessInventory::snapshot(),
                                 InstalledAppInventory::of({}, true),
                                 std::make_shared<CachingSpotlightResolver>(
                                     systemSpotlightResolver(kSpotlightTimeoutSeconds)));
  evaluator.cancelled = &stopFlag;
  // Read once per scan, so that a changed whitelist counts from the next scan on.
  evaluator.policy = std::make_shared<const PathSafetyPolicy>(
      PathSafetyPolicy::loadingWhitelistFor(evaluator.homeDirectory));

  const std::vector<CleanupRule> rules = evaluator.rules(includeDownloadedInstallers);
  const std::vector<TargetWorkItem> workItems =
      evaluator.expandedWorkItems(includeDownloadedInstallers);
  std::map<std::string, std::int64_t> expectedRoots;
  for (const TargetWorkItem& item : workItems)
    ++expectedRoots[item.rule.id];

  ScanStream stream(sink, stopFlag);
  ScanProgressLedger ledger(static_cast<std::int64_t>(workItems.size()));
  {
    ScanEvent started;
    started.kind = ScanEventKind::started;
    started.disk = report.disk;
    started.progress = ScanProgress{0, ledger.totalLocations(), std::nullopt};
    stream.emit(std::move(started));
  }

  std::vector<std::optional<ScanFinding>> findings(rules.size());
  std::map<std::string, size_t> ruleIndex;
  for (size_t i = 0; i < rules.size(); ++i)
    ruleIndex[rules[i].id] = i;
  std::set<std::string> warningsSeen;
  std::int64_t leftOut = 0;
  std::int64_t tooDeep = 0;

  ConcurrentScan::Callbacks callbacks;
  callbacks.onRuleBegan = [&](const CleanupRule& rule) {
    std::lock_guard lock(stream.lock());
    stream.emitLocked(progressEvent(ledger.progress(rule.title)));
  };
  callbacks.onRuleRootMeasured = [&](const CleanupRule& rule, std::int64_t) {
    std::lock_guard lock(stream.lock());
    stream.emitLocked(progressEvent(ledger.finishedLocation(rule.title)));
  };
  callbacks.onRuleMeasured = [&](const CleanupRule& rule, const Measurement& measurement,
                                 std::int64_t reported) {
    std::optional<ScanFinding> finding = evaluator.makeFinding(rule, measurement);
    std::lock_guard lock(stream.lock());
    if (stopFlag.load()) return;  // a stopped walk measured only part
    stream.emitLocked(
        progressEvent(ledger.finishedRule(rule.title, expectedRoots[rule.id], reported)));
    tooDeep += measurement.foldersTooDeep;
    if (finding) finding = writableFinding(std::move(*finding), leftOut);
    if (finding) {
      ScanEvent event;
      event.kind = ScanEventKind::finding;
      event.finding = *finding;
      stream.emitLocked(std::move(event));
      findings[ruleIndex.at(rule.id)] = std::move(finding);
    }
    for (const std::string& warning : measurement.guardWarnings) {
      if (!warningsSeen.insert(warning).second) continue;
      report.warnings.push_back(warning);
      ScanEvent event;
      event.kind = ScanEventKind::warning;
      event.warning = warning;
      stream.emitLocked(std::move(event));
    }
    if (measurement.permissionDenied) {
      // Linux has no privacy grant that would open the place: the user must
      // change its permissions by hand.
      BlockedLocation blocked;
      blocked.id = rule.id;
      blocked.title = rule.title;
      blocked.path = evaluator.findingPath(rule);
      blocked.needsFullDiskAccess = false;
      if (isValidUtf8(blocked.path)) {
        report.blocked.push_back(blocked);
        ScanEvent event;
        event.kind = ScanEventKind::blocked;
        event.blocked = std::move(blocked);
        stream.emitLocked(std::move(event));
      }
    }
  };

  ConcurrentScan::measureAll(rules, evaluator, callbacks);
  stream.rethrowFailure();
  if (stopFlag.load()) throw ScanStopped();

  for (auto& finding : findings) {
    if (finding) report.findings.push_back(std::move(*finding));
  }
  if (leftOut > 0) {
    std::string warning = EngineText::encoded(
        "%d places were left out because their names aren’t valid text", {std::to_string(leftOut)});
    report.warnings.push_back(warning);
    ScanEvent event;
    event.kind = ScanEventKind::warning;
    event.warning = std::move(warning);
    stream.emit(std::move(event));
  }
  if (tooDeep > 0) {
    std::string warning = EngineText::encoded(
        "%d folders lie too deep to be measured; the sizes above them are partial",
        {std::to_string(tooDeep)});
    report.warnings.push_back(warning);
    ScanEvent event;
    event.kind = ScanEventKind::warning;
    event.warning = std::move(warning);
    stream.emit(std::move(event));
  }
  ScanEvent completed;
  completed.kind = ScanEventKind::completed;
  completed.report = report;
  stream.emit(std::move(completed));
  stream.rethrowFailure();
  return report;
}

}  // namespace brisko
