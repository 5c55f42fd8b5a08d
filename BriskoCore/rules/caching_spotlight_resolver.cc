#include "rules/caching_spotlight_resolver.h"

#include "base/unicode_text.h"

namespace brisko {

CachingSpotlightResolver::CachingSpotlightResolver(
    std::shared_ptr<const SpotlightResolver> underlying)
    : underlying_(std::move(underlying)) {}

std::optional<bool> CachingSpotlightResolver::isInstalled(std::string_view bundleID) const {
  const std::string key = lowercasedText(bundleID);
  {
    std::lock_guard<std::mutex> guard(lock_);
    if (auto found = cache_.find(key); found != cache_.end()) return found->second;
  }
  const std::optional<bool> answer = underlying_ ? underlying_->isInstalled(key) : std::nullopt;
  if (!answer) return std::nullopt;
  std::lock_guard<std::mutex> guard(lock_);
  cache_.emplace(key, *answer);
  return answer;
}

}  // namespace brisko
