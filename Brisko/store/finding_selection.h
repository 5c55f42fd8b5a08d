#pragma once

// What the user picked in the list of findings. A finding with items is
// picked item by item; its id in `findingIDs` always means "all of it", kept
// true by `synchroniseParent`. A finding without items is picked by its id.

#include <set>
#include <string>
#include <vector>

#include "protocol/plan_records.h"
#include "protocol/scan_records.h"

namespace brisko {

inline constexpr std::string_view kTrashFindingID = "trash";

struct FindingSelection {
  std::set<std::string> findingIDs;
  std::set<std::string> itemIDs;

  bool isFullySelected(const ScanFinding& finding) const;
  void synchroniseParent(const ScanFinding& finding);

  void toggleFinding(const ScanFinding& finding);
  void toggleItem(const ScanFinding& finding, const std::string& itemID);
  void setItems(const ScanFinding& finding, const std::vector<std::string>& itemIDs, bool selected);

  // Selects what a guard doesn't hold back: an item stays out when a guard
  // warning names its title or its finding's title; a finding without items
  // stays out only when it is partial and a guard warning names it.
  void selectAutomatically(const ScanFinding& finding, const std::vector<std::string>& warnings);

  // Starts afresh with every recommended cleanup finding selected
  // automatically; `review` and `reportOnly` findings stay out.
  void redo(const std::vector<ScanFinding>& findings, const std::vector<std::string>& warnings);

  bool isTrashSelected() const { return findingIDs.contains(std::string(kTrashFindingID)); }

  // The engine's part of the selection in list order: whole findings by id,
  // the selected items of the others; the Trash and `reportOnly` findings
  // never go to the engine.
  CreateCleanupPlanRequest cleanupRequest(const std::vector<ScanFinding>& findings) const;

  bool operator==(const FindingSelection&) const = default;
};

bool hasItems(const ScanFinding& finding);

// Whether a finding takes part in the automatic selection at all.
bool isPreselectable(const ScanFinding& finding);

}  // namespace brisko
