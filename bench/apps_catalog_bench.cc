// Lists applications through the catalog, for the catalog benchmark and for a
// look at what a machine has installed.
//
//   apps_catalog_bench ROOT CACHE-FILE   the bundles under ROOT/Applications,
//                                        sizes from CACHE-FILE, the rest measured
//   apps_catalog_bench --machine         this machine's applications, as a table

#include <cstdio>
#include <cstring>
#include <string>

#include "apps/application_catalog.h"
#include "apps/bundle_source.h"
#include "platform/home_directory.h"
#include "protocol/brisko_formatting.h"

using namespace brisko;

namespace {

int listMachine() {
  const auto home = currentHomeDirectory();
  if (!home) return 1;
  const CatalogSettings settings = CatalogSettings::fromEnvironment(*home);
  ApplicationSizeCache cache(settings.sizeCachePath);
  ApplicationCatalog catalog(settings);
  auto applications = catalog.installedApplications(cache);
  ApplicationCatalog::measureSizes(applications, cache);
  std::printf("%-32s %-16s %-13s %10s  %s\n", "NAME", "VERSION", "SOURCE", "SIZE", "PATH");
  for (const auto& application : applications) {
    const std::string size =
        application.bytes ? BriskoFormatting::bytes(*application.bytes) : std::string("?");
    std::printf("%-32.32s %-16.16s %-13s %10s  %s\n", application.name.c_str(),
                application.version.value_or("").c_str(),
                std::string(applicationSourceName(application.source)).c_str(), size.c_str(),
                application.id.c_str());
  }
  std::printf("%zu applications; listing complete: %s\n", applications.size(),
              catalog.wasComplete() ? "yes" : "no");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--machine") == 0) return listMachine();
  if (argc != 3) {
    std::fprintf(stderr, "usage: apps_catalog_bench ROOT CACHE-FILE | --machine\n");
    return 2;
  }
  CatalogSettings settings;
  settings.root = argv[1];
  settings.home = std::string(argv[1]) + "/home";
  settings.dataHome = settings.home + "/.local/share";
  settings.flatpakUserDir = settings.dataHome + "/flatpak";
  settings.flatpakSystemDir = settings.root + "/var/lib/flatpak";
  settings.mountinfoPath = "/dev/null";
  std::vector<std::unique_ptr<ApplicationLister>> sources;
  sources.push_back(std::make_unique<BundleSource>());
  ApplicationCatalog catalog(settings, std::move(sources));
  ApplicationSizeCache cache(argv[2]);
  auto applications = catalog.installedApplications(cache);
  ApplicationCatalog::measureSizes(applications, cache);
  long long total = 0;
  for (const auto& application : applications)
    total += application.bytes.value_or(0);
  std::printf("{\"applications\":%zu,\"bytes\":%lld}\n", applications.size(), total);
  return 0;
}
