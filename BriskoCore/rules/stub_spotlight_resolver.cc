#include "rules/stub_spotlight_resolver.h"

#include "base/unicode_text.h"

namespace brisko {

StubSpotlightResolver::StubSpotlightResolver(
    const std::map<std::string, std::optional<bool>>& answers) {
  for (const auto& [bundleID, answer] : answers)
    answers_[lowercasedText(bundleID)] = answer;
}

std::optional<bool> StubSpotlightResolver::isInstalled(std::string_view bundleID) const {
  const auto found = answers_.find(lowercasedText(bundleID));
  if (found == answers_.end()) return false;
  return found->second;
}

}  // namespace brisko
