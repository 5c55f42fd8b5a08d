#pragma once

// Every text that the Space page shows, beside the clean flow's texts and
// looked up the same way (`localized`, `formatted`).

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/space_records.h"
#include "space/space_clean_records.h"
#include "store/space_states.h"

namespace brisko {

namespace AppText {

// The scan.
inline constexpr std::string_view kStartAnalysis = "Start analysis";
inline constexpr std::string_view kReanalyze = "Reanalyze";
inline constexpr std::string_view kStop = "Stop";
inline constexpr std::string_view kMeasuredSize = "Measured %@";
inline constexpr std::string_view kMeasuringStarted = "Measuring\u2026";
inline constexpr std::string_view kMeasuringTitle = "Measuring %@";
inline constexpr std::string_view kPreparingMeasurement = "Preparing measurement\u2026";
// "Organizing results…" is the clean flow's kOrganizingResults.

// Drill-down.
inline constexpr std::string_view kBackToLevelAbove = "Back to the level above (\u2318\u2191)";
inline constexpr std::string_view kJumpTo = "Jump to %@";
inline constexpr std::string_view kNothingAtThisLevel = "Nothing to show at this level.";

// Rows.
inline constexpr std::string_view kHiddenGroupSubtitle =
    "Hidden items, mostly from developer tools";
inline constexpr std::string_view kOtherGroupSubtitle = "Everything else on this level";
inline constexpr std::string_view kLibrarySubtitle =
    "Apps keep their data, caches, and settings here";
inline constexpr std::string_view kMeasuredWhole = "Measured whole";
inline constexpr std::string_view kEstimate = "Estimate";
// "Privacy-protected" is the clean flow's kPrivacyProtected.
inline constexpr std::string_view kAlreadyCovered = "Already covered by the selection";
inline constexpr std::string_view kRemoveFromCleanup = "Remove from cleanup";
inline constexpr std::string_view kAddToCleanup = "Add to cleanup";
inline constexpr std::string_view kShowInFolder = "Show in Finder";

// The dock.
inline constexpr std::string_view kActuallyFreeable = " \u00B7 about %@ actually freeable";
inline constexpr std::string_view kDeselect = "Deselect";
inline constexpr std::string_view kMoveToTrash = "Move to Trash";
inline constexpr std::string_view kDeletePermanently = "Delete permanently";
inline constexpr std::string_view kConfirmDelete = "Confirm delete";
inline constexpr std::string_view kCancel = "Cancel";
// The question's text is the clean flow's kCleanConfirmation; "Done" is kDone.
inline constexpr std::string_view kSomeNotDeleted = "Some items were not deleted: %@";

// "Measured 1.2 GB" once something was measured, else "Measuring…".
std::string spaceMeasured(std::int64_t measuredBytes);

// The scan's status line: "Measuring <title>", "Organizing results…" or
// "Preparing measurement…".
std::string spaceStatusLine(const std::optional<SpaceScanProgress>& progress);

// "3 selected", followed by " · about 1 MB actually freeable" when less than
// the selection's size would come free.
std::string spaceBasketLine(std::int64_t count, std::int64_t bytes, std::int64_t freeableBytes);

// The receipt's summary as the user reads it ("Moved 2 items to Trash, 1
// skipped and kept in the list").
std::string spaceReceiptSummary(const SpaceCleanReceipt& receipt);
// "Some items were not deleted: <the reasons>", or none when nothing failed.
std::optional<std::string> spaceReceiptFailures(const SpaceCleanReceipt& receipt);

// The subtitle of a row, if it has one, and its badges in order.
std::optional<std::string> spaceRowSubtitle(const DirectoryRow& row);
std::vector<std::string> spaceRowBadges(const DirectoryRow& row);

// The help of a row's selection control and its context-menu entry.
std::string spaceSelectionHelp(bool isCovered, bool isInBasket);

// "Jump to Projects".
std::string spaceJumpTo(const SpaceNode& node);

}  // namespace AppText

}  // namespace brisko
