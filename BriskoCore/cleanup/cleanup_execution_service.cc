#include "cleanup/cleanup_execution_service.h"

#include "cleanup/cleanup_plan_builder.h"
#include "cleanup/cleanup_planning_error.h"
#include "cleanup/file_identity.h"
#include "cleanup/safe_removal.h"
#include "platform/home_directory.h"
#include "platform/system_spotlight_resolver.h"
#include "protocol/engine_protocol.h"
#include "rules/caching_spotlight_resolver.h"
#include "safety/path_safety_policy.h"

namespace brisko {

namespace {

constexpr const char* kOrphanRuleID = "orphaned-app-data";

CleanupItemResult skipped(const CleanupPlanItem& item, std::string message) {
  return {item.path, item.path, 0, CleanupItemOutcome::skipped, std::move(message)};
}

}  // namespace

CleanupExecutionService::CleanupExecutionService(std::string homeDirectory, Date now,
                                                 RunningProcesses processes,
                                                 std::optional<InstalledAppInventory> installedApps,
                                                 std::shared_ptr<const SpotlightResolver> spotlight)
    : homeDirectory_(std::move(homeDirectory)),
      now_(now),
      processes_(std::move(processes)),
      installedAppsOverride_(std::move(installedApps)),
      spotlightOverride_(std::move(spotlight)) {}

CleanupReceipt CleanupExecutionService::execute(const CleanupPlan& plan,
                                                const RemovalHandler& removalHandler,
                                                const ItemHandler& onItem) const {
  if (plan.protocolVersion != EngineProtocol::version) {
    throw CleanupPlanningError(CleanupPlanningError::Kind::protocolMismatch);
  }
  // At exactly expiresAt the plan is still good. A plan file is data on disk:
  // one that claims a longer life than any plan is given was not written by
  // create-plan, and counts as expired.
  if (now_ > plan.expiresAt ||
      plan.expiresAt - plan.createdAt > CleanupPlanBuilder::kPlanLifetime) {
    throw CleanupPlanningError(CleanupPlanningError::Kind::planExpired);
  }

  const PathSafetyPolicy policy = PathSafetyPolicy::loadingWhitelistFor(homeDirectory_);
  const CleanupPlanBuilder builder(homeDirectory_, now_);
  // Linux has no application bundles to take an inventory of: an incomplete
  // inventory makes every orphan recheck keep the folder.
  const InstalledAppInventory installedApps =
      installedAppsOverride_.value_or(InstalledAppInventory{{}, false});
  const std::shared_ptr<const SpotlightResolver> spotlight =
      spotlightOverride_ ? spotlightOverride_
                         : std::make_shared<CachingSpotlightResolver>(systemSpotlightResolver(2.0));
  const RemovalJournal journal(briskoDataDirectory(homeDirectory_));
  const auto remove = [&](const CleanupPlanItem& item) -> std::optional<std::string> {
    if (!removalHandler) return removeWithoutFollowingLinks(item.path, item.identity, &journal);
    try {
      return removalHandler(item.path);
    } catch (const std::exception& error) {
      return std::string(error.what());
    }
  };

  const auto check = [&](const CleanupPlanItem& item) -> std::optional<CleanupItemResult> {
    const std::string& path = item.path;
    if (builder.isGuardBlocking(path, item.findingID, processes_)) {
      return skipped(item, builder.guardSkipMessage(path, item.findingID));
    }
    if (!builder.pathBelongsToSelection(path, item.findingID)) {
      return skipped(item, "The path is no longer inside the scanned category.");
    }
    if (!builder.isStillRemovableKeepNewest(path, item.findingID) ||
        !builder.isStillRemovableActiveAndNewer(path, item.findingID)) {
      return skipped(item, "The set of kept versions changed; skipped this time.");
    }
    if (item.findingID == kOrphanRuleID &&
        !builder.isStillOrphaned(path, item.findingID, installedApps, *spotlight, policy)) {
      return skipped(item, "The app appears to have been reinstalled; skipped this time.");
    }
    if (!policy.evaluate(path, /*resolvingSymlinks=*/true).isAllowed()) {
      return skipped(item, "Failed the pre-run safety recheck.");
    }
    const auto identity = identitySnapshot(path);
    if (!identity || *identity != item.identity) {
      return skipped(item, "The file\u2019s identity or content state changed.");
    }
    if (measuredBytes(path) != item.estimatedBytes) {
      return skipped(item, "The file\u2019s size changed.");
    }
    return std::nullopt;
  };

  CleanupReceipt receipt;
  receipt.id = Uuid::random();
  receipt.planID = plan.id;
  receipt.startedAt = now_;
  for (const CleanupPlanItem& item : plan.items) {
    CleanupItemResult result;
    if (auto refused = check(item)) {
      result = std::move(*refused);
    } else if (const auto failure = remove(item)) {
      result = {item.path, item.path, 0, CleanupItemOutcome::failed, *failure};
    } else {
      result = {item.path, item.path, item.estimatedBytes, CleanupItemOutcome::deleted,
                "Permanently deleted."};
    }
    receipt.results.push_back(result);
    if (onItem) onItem(result);
  }
  receipt.completedAt = currentDate();
  return receipt;
}

}  // namespace brisko
