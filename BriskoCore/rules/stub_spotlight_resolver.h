#pragma once

#include <map>
#include <optional>
#include <string>

#include "rules/spotlight_resolver.h"

namespace brisko {

// Answers from a fixed table, keyed by lower-cased identifier; an identifier
// that isn't in the table answers false. A key may map to none, to stand for
// a resolver that gives no answer for it.
class StubSpotlightResolver : public SpotlightResolver {
 public:
  explicit StubSpotlightResolver(const std::map<std::string, std::optional<bool>>& answers = {});

  std::optional<bool> isInstalled(std::string_view bundleID) const override;

 private:
  std::map<std::string, std::optional<bool>> answers_;
};

}  // namespace brisko
