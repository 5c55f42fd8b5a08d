#pragma once

// Every text that the application's clean flow shows, in one place, so that
// the window and `brisko` say the same words. The English text is also the key
// of the string table: a translation replaces it through `localized`.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/scan_records.h"

namespace brisko {

namespace AppText {

// Scan.
inline constexpr std::string_view kPreparingScan = "Preparing scan\u2026";
inline constexpr std::string_view kOrganizingResults = "Organizing results\u2026";
inline constexpr std::string_view kRecommended = "Recommended";
inline constexpr std::string_view kNeedsReview = "Needs review";
inline constexpr std::string_view kEnginePrefix = "Engine ";
inline constexpr std::string_view kEngineUnavailable = "Engine unavailable";
inline constexpr std::string_view kWhitelistChanged = "Whitelist changed; rescan to apply";

// The Trash row.
inline constexpr std::string_view kTrashTitle = "Trash";
inline constexpr std::string_view kTrashAtLeast = "At least this much";
inline constexpr std::string_view kTrashEmptiedByFinder = "Emptied by Finder";
inline constexpr std::string_view kTrashExplanation = "Emptying can\u2019t be undone.";
inline constexpr std::string_view kTrashEmptied = "Emptied.";
inline constexpr std::string_view kTrashEmptiedViaFinder = "Emptied via Finder.";
inline constexpr std::string_view kTrashCancelledInFinder =
    "Canceled in Finder\u2019s confirmation dialog.";

// A clean.
inline constexpr std::string_view kFreedOfPlanned = "Freed %1$@ of %2$@ planned";
inline constexpr std::string_view kEmptyingTrash = "Emptying the Trash";
inline constexpr std::string_view kWaitingForFinder = "Waiting for Finder to empty the Trash";
inline constexpr std::string_view kCleanConfirmation =
    "Deleted items skip the Trash and can\u2019t be recovered";
inline constexpr std::string_view kPermanentlyDeleted = "Permanently deleted %lld items";
inline constexpr std::string_view kSkippedAndKept = ", %lld skipped and kept in the list";
inline constexpr std::string_view kContinueCleaning = "Continue cleaning";
inline constexpr std::string_view kDone = "Done";

// Permissions. On Linux the probe answers true, so these never show; they
// stay for the platforms where it doesn't.
inline constexpr std::string_view kNeedsAutomation =
    "Can\u2019t read the Trash. Allow Brisko to control Finder.";
inline constexpr std::string_view kOpenAutomationSettings = "Open Automation Settings";
inline constexpr std::string_view kNeedsFullDiskAccess =
    "Grant Full Disk Access to clean browser caches and more";
inline constexpr std::string_view kGrantAccess = "Grant Access";

// Blocked locations and rows that can't be measured.
inline constexpr std::string_view kBlockedNeedsAccess =
    "%@ is privacy-protected; grant Full Disk Access to include it.";
inline constexpr std::string_view kBlockedUnreadable =
    "Parts of %@ couldn\u2019t be read and aren\u2019t counted.";
inline constexpr std::string_view kSkippedProtectedLocations = "Skipped %lld protected locations";
inline constexpr std::string_view kMultipleLocations = "Multiple locations";
inline constexpr std::string_view kPrivacyProtected = "Privacy-protected";
inline constexpr std::string_view kPrivacyProtectedUnmeasured =
    "Privacy-protected; can\u2019t be measured";

// The text of the string table for `key`, the key itself when it has none.
std::string localized(std::string_view key);

// `format` (a key, looked up first) with its `%@`, `%d`, `%lld` and their
// positional forms (`%1$@`) replaced by `arguments` in turn; `%%` is a
// percent sign. A placeholder without an argument stays as it stands.
std::string formatted(std::string_view format, const std::vector<std::string>& arguments);

// An engine text (plain or keyed) as the user reads it: a plain text is looked
// up whole; a keyed one is formatted with its arguments, each integer passed
// as a number and each other argument looked up in turn.
std::string engineText(std::string_view text);

// "Freed 1.5 MB of 2 MB planned".
std::string freedOfPlanned(std::int64_t freedBytes, std::int64_t plannedBytes);

// "Permanently deleted 3 items", with ", 1 skipped and kept in the list" when
// something was kept.
std::string runSummary(std::int64_t deletedCount, std::int64_t keptCount);

// The line about the locations a scan couldn't read: one location's sentence,
// or the count of several. Empty for none.
std::string blockedSummary(const std::vector<BlockedLocation>& blocked);

}  // namespace AppText

}  // namespace brisko
