#include "store/finding_selection.h"

#include <algorithm>

#include "protocol/guard_warning_text.h"

namespace brisko {

namespace {

std::set<std::string> guardedTitles(const std::vector<std::string>& warnings) {
  std::set<std::string> titles;
  for (const std::string& warning : warnings)
    if (auto title = GuardWarningText::guardedTitle(warning)) titles.insert(std::move(*title));
  return titles;
}

}  // namespace

// An empty item list counts as none: such a finding is picked by its id.
bool hasItems(const ScanFinding& finding) {
  return finding.items && !finding.items->empty();
}

bool isPreselectable(const ScanFinding& finding) {
  return finding.risk == RiskLevel::recommended && finding.action == RuleAction::cleanup;
}

bool FindingSelection::isFullySelected(const ScanFinding& finding) const {
  if (!hasItems(finding)) return findingIDs.contains(finding.id);
  if (itemIDs.empty()) return false;
  return std::all_of(finding.items->begin(), finding.items->end(),
                     [&](const ScanFindingItem& item) { return itemIDs.contains(item.id); });
}

void FindingSelection::synchroniseParent(const ScanFinding& finding) {
  if (isFullySelected(finding))
    findingIDs.insert(finding.id);
  else
    findingIDs.erase(finding.id);
}

void FindingSelection::toggleFinding(const ScanFinding& finding) {
  if (!hasItems(finding)) {
    if (!findingIDs.erase(finding.id)) findingIDs.insert(finding.id);
    return;
  }
  const bool deselect = isFullySelected(finding);
  if (deselect)
    findingIDs.erase(finding.id);
  else
    findingIDs.insert(finding.id);
  for (const ScanFindingItem& item : *finding.items) {
    if (deselect)
      itemIDs.erase(item.id);
    else
      itemIDs.insert(item.id);
  }
}

void FindingSelection::toggleItem(const ScanFinding& finding, const std::string& itemID) {
  if (!itemIDs.erase(itemID)) itemIDs.insert(itemID);
  synchroniseParent(finding);
}

void FindingSelection::setItems(const ScanFinding& finding, const std::vector<std::string>& ids,
                                bool selected) {
  for (const std::string& id : ids) {
    if (selected)
      itemIDs.insert(id);
    else
      itemIDs.erase(id);
  }
  synchroniseParent(finding);
}

void FindingSelection::selectAutomatically(const ScanFinding& finding,
                                           const std::vector<std::string>& warnings) {
  const std::set<std::string> guarded = guardedTitles(warnings);
  if (hasItems(finding)) {
    const bool findingGuarded = guarded.contains(finding.title);
    for (const ScanFindingItem& item : *finding.items)
      if (!findingGuarded && !guarded.contains(item.title)) itemIDs.insert(item.id);
    synchroniseParent(finding);
    return;
  }
  if (!(finding.isPartial && guarded.contains(finding.title))) findingIDs.insert(finding.id);
}

void FindingSelection::redo(const std::vector<ScanFinding>& findings,
                            const std::vector<std::string>& warnings) {
  findingIDs.clear();
  itemIDs.clear();
  for (const ScanFinding& finding : findings)
    if (isPreselectable(finding)) selectAutomatically(finding, warnings);
}

CreateCleanupPlanRequest FindingSelection::cleanupRequest(
    const std::vector<ScanFinding>& findings) const {
  CreateCleanupPlanRequest request;
  for (const ScanFinding& finding : findings) {
    if (finding.id == kTrashFindingID || finding.action != RuleAction::cleanup) continue;
    if (isFullySelected(finding)) {
      request.findingIDs.push_back(finding.id);
      continue;
    }
    for (const ScanFindingItem& item : finding.items.value_or(std::vector<ScanFindingItem>{}))
      if (itemIDs.contains(item.id)) request.itemIDs.push_back(item.id);
  }
  return request;
}

}  // namespace brisko
