#include "space/space_clean_copy.h"

#include <algorithm>

#include "protocol/engine_text.h"

namespace brisko::SpaceCleanCopy {

std::string exclusionRule(const std::string& pattern) {
  return EngineText::encoded(kExclusionRuleKey, {pattern});
}

std::string summary(const SpaceCleanReceipt& receipt) {
  const auto done = static_cast<std::int64_t>(receipt.succeeded().size());
  const auto rest = static_cast<std::int64_t>(receipt.results.size()) - done;
  const bool trash = receipt.mode == SpaceCleanMode::trash;
  if (rest < 1) {
    return EngineText::encoded(
        trash ? "Moved %lld items to Trash" : "Permanently deleted %lld items",
        {std::to_string(done)});
  }
  return EngineText::encoded(
      trash ? "Moved %1$lld items to Trash, %2$lld skipped and kept in the list"
            : "Permanently deleted %1$lld items, %2$lld skipped and kept in the list",
      {std::to_string(done), std::to_string(rest)});
}

std::vector<std::string> failureMessages(const SpaceCleanReceipt& receipt) {
  std::vector<std::string> messages;
  for (const SpaceCleanResult& result : receipt.results) {
    if (result.outcome != SpaceCleanOutcome::skipped && result.outcome != SpaceCleanOutcome::failed)
      continue;
    if (!result.message) continue;
    if (std::find(messages.begin(), messages.end(), *result.message) == messages.end())
      messages.push_back(*result.message);
  }
  return messages;
}

std::string selectedCount(std::int64_t count) {
  return EngineText::encoded("%lld selected", {std::to_string(count)});
}

}  // namespace brisko::SpaceCleanCopy
