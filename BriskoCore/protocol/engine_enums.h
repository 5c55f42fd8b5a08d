#pragma once

// The enumerations that cross the engine boundary; each is its case name in JSON.

#include <array>
#include <string_view>

#include "protocol/json_codec.h"

namespace brisko {

enum class FindingKind { userCache, logs, developer, trash, installer };
enum class RiskLevel { recommended, review, protected_ };
enum class RuleAction { cleanup, reportOnly };
enum class ScanEventKind { started, progress, finding, warning, blocked, completed };
enum class CleanupEventKind { started, item, completed };
enum class CleanupItemOutcome { deleted, skipped, failed };
enum class CleanupPlanSkipReason {
  pathMissing,
  protectedPath,
  whitelisted,
  invalidPath,
  symbolicLink,
  unsupportedSelection,
  inspectionFailed,
};
enum class SpaceEventKind { started, progress, node, warning, completed };
enum class SpaceNodeKind { directory, file, folded, hiddenGroup, otherGroup };

template <>
struct EnumNames<FindingKind> {
  static constexpr std::array<std::string_view, 5> names{"userCache", "logs", "developer", "trash",
                                                         "installer"};
};
template <>
struct EnumNames<RiskLevel> {
  // `protected` is a C++ keyword; the JSON name is the plain word.
  static constexpr std::array<std::string_view, 3> names{"recommended", "review", "protected"};
};
template <>
struct EnumNames<RuleAction> {
  static constexpr std::array<std::string_view, 2> names{"cleanup", "reportOnly"};
};
template <>
struct EnumNames<ScanEventKind> {
  static constexpr std::array<std::string_view, 6> names{"started", "progress", "finding",
                                                         "warning", "blocked",  "completed"};
};
template <>
struct EnumNames<CleanupEventKind> {
  static constexpr std::array<std::string_view, 3> names{"started", "item", "completed"};
};
template <>
struct EnumNames<CleanupItemOutcome> {
  static constexpr std::array<std::string_view, 3> names{"deleted", "skipped", "failed"};
};
template <>
struct EnumNames<CleanupPlanSkipReason> {
  static constexpr std::array<std::string_view, 7> names{
      "pathMissing",  "protectedPath",        "whitelisted",     "invalidPath",
      "symbolicLink", "unsupportedSelection", "inspectionFailed"};
};
template <>
struct EnumNames<SpaceEventKind> {
  static constexpr std::array<std::string_view, 5> names{"started", "progress", "node", "warning",
                                                         "completed"};
};
template <>
struct EnumNames<SpaceNodeKind> {
  static constexpr std::array<std::string_view, 5> names{"directory", "file", "folded",
                                                         "hiddenGroup", "otherGroup"};
};

}  // namespace brisko
