#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "protocol/scan_records.h"
#include "rules/cleanup_rule.h"
#include "rules/installed_app_inventory.h"
#include "rules/running_process.h"
#include "rules/spotlight_resolver.h"
#include "safety/path_safety_policy.h"

namespace brisko {

// One root that a scan will visit: the step the progress bar counts.
struct TargetWorkItem {
  CleanupRule rule;
  RuleTarget target;
  std::string root;
};

// What one rule measured. The counters add up over all its roots; the skip
// counters say how much the path safety policy and the walk left out.
struct Measurement {
  std::int64_t bytes = 0;
  std::int64_t items = 0;
  bool isPartial = false;
  std::int64_t skippedProtected = 0;
  std::int64_t skippedWhitelisted = 0;
  std::int64_t skippedInvalid = 0;
  std::vector<ScanFindingItem> detailItems;
  bool permissionDenied = false;
  bool guardBlocked = false;
  std::vector<std::string> guardWarnings;  // engine texts, each once
  bool presenceDetected = false;
  bool inventoryIncomplete = false;
  std::int64_t foldersTooDeep = 0;  // left unmeasured below the walks' depth

  bool operator==(const Measurement&) const = default;
};

// Turns the rule catalog into measurements and findings for one home folder.
// An immutable value: one evaluator serves every rule of a scan at once, from
// any number of threads. A scan only reads.
struct CleanupRuleEvaluator {
  std::string homeDirectory;  // standardised at construction
  Date now;
  RunningProcesses processes;  // absent when the process list couldn't be read
  std::optional<InstalledAppInventory> installedApps;
  std::shared_ptr<const SpotlightResolver> spotlight;
  std::int64_t maximumItemsPerLocation = 150000;
  // The safety gate of a whole scan, loaded once and shared by its workers;
  // without it, each measurement loads the whitelist again.
  std::shared_ptr<const PathSafetyPolicy> policy;
  // When set and raised, walks stop early and the rest of the scan is skipped.
  const std::atomic<bool>* cancelled = nullptr;

  CleanupRuleEvaluator(std::string_view home, Date now, RunningProcesses processes,
                       std::optional<InstalledAppInventory> installedApps,
                       std::shared_ptr<const SpotlightResolver> spotlight);

  using RootMeasured = std::function<void()>;

  // The catalog, without "downloaded-installers" when installers are excluded.
  std::vector<CleanupRule> rules(bool includeDownloadedInstallers) const;

  // One entry per root that the scan will visit; a missing fixed location
  // still counts as a step, a pattern without a match doesn't.
  std::vector<TargetWorkItem> expandedWorkItems(bool includeDownloadedInstallers) const;

  // Measures every target of the rule, calling `onRootMeasured` after each
  // root (or presence target). Guards don't stop a measurement: they mark it
  // held back and add their warning.
  Measurement measure(const CleanupRule& rule, const RootMeasured& onRootMeasured = {}) const;

  // The finding to show for a measured rule, or none when there is nothing.
  std::optional<ScanFinding> makeFinding(const CleanupRule& rule,
                                         const Measurement& measurement) const;

  // The path a finding of the rule shows: the first candidate found of a
  // presence target, else the first root of the first target that has one,
  // else the first target's path; the home for a rule without targets.
  std::string findingPath(const CleanupRule& rule) const;

  // How a top-level child is named in a finding's rows.
  static std::string displayName(std::string_view name, FindingKind kind);

  // True once `cancelled` is raised.
  bool isCancelled() const;
};

// Bytes descending, ties by path ascending.
void sortDetailItems(std::vector<ScanFindingItem>& items);

}  // namespace brisko
