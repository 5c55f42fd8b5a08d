#pragma once

// Directories that the space tree shows as one sealed block: their inner
// layout (package trees, version-control stores, virtual environments) means
// nothing in a size map, and keeping their nodes would cost memory for no use.

#include <optional>
#include <string_view>

namespace brisko {

class SpaceFolding {
 public:
  // Exact, case-sensitive names, plus "cache" directly inside ".yarn". Entries
  // directly under the home folder are asked with no parent name, so a
  // home-level "cache" never folds.
  static bool isFolded(std::string_view name, std::optional<std::string_view> parentName);
};

}  // namespace brisko
