#include "platform/system_spotlight_resolver.h"

namespace brisko {

std::optional<bool> UnavailableSpotlightResolver::isInstalled(std::string_view) const {
  return std::nullopt;
}

std::shared_ptr<const SpotlightResolver> systemSpotlightResolver(double) {
  return std::make_shared<UnavailableSpotlightResolver>();
}

}  // namespace brisko
