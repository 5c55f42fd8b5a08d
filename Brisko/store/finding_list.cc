#include "store/finding_list.h"

#include <algorithm>
#include <map>
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

namespace {

// The outcome of one listed row: a row that is a folder may have been
// planned as the entries it holds, so what happened under it counts too.
struct RowOutcome {
  bool gone = false;
  std::int64_t freedBytes = 0;  // by the entries deleted under it
};

class DeletedPaths {
 public:
  DeletedPaths(const std::vector<CleanupItemResult>& results,
               const std::vector<std::string>& leftOut) {
    for (const CleanupItemResult& result : results) {
      if (result.outcome == CleanupItemOutcome::deleted)
        deleted_.emplace(result.originalPath, result.bytes);
      else
        remaining_.insert(result.originalPath);
    }
    remaining_.insert(leftOut.begin(), leftOut.end());
  }

  bool empty() const { return deleted_.empty(); }

  RowOutcome outcome(const std::string& row) const {
    if (deleted_.contains(row)) return {true, 0};
    // Every path under the row starts with "row/", and such paths sort
    // together.
    const std::string prefix = row + "/";
    RowOutcome outcome;
    bool anyUnder = false;
    for (auto it = deleted_.lower_bound(prefix);
         it != deleted_.end() && it->first.starts_with(prefix); ++it) {
      anyUnder = true;
      outcome.freedBytes += it->second;
    }
    const auto left = remaining_.lower_bound(prefix);
    const bool somethingStays = left != remaining_.end() && left->starts_with(prefix);
    outcome.gone = anyUnder && !somethingStays;
    return outcome;
  }

 private:
  std::map<std::string, std::int64_t> deleted_;
  std::set<std::string> remaining_;
};

}  // namespace

void removeDeleted(std::vector<ScanFinding>& findings, FindingSelection& selection,
                   const std::vector<CleanupItemResult>& results,
                   const std::vector<std::string>& leftOut) {
  const DeletedPaths deleted(results, leftOut);
  if (deleted.empty()) return;

  std::vector<ScanFinding> kept;
  for (ScanFinding& finding : findings) {
    if (!hasItems(finding)) {
      if (deleted.outcome(finding.path).gone)
        selection.findingIDs.erase(finding.id);
      else
        kept.push_back(std::move(finding));
      continue;
    }
    std::vector<ScanFindingItem> items;
    for (ScanFindingItem& item : *finding.items) {
      const RowOutcome outcome = deleted.outcome(item.path);
      if (!outcome.gone) {
        // Partly emptied: what is left is what the row now holds.
        const std::int64_t freed = std::min(outcome.freedBytes, item.bytes);
        item.bytes -= freed;
        finding.bytes = std::max<std::int64_t>(0, finding.bytes - freed);
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
