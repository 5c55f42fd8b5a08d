#include "apps/application_catalog.h"

#include <set>

#include "apps/bundle_source.h"
#include "apps/linux_application_source.h"
#include "space/disk_usage.h"

namespace brisko {
namespace {

using namespace std::chrono_literals;

std::vector<std::unique_ptr<ApplicationLister>> defaultSources() {
  std::vector<std::unique_ptr<ApplicationLister>> sources;
  sources.push_back(std::make_unique<BundleSource>());
  sources.push_back(std::make_unique<LinuxApplicationSource>());
  return sources;
}

}  // namespace

ApplicationCatalog::ApplicationCatalog(CatalogSettings settings)
    : ApplicationCatalog(std::move(settings), defaultSources()) {}

ApplicationCatalog::ApplicationCatalog(CatalogSettings settings,
                                       std::vector<std::unique_ptr<ApplicationLister>> sources)
    : settings_(std::move(settings)), sources_(std::move(sources)) {}

std::vector<InstalledApplication> ApplicationCatalog::installedApplications(
    ApplicationSizeCache& cache) {
  std::vector<InstalledApplication> applications;
  std::set<std::string> ids;
  wasComplete_ = true;
  for (const auto& source : sources_) {
    auto listing = source->list(settings_);
    wasComplete_ = wasComplete_ && listing.isComplete;
    for (auto& application : listing.applications) {
      if (!ids.insert(application.id).second) continue;
      if (!application.bytes && application.sizePath != "-")
        application.bytes = cache.bytes(application);
      applications.push_back(std::move(application));
    }
  }
  return applications;
}

void ApplicationCatalog::measureSizes(std::vector<InstalledApplication>& applications,
                                      ApplicationSizeCache& cache) {
  std::vector<std::string> paths;
  for (const auto& application : applications) {
    if (!application.bytes && application.sizePath != "-")
      paths.push_back(application.measuredPath());
  }
  if (paths.empty()) return;
  const auto sizes = DiskUsage::allocatedBytes(paths, 600s);
  for (auto& application : applications) {
    if (application.bytes || application.sizePath == "-") continue;
    const auto size = sizes.find(application.measuredPath());
    if (size == sizes.end()) continue;
    application.bytes = size->second;
    cache.store(application, size->second);
  }
  cache.save();
}

std::vector<std::string> ApplicationCatalog::searchRoots(const CatalogSettings& settings) {
  return BundleSource::searchRoots(settings);
}

std::vector<std::string> ApplicationCatalog::inventoryRoots(const CatalogSettings& settings) {
  return BundleSource::inventoryRoots(settings);
}

}  // namespace brisko
