#pragma once

// The list of findings as the clean flow keeps it: its order, the synthetic
// Trash row, and the list after a clean.

#include <string>
#include <vector>

#include "protocol/receipt_records.h"
#include "protocol/scan_records.h"
#include "store/finding_selection.h"
#include "trash/trash_client.h"

namespace brisko {

// Largest first; equal sizes by id, ascending.
void sortFindings(std::vector<ScanFinding>& findings);

// The row that stands for the whole Trash, whose `path` is `trashFolder`.
ScanFinding trashFinding(const FinderTrash::Inventory& inventory, const std::string& trashFolder,
                         bool fullDiskAccessGranted);

// Takes out the Trash row and puts it back from `inventory` (selected each
// time), or leaves it out when the Trash is unknown; sorts.
void rebuildTrashFinding(std::vector<ScanFinding>& findings, FindingSelection& selection,
                         const std::optional<FinderTrash::Inventory>& inventory,
                         const std::string& trashFolder, bool fullDiskAccessGranted);

// Drops what `results` say was deleted: items (with their selection and their
// bytes), findings without items whose path went, findings with no item left.
// A row that is a folder planned as its entries goes when every entry under
// it was deleted and none was left out of the plan (`leftOut`); partly
// emptied, it stays with what it still holds. Rows that were skipped or
// failed stay, selected as they were. Doesn't sort.
void removeDeleted(std::vector<ScanFinding>& findings, FindingSelection& selection,
                   const std::vector<CleanupItemResult>& results,
                   const std::vector<std::string>& leftOut = {});

}  // namespace brisko
