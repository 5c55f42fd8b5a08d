#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "rules/spotlight_resolver.h"

namespace brisko {

// Remembers the clear answers of another resolver, by lower-cased identifier.
// An absent answer is never remembered, so that a timeout is asked again. The
// lock guards only the dictionary and is not held while the underlying
// resolver is asked: two threads may ask for the same identifier at once.
class CachingSpotlightResolver : public SpotlightResolver {
 public:
  explicit CachingSpotlightResolver(std::shared_ptr<const SpotlightResolver> underlying);

  std::optional<bool> isInstalled(std::string_view bundleID) const override;

 private:
  const std::shared_ptr<const SpotlightResolver> underlying_;
  mutable std::mutex lock_;
  mutable std::map<std::string, bool> cache_;  // guarded by lock_
};

}  // namespace brisko
