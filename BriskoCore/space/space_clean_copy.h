#pragma once

// The texts of a Space basket clean. Keyed ones are packed as EngineText (the
// key is the English format text) for the application to localise.

#include <cstdint>
#include <string>
#include <vector>

#include "space/space_clean_records.h"

namespace brisko::SpaceCleanCopy {

// Refusals, in the order the service tests them.
inline constexpr const char* kAggregateRow =
    "Aggregate rows stand for multiple items and can’t be deleted directly.";
inline constexpr const char* kHomeFolder = "The home folder itself can’t be deleted.";
inline constexpr const char* kOutsideHome =
    "This location is outside the home folder; Brisko won’t touch it.";
inline constexpr const char* kStandardFolder =
    "System folders themselves can’t be deleted, but their contents can.";
inline constexpr const char* kNoLongerExists =
    "This item no longer exists; it may have been moved or deleted.";
inline constexpr const char* kSymbolicLink =
    "Symbolic links may point elsewhere; Brisko won’t delete them.";
inline constexpr const char* kInvalidPath = "Invalid path; skipped.";
inline constexpr const char* kProtectedLocation = "Protected location; Brisko won’t delete it.";
inline constexpr const char* kExclusionRuleKey = "Protected by exclusion rule “%@”.";

// The refusal of a whitelisted path, keyed with its pattern.
std::string exclusionRule(const std::string& pattern);

// "Moved 3 items to Trash", "Permanently deleted 1 items, 2 skipped and kept
// in the list", ... as keyed text.
std::string summary(const SpaceCleanReceipt& receipt);

// The messages of the skipped and failed results, first occurrence kept, in
// order; empty when there are none.
std::vector<std::string> failureMessages(const SpaceCleanReceipt& receipt);

// "%lld selected" with the count, as keyed text.
std::string selectedCount(std::int64_t count);

}  // namespace brisko::SpaceCleanCopy
