#pragma once

#include <set>
#include <string>

namespace brisko {

// The bundle identifiers of the applications found installed, lower-cased.
// `isComplete` is false when some application folder couldn't be read; no
// orphan is ever judged from an incomplete inventory.
struct InstalledAppInventory {
  std::set<std::string> bundleIDs;
  bool isComplete = false;

  // An inventory of these identifiers, lower-cased on the way in.
  static InstalledAppInventory of(const std::set<std::string>& bundleIDs, bool isComplete);

  bool operator==(const InstalledAppInventory&) const = default;
};

}  // namespace brisko
