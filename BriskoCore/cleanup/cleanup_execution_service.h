#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/date.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "rules/installed_app_inventory.h"
#include "rules/running_process.h"
#include "rules/spotlight_resolver.h"

namespace brisko {

// Carries a stored plan out. A plan is a promise made up to fifteen minutes
// ago, so every item passes the whole chain of checks again at the moment of
// its deletion; an item that fails one is kept and reported, never an error.
class CleanupExecutionService {
 public:
  // Removes one path; none on success, else the system's words.
  using RemovalHandler = std::function<std::optional<std::string>(const std::string& path)>;
  // Receives each result as soon as it is made; may throw to end the run.
  using ItemHandler = std::function<void(const CleanupItemResult&)>;

  // Without an inventory the run collects one; without a resolver it uses the
  // system's (on Linux one that never answers, so orphans are always kept).
  CleanupExecutionService(std::string homeDirectory, Date now, RunningProcesses processes,
                          std::optional<InstalledAppInventory> installedApps = {},
                          std::shared_ptr<const SpotlightResolver> spotlight = {});

  // Throws CleanupPlanningError protocolMismatch, then planExpired (past
  // expiresAt, or claiming a life longer than a plan is given), before
  // touching anything; rethrows what `onItem` throws. Without a removal
  // handler items are deleted permanently, never following a link, and only
  // while each is still the file or folder that the plan snapshotted. A
  // handler that throws fails its item; the run goes on.
  CleanupReceipt execute(const CleanupPlan& plan, const RemovalHandler& removalHandler = {},
                         const ItemHandler& onItem = {}) const;

 private:
  std::string homeDirectory_;
  Date now_;
  RunningProcesses processes_;
  std::optional<InstalledAppInventory> installedAppsOverride_;
  std::shared_ptr<const SpotlightResolver> spotlightOverride_;
};

}  // namespace brisko
