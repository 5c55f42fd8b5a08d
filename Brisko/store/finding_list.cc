#include "store/finding_list.h"

#include <algorithm>
#include <set>

#include "text/app_texts.h"

namespace brisko {

void sortFindings(std::vector<ScanFinding>& findings) {
  std::stable_sort(findings.begin(), findings.end(),
                   [](const ScanFinding& left, const ScanFinding& right) {
                     if (left.bytes != right.bytes) return left.bytes > right.bytes;
                     return left.id < right.id;
                   });
}

ScanFinding trashFinding(const FinderTrash::Inventory& inventory, const std::string& trashFolder,
                         bool fullDiskAccessGranted) {
  std::vector<std::string> parts;
  const bool incomplete =
      std::any_of(inventory.entries.begin(), inventory.entries.end(),
                  [](const FinderTrash::Entry& entry) { return !entry.isSizeComplete; });
  if (incomplete) parts.push_back(AppText::localized(AppText::kTrashAtLeast));
  if (!fullDiskAccessGranted) parts.push_back(AppText::localized(AppText::kTrashEmptiedByFinder));
  std::string subtitle;
  for (const std::string& part : parts)
    subtitle += (subtitle.empty() ? "" : ", ") + part;

  ScanFinding finding;
  finding.id = std::string(kTrashFindingID);
  finding.kind = FindingKind::trash;
  finding.title = AppText::localized(AppText::kTrashTitle);
  finding.subtitle = std::move(subtitle);
  finding.path = trashFolder;
  finding.bytes = inventory.totalBytes();
  finding.itemCount = static_cast<std::int64_t>(inventory.entries.size());
  finding.risk = RiskLevel::recommended;
  finding.explanation = AppText::localized(AppText::kTrashExplanation);
  finding.isPartial = false;
  finding.action = RuleAction::cleanup;
  return finding;
}

void rebuildTrashFinding(std::vector<ScanFinding>& findings, FindingSelection& selection,
                         const std::optional<FinderTrash::Inventory>& inventory,
                         const std::string& trashFolder, bool fullDiskAccessGranted) {
  std::erase_if(findings, [](const ScanFinding& finding) { return finding.id == kTrashFindingID; });
  if (!inventory) {
    selection.findingIDs.erase(std::string(kTrashFindingID));
  } else {
    findings.push_back(trashFinding(*inventory, trashFolder, fullDiskAccessGranted));
    selection.findingIDs.insert(std::string(kTrashFindingID));
  }
  sortFindings(findings);
}

void removeDeleted(std::vector<ScanFinding>& findings, FindingSelection& selection,
                   const std::vector<CleanupItemResult>& results) {
  std::set<std::string> deleted;
  for (const CleanupItemResult& result : results)
    if (result.outcome == CleanupItemOutcome::deleted) deleted.insert(result.originalPath);
  if (deleted.empty()) return;

  std::vector<ScanFinding> kept;
  for (ScanFinding& finding : findings) {
    if (!hasItems(finding)) {
      if (deleted.contains(finding.path))
        selection.findingIDs.erase(finding.id);
      else
        kept.push_back(std::move(finding));
      continue;
    }
    std::vector<ScanFindingItem> items;
    for (ScanFindingItem& item : *finding.items) {
      if (!deleted.contains(item.path)) {
        items.push_back(std::move(item));
        continue;
      }
      selection.itemIDs.erase(item.id);
      finding.bytes = std::max<std::int64_t>(0, finding.bytes - item.bytes);
      finding.itemCount = std::max<std::int64_t>(0, finding.itemCount - item.itemCount);
    }
    if (items.empty()) {
      selection.findingIDs.erase(finding.id);
      continue;
    }
    finding.items = std::move(items);
    selection.synchroniseParent(finding);
    kept.push_back(std::move(finding));
  }
  findings = std::move(kept);
}

}  // namespace brisko
