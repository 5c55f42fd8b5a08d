#pragma once

// What `brisko` prints in words: the findings of a scan, a plan before it
// runs, a receipt, the space tree and the history. Sizes through
// `BriskoFormatting`, engine texts as the window renders them, colours only
// where the console allows them.

#include <string>

#include "cli/console.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "protocol/space_records.h"
#include "store/app_store.h"

namespace brisko::cli {

// The findings by section (recommended, needs review, shown only), largest
// first, each with its items; the warnings and blocked locations in sentences;
// the totals.
std::string scanText(const AppStore& store, const Console& console);

// What the plan holds, what it left out and why, and the Trash when it is
// emptied with it (`trashBytes` none when it isn't).
std::string planText(const CleanupPlan& plan, std::optional<std::int64_t> trashBytes,
                     std::int64_t trashEntries, const Console& console);

// Each result, then the summary the window shows after a run.
std::string receiptText(const CleanupReceipt& receipt, std::int64_t plannedBytes,
                        const Console& console);

// The tree to `depth` levels below the home folder, with share bars, then the
// largest files.
std::string spaceText(const SpaceReport& report, int depth, const Console& console);

// One receipt of the history on one line.
std::string historyLine(const CleanupReceipt& receipt);

}  // namespace brisko::cli
