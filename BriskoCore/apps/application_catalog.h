#pragma once

// The installed applications of every source, with the sizes known so far.
// Sizes come from the size cache at once; the rest are measured afterwards in
// one batch, so a page can show the list before the disk has been walked.

#include <memory>
#include <string>
#include <vector>

#include "apps/application_lister.h"
#include "apps/application_size_cache.h"
#include "apps/catalog_settings.h"
#include "apps/installed_application.h"

namespace brisko {

class ApplicationCatalog {
 public:
  // Bundles and the Linux desktop's applications.
  explicit ApplicationCatalog(CatalogSettings settings);
  ApplicationCatalog(CatalogSettings settings,
                     std::vector<std::unique_ptr<ApplicationLister>> sources);

  // Every source's records (one per id, the first source winning), with
  // `bytes` from the package manager or from `cache` where its stamps still
  // match. Never fails: what can't be read is left out. Not sorted.
  std::vector<InstalledApplication> installedApplications(ApplicationSizeCache& cache);

  // True when every folder that exists could be listed by the last call.
  bool wasComplete() const { return wasComplete_; }

  // Measures every record without bytes in one batch (DiskUsage), fills the
  // bytes in and stores them in `cache`, which is then saved.
  static void measureSizes(std::vector<InstalledApplication>& applications,
                           ApplicationSizeCache& cache);

  static std::vector<std::string> searchRoots(const CatalogSettings& settings);
  static std::vector<std::string> inventoryRoots(const CatalogSettings& settings);

 private:
  CatalogSettings settings_;
  std::vector<std::unique_ptr<ApplicationLister>> sources_;
  bool wasComplete_ = true;
};

}  // namespace brisko
