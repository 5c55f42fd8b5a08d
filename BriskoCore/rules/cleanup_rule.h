#pragma once

#include <optional>
#include <string>
#include <vector>

#include "protocol/engine_enums.h"
#include "rules/rule_guard.h"
#include "rules/rule_target_mode.h"

namespace brisko {

// One place a rule looks at. `path` may begin with "~/" and may hold "*" and
// "?" in any component. Without `itemTitle` the rule's title or the last path
// component names the detail item. `guards` come after the rule's own.
struct RuleTarget {
  std::string path;
  RuleTargetMode mode;
  std::optional<std::string> itemTitle;
  std::vector<RuleGuard> guards;

  bool operator==(const RuleTarget&) const = default;
};

// What may be offered for cleaning, how to find it, how dangerous it is and
// what must not be running meanwhile. Rules are compiled-in values (see
// CleanupRuleCatalog) and are looked up again by `id` when a plan is made and
// run. A reportOnly rule only shows a location and its `guidance`.
struct CleanupRule {
  std::string id;
  FindingKind kind = FindingKind::userCache;
  std::string title;
  std::string subtitle;
  RiskLevel risk = RiskLevel::recommended;
  std::string explanation;
  std::vector<RuleTarget> targets;
  std::vector<RuleGuard> guards;
  RuleAction action = RuleAction::cleanup;
  std::optional<std::string> guidance;

  bool operator==(const CleanupRule&) const = default;

  // The rule's guards followed by the target's.
  std::vector<RuleGuard> effectiveGuards(const RuleTarget& target) const {
    std::vector<RuleGuard> all = guards;
    all.insert(all.end(), target.guards.begin(), target.guards.end());
    return all;
  }
};

}  // namespace brisko
