#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "rules/cleanup_rule.h"
#include "rules/cleanup_rule_evaluator.h"

namespace brisko::ConcurrentScan {

// How early a rule starts: the slowest locations first, so that the long
// walks run while the quick ones fill the gaps. Unknown rules weigh 0.
int schedulingWeight(std::string_view ruleID);

// The rule numbers in starting order: greater weight first, equal weight in
// catalog order.
std::vector<size_t> schedulingOrder(const std::vector<CleanupRule>& rules);

struct Callbacks {
  std::function<void(const CleanupRule&)> onRuleBegan;
  // With the number of roots of the rule finished so far.
  std::function<void(const CleanupRule&, std::int64_t)> onRuleRootMeasured;
  // With the measurement and the number of roots the rule reported.
  std::function<void(const CleanupRule&, const Measurement&, std::int64_t)> onRuleMeasured;
};

// Measures every rule, side by side on a pool as wide as the machine's cores.
// The callbacks are called from the pool's threads, possibly at once; the
// measurements come back in the order of `rules`. Rules not started when the
// evaluator is cancelled are left empty and not reported.
std::vector<Measurement> measureAll(const std::vector<CleanupRule>& rules,
                                    const CleanupRuleEvaluator& evaluator,
                                    const Callbacks& callbacks = {});

}  // namespace brisko::ConcurrentScan
