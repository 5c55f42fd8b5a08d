#pragma once

#include <optional>
#include <string_view>

namespace brisko {

// A second opinion on whether an application is installed, asked by bundle
// identifier before anything is called an orphan. True: an application with
// that identifier is known; false: none is; none: no answer (no service, a
// timeout, a failed query), which always counts for keeping.
// Implementations are safe to call from several threads at once.
class SpotlightResolver {
 public:
  virtual ~SpotlightResolver() = default;
  virtual std::optional<bool> isInstalled(std::string_view bundleID) const = 0;
};

}  // namespace brisko
