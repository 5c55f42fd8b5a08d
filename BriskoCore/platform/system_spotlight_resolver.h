#pragma once

#include <memory>

#include "rules/spotlight_resolver.h"

namespace brisko {

// The platform's own index of installed applications. Linux has none: this
// resolver answers none for every identifier, so every orphan judgement ends
// in keeping the folder. Callers need not check for the platform themselves.
class UnavailableSpotlightResolver : public SpotlightResolver {
 public:
  std::optional<bool> isInstalled(std::string_view bundleID) const override;
};

// The resolver to ask on this platform, with the given time limit per query
// in seconds (unused where there is no service).
std::shared_ptr<const SpotlightResolver> systemSpotlightResolver(double timeoutSeconds);

}  // namespace brisko
