// The selection of the clean flow: toggles, expansion and the totals.

#include "store/app_store.h"

namespace brisko {

void AppStore::toggleFinding(const std::string& findingID) {
  Batch batch(*this);
  const ScanFinding* target = finding(findingID);
  if (!target || target->action != RuleAction::cleanup) return;
  FindingSelection selection = selection_;
  selection.toggleFinding(*target);
  setSelection(std::move(selection));
}

void AppStore::toggleItem(const std::string& findingID, const std::string& itemID) {
  Batch batch(*this);
  const ScanFinding* target = finding(findingID);
  if (!target || target->action != RuleAction::cleanup) return;
  FindingSelection selection = selection_;
  selection.toggleItem(*target, itemID);
  setSelection(std::move(selection));
}

void AppStore::setItems(const std::string& findingID, const std::vector<std::string>& itemIDs,
                        bool selected) {
  Batch batch(*this);
  const ScanFinding* target = finding(findingID);
  if (!target || target->action != RuleAction::cleanup) return;
  FindingSelection selection = selection_;
  selection.setItems(*target, itemIDs, selected);
  setSelection(std::move(selection));
}

void AppStore::toggleExpansion(const std::string& findingID) {
  Batch batch(*this);
  if (!expandedFindingIDs_.erase(findingID)) expandedFindingIDs_.insert(findingID);
  mark(StoreField::expandedFindingIDs);
}

bool AppStore::isFullySelected(const ScanFinding& finding) const {
  return selection_.isFullySelected(finding);
}

std::int64_t AppStore::selectedBytes() const {
  std::int64_t bytes = 0;
  for (const ScanFinding& finding : findings_) {
    if (finding.action != RuleAction::cleanup) continue;
    if (selection_.isFullySelected(finding)) {
      bytes += finding.bytes;
      continue;
    }
    if (!hasItems(finding)) continue;
    for (const ScanFindingItem& item : *finding.items)
      if (selection_.itemIDs.contains(item.id)) bytes += item.bytes;
  }
  return bytes;
}

std::int64_t AppStore::selectedItemCount() const {
  std::int64_t count = 0;
  for (const ScanFinding& finding : findings_) {
    if (finding.action != RuleAction::cleanup) continue;
    if (!hasItems(finding)) {
      count += selection_.findingIDs.contains(finding.id) ? 1 : 0;
      continue;
    }
    for (const ScanFindingItem& item : *finding.items)
      count += selection_.itemIDs.contains(item.id) ? 1 : 0;
  }
  return count;
}

}  // namespace brisko
