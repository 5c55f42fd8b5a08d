// The scan of one resource folder for orphans.

#include <algorithm>
#include <cerrno>

#include "rules/directory_listing.h"
#include "rules/orphan_detection.h"

namespace brisko::OrphanDetection {

std::string resourceSubtitle(OrphanResource resource) {
  switch (resource) {
    case OrphanResource::caches:
      return "Caches";
    case OrphanResource::logs:
      return "Logs";
    case OrphanResource::savedState:
      return "Window state";
  }
  return "";
}

RootScan scanRoot(const std::string& root, OrphanResource resource, const std::string& ruleID,
                  const InstalledAppInventory& installedApps, const SpotlightResolver& spotlight,
                  const PathSafetyPolicy& policy, Date now) {
  RootScan scan;
  int error = 0;
  const auto listing = rules_internal::listDirectory(root, /*skipHidden=*/true, &error);
  if (!listing) {
    scan.permissionDenied = error == EACCES || error == EPERM;
    return scan;
  }
  auto entries = *listing;
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.path < b.path; });
  for (const rules_internal::ListedEntry& entry : entries) {
    if (!entry.valuesReadable || entry.isSymbolicLink || !entry.isDirectory) continue;
    const Judgement judgement = judge(entry.path, resource, installedApps, spotlight, policy,
                                      MtimeSource::readFromDisk(), now);
    if (const auto* skipped = judgement.as<Judgement::PolicySkipped>()) {
      scan.skippedProtected += skipped->protected_ ? 1 : 0;
      scan.skippedWhitelisted += skipped->whitelisted ? 1 : 0;
      scan.skippedInvalid += skipped->invalid ? 1 : 0;
    } else if (const auto* orphan = judgement.as<Judgement::Orphan>()) {
      scan.detailItems.push_back(ScanFindingItem{
          .id = ruleID + ":" + normalizedPolicyPath(entry.path),
          .title = orphan->displayBundleID,
          .subtitle = resourceSubtitle(resource),
          .path = entry.path,
          .bytes = orphan->bytes,
          .itemCount = 1,
      });
      scan.bytes += orphan->bytes;
      scan.items += 1;
    }
  }
  return scan;
}

}  // namespace brisko::OrphanDetection
