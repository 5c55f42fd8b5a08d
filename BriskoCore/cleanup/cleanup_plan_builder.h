#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "cleanup/cleanup_selection.h"
#include "protocol/plan_records.h"
#include "rules/installed_app_inventory.h"
#include "rules/running_process.h"
#include "rules/spotlight_resolver.h"

namespace brisko {

// Turns a selection of finding and item IDs into a plan of concrete paths,
// each measured and with a snapshot of what it was, plus what was refused and
// why. The IDs only choose among candidates that the builder finds again
// itself from the catalog, so a request can never name a path of its own.
// The same builder answers the rechecks of a run.
class CleanupPlanBuilder {
 public:
  static constexpr int kDefaultMaximumCandidates = 10000;
  static constexpr std::chrono::seconds kPlanLifetime{900};

  CleanupPlanBuilder(const std::string& homeDirectory, Date now);

  // Throws CleanupPlanningError emptySelection when both lists are empty.
  CleanupPlan makePlan(const CreateCleanupPlanRequest& request) const;

  // --- rechecks at run time ---
  bool isGuardBlocking(const std::string& path, const std::string& findingID,
                       const RunningProcesses& processes) const;
  std::string guardSkipMessage(const std::string& path, const std::string& findingID) const;
  bool pathBelongsToSelection(const std::string& path, const std::string& findingID) const;
  bool isStillRemovableKeepNewest(const std::string& path, const std::string& findingID) const;
  bool isStillRemovableActiveAndNewer(const std::string& path, const std::string& findingID) const;
  bool isStillOrphaned(const std::string& path, const std::string& findingID,
                       const InstalledAppInventory& inventory,
                       const SpotlightResolver& spotlight) const;

  // The selections, built on first use and kept for the builder's life
  // (expanding the catalog's patterns is too slow to repeat per item).
  const std::vector<CleanupSelection>& selections() const;

  const std::string& homeDirectory() const { return homeDirectory_; }
  Date now() const { return now_; }
  int maximumCandidates = kDefaultMaximumCandidates;

 private:
  std::vector<const CleanupSelection*> selectionsOf(const std::string& findingID) const;

  struct SelectionsCache {
    std::mutex lock;
    std::optional<std::vector<CleanupSelection>> cached;  // guarded by lock
  };

  std::string homeDirectory_;
  Date now_;
  std::shared_ptr<SelectionsCache> selectionsCache_ = std::make_shared<SelectionsCache>();
};

}  // namespace brisko
