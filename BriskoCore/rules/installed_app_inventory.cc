#include "rules/installed_app_inventory.h"

#include "base/unicode_text.h"

namespace brisko {

InstalledAppInventory InstalledAppInventory::of(const std::set<std::string>& bundleIDs,
                                                bool isComplete) {
  InstalledAppInventory inventory;
  for (const std::string& bundleID : bundleIDs)
    inventory.bundleIDs.insert(lowercasedText(bundleID));
  inventory.isComplete = isComplete;
  return inventory;
}

}  // namespace brisko
