#pragma once

// Everything installed that could share data with an application being
// removed: bundles of the inventory roots, Flatpak applications and every
// desktop entry, hidden ones and those whose program is missing too.

#include <string>
#include <vector>

#include "apps/catalog_settings.h"
#include "apps/installation_entry.h"

namespace brisko {

struct InstallationIndex {
  using Entry = InstallationEntry;

  std::vector<Entry> entries;
  bool isComplete = true;  // false if a folder that exists could not be listed

  static InstallationIndex build(const CatalogSettings& settings);

  // The entries that carry `bundleID` (compared case-blind), leaving out the
  // one at `excludedPath`, the application being removed.
  std::vector<Entry> withBundleID(const std::string& bundleID,
                                  const std::string& excludedPath) const;
};

}  // namespace brisko
