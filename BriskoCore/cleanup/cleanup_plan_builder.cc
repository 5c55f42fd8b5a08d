#include "cleanup/cleanup_plan_builder.h"

#include <sys/stat.h>

#include <algorithm>
#include <set>

#include "base/path_components.h"
#include "base/standardized_path.h"
#include "base/utf8.h"
#include "cleanup/cleanup_planning_error.h"
#include "cleanup/file_identity.h"
#include "cleanup/plan_candidates.h"
#include "rules/cleanup_rule_runtime.h"
#include "rules/directory_listing.h"
#include "rules/orphan_detection.h"
#include "safety/path_safety_policy.h"

namespace brisko {

namespace {

namespace runtime = CleanupRuleRuntime;

// A skip is only shown, never acted on, so a name that isn't UTF-8 is shown
// repaired rather than breaking the whole plan's JSON.
CleanupPlanSkip skip(CleanupPlanSkipReason reason, const std::string& rawPath,
                     std::string message) {
  const std::string path = repairedUtf8(rawPath);
  return {std::string(enumName(reason)) + ":" + path, path, reason, std::move(message)};
}

bool hasItemOf(const std::set<std::string>& itemIDs, const std::string& findingID) {
  const std::string prefix = findingID + ":";
  const auto first = itemIDs.lower_bound(prefix);
  return first != itemIDs.end() && first->compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

CleanupPlanBuilder::CleanupPlanBuilder(const std::string& homeDirectory, Date now)
    : homeDirectory_(standardizedPath(homeDirectory)), now_(now) {}

const std::vector<CleanupSelection>& CleanupPlanBuilder::selections() const {
  std::lock_guard guard(selectionsCache_->lock);
  if (!selectionsCache_->cached) selectionsCache_->cached = buildCleanupSelections(homeDirectory_);
  return *selectionsCache_->cached;
}

std::vector<const CleanupSelection*> CleanupPlanBuilder::selectionsOf(
    const std::string& findingID) const {
  std::vector<const CleanupSelection*> found;
  for (const auto& selection : selections()) {
    if (selection.findingID == findingID) found.push_back(&selection);
  }
  return found;
}

CleanupPlan CleanupPlanBuilder::makePlan(const CreateCleanupPlanRequest& request) const {
  const std::set<std::string> findingIDs(request.findingIDs.begin(), request.findingIDs.end());
  const std::set<std::string> itemIDs(request.itemIDs.begin(), request.itemIDs.end());
  if (findingIDs.empty() && itemIDs.empty()) {
    throw CleanupPlanningError(CleanupPlanningError::Kind::emptySelection);
  }
  const PathSafetyPolicy policy = PathSafetyPolicy::loadingWhitelistFor(homeDirectory_);

  CleanupPlan plan;
  plan.id = Uuid::random();
  plan.createdAt = now_;
  plan.expiresAt = now_ + kPlanLifetime;

  // Selections may overlap (a cache folder that is also an orphan): a path
  // enters the plan, or its skips, once.
  std::set<std::string> judged;
  for (const CleanupSelection& selection : selections()) {
    const bool whole = findingIDs.contains(selection.findingID);
    const bool partial = !whole && hasItemOf(itemIDs, selection.findingID);
    if (!whole && !partial) continue;
    if (!rules_internal::exists(selection.root)) {
      plan.skipped.push_back(skip(CleanupPlanSkipReason::pathMissing, selection.root,
                                  "The scanned location no longer exists."));
      continue;
    }
    if (runtime::isLinkedRoot(selection.root, homeDirectory_)) {
      plan.skipped.push_back(skip(CleanupPlanSkipReason::symbolicLink, selection.root,
                                  "Symbolic links are never added to a cleanup plan."));
      continue;
    }
    const auto candidates =
        planCandidates(selection, homeDirectory_, now_, static_cast<size_t>(maximumCandidates),
                       partial ? &itemIDs : nullptr);
    for (const auto& candidate : candidates) {
      const std::string path = standardizedPath(candidate);
      if (!judged.insert(path).second) continue;
      struct stat info;
      if (::lstat(path.c_str(), &info) != 0) {
        plan.skipped.push_back(skip(CleanupPlanSkipReason::inspectionFailed, path,
                                    "Can\u2019t read file attributes."));
        continue;
      }
      if (S_ISLNK(info.st_mode) && !isStaleShellLink(path)) {
        plan.skipped.push_back(skip(CleanupPlanSkipReason::symbolicLink, path,
                                    "Symbolic links are never added to a cleanup plan."));
        continue;
      }
      const PathSafetyVerdict verdict = policy.evaluate(path, /*resolvingSymlinks=*/true);
      switch (verdict.kind()) {
        case PathSafetyVerdict::Kind::invalid:
          plan.skipped.push_back(
              skip(CleanupPlanSkipReason::invalidPath, path, "The path failed safety validation."));
          continue;
        case PathSafetyVerdict::Kind::protected_:
          plan.skipped.push_back(skip(CleanupPlanSkipReason::protectedPath, path,
                                      "Protected by Brisko\u2019s safety policy."));
          continue;
        case PathSafetyVerdict::Kind::whitelisted:
          plan.skipped.push_back(
              skip(CleanupPlanSkipReason::whitelisted, path, "Protected by the Brisko whitelist."));
          continue;
        case PathSafetyVerdict::Kind::allowed:
          break;
      }
      const auto identity = identitySnapshot(path);
      if (!identity) {
        plan.skipped.push_back(skip(CleanupPlanSkipReason::inspectionFailed, path,
                                    "Can\u2019t capture a file identity snapshot."));
        continue;
      }
      CleanupPlanItem item;
      item.id = selection.findingID + ":" + std::to_string(identity->deviceID) + ":" +
                std::to_string(identity->fileID);
      item.findingID = selection.findingID;
      item.title = lastPathComponent(path);
      item.path = path;
      item.estimatedBytes = measuredBytes(path);
      item.identity = *identity;
      plan.items.push_back(std::move(item));
    }
  }
  std::stable_sort(plan.items.begin(), plan.items.end(),
                   [](const CleanupPlanItem& a, const CleanupPlanItem& b) {
                     if (a.estimatedBytes != b.estimatedBytes) {
                       return a.estimatedBytes > b.estimatedBytes;
                     }
                     return a.path < b.path;
                   });
  return plan;
}

bool CleanupPlanBuilder::pathBelongsToSelection(const std::string& path,
                                                const std::string& findingID) const {
  const auto found = selectionsOf(findingID);
  return std::any_of(found.begin(), found.end(), [&](const CleanupSelection* selection) {
    return selectionAccepts(*selection, path, now_) &&
           !runtime::isLinkedRoot(selection->root, homeDirectory_);
  });
}

bool CleanupPlanBuilder::isGuardBlocking(const std::string& path, const std::string& findingID,
                                         const RunningProcesses& processes) const {
  for (const CleanupSelection* selection : selectionsOf(findingID)) {
    if (selectionAccepts(*selection, path, now_) &&
        runtime::isGuardHit(selection->guards, processes)) {
      return true;
    }
  }
  return false;
}

std::string CleanupPlanBuilder::guardSkipMessage(const std::string& path,
                                                 const std::string& findingID) const {
  for (const CleanupSelection* selection : selectionsOf(findingID)) {
    if (!selection->guards.empty() && selectionAccepts(*selection, path, now_)) {
      return runtime::guardWarning(runtime::guardAppName(selection->guards),
                                   selection->itemTitle.value_or(selection->title));
    }
  }
  return "A related process is running; skipped this time.";
}

bool CleanupPlanBuilder::isStillRemovableKeepNewest(const std::string& path,
                                                    const std::string& findingID) const {
  const std::string normalPath = normalizedPolicyPath(path);
  for (const CleanupSelection* selection : selectionsOf(findingID)) {
    const auto* mode = selection->mode.as<RuleTargetMode::KeepNewestVersions>();
    if (mode == nullptr || !runtime::isDirectChild(path, selection->root)) continue;
    const auto versions =
        runtime::versionsToRemove(selection->root, mode->keep, mode->activePin, homeDirectory_);
    if (!versions || std::none_of(versions->begin(), versions->end(), [&](const std::string& v) {
          return normalizedPolicyPath(v) == normalPath;
        })) {
      return false;
    }
  }
  return true;
}

bool CleanupPlanBuilder::isStillRemovableActiveAndNewer(const std::string& path,
                                                        const std::string& findingID) const {
  const std::string normalPath = normalizedPolicyPath(path);
  for (const CleanupSelection* selection : selectionsOf(findingID)) {
    const auto* mode = selection->mode.as<RuleTargetMode::KeepActiveAndNewer>();
    if (mode == nullptr || !runtime::isDirectChild(path, selection->root)) continue;
    const auto versions = runtime::versionsOlderThanActive(selection->root, mode->currentSymlink);
    if (!versions || std::none_of(versions->begin(), versions->end(), [&](const std::string& v) {
          return normalizedPolicyPath(v) == normalPath;
        })) {
      return false;
    }
  }
  return true;
}

bool CleanupPlanBuilder::isStillOrphaned(const std::string& path, const std::string& findingID,
                                         const InstalledAppInventory& inventory,
                                         const SpotlightResolver& spotlight,
                                         const PathSafetyPolicy& policy) const {
  // An incomplete inventory can't tell a gone application from a hidden one.
  if (!inventory.isComplete) return false;
  for (const CleanupSelection* selection : selectionsOf(findingID)) {
    const auto* mode = selection->mode.as<RuleTargetMode::OrphanedBundles>();
    if (mode == nullptr || !selectionAccepts(*selection, path, now_)) continue;
    const auto judgement =
        OrphanDetection::judge(standardizedPath(path), mode->resource, inventory, spotlight, policy,
                               OrphanDetection::MtimeSource::readFromDisk(), now_);
    return judgement.as<OrphanDetection::Judgement::Orphan>() != nullptr;
  }
  return false;
}

}  // namespace brisko
