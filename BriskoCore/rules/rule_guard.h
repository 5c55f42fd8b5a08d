#pragma once

#include <string>
#include <vector>

namespace brisko {

// What must not be running while a target is cleaned. There is one kind of
// guard, processNotRunning: it is hit when a running process's name equals one
// of `names` exactly, or its executable path contains one of `pathFragments`
// (both case-sensitive). A guard with neither list is never hit.
struct RuleGuard {
  std::vector<std::string> names;
  std::vector<std::string> pathFragments;

  static RuleGuard processNotRunning(std::vector<std::string> names,
                                     std::vector<std::string> pathFragments) {
    return RuleGuard{std::move(names), std::move(pathFragments)};
  }

  bool operator==(const RuleGuard&) const = default;
};

}  // namespace brisko
