#pragma once

#include <string>
#include <vector>

#include "apps/catalog_settings.h"
#include "apps/installation_entry.h"
#include "apps/installed_application.h"

namespace brisko {

// What one kind of installation yields: the records to list, and everything
// it saw installed (hidden ones too) for the installation index.
struct SourceListing {
  std::vector<InstalledApplication> applications;
  std::vector<InstallationEntry> installations;
  bool isComplete = true;  // false when a folder that exists could not be listed
};

// One way applications get installed: ".app" bundles, or what a Linux
// desktop has (desktop entries and the programs behind them). A source never
// fails: what can't be read is left out.
class ApplicationLister {
 public:
  virtual ~ApplicationLister() = default;
  virtual SourceListing list(const CatalogSettings& settings) = 0;
};

}  // namespace brisko
