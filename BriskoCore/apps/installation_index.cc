#include "apps/installation_index.h"

#include "apps/bundle_reader.h"
#include "apps/bundle_source.h"
#include "apps/desktop_entry_folders.h"
#include "apps/flatpak_installation.h"
#include "base/unicode_text.h"

namespace brisko {
namespace {}  // namespace

InstallationIndex InstallationIndex::build(const CatalogSettings& settings) {
  InstallationIndex index;
  const auto walk = BundleSource::findBundles(BundleSource::inventoryRoots(settings));
  index.isComplete = walk.isComplete;
  for (const auto& path : walk.candidates) {
    if (const auto application = readBundle(path, settings.root))
      index.entries.push_back({path, application->bundleID, application->bundleName});
  }
  for (const auto& installation : {settings.flatpakUserDir, settings.flatpakSystemDir}) {
    const auto flatpak = FlatpakInstallation::read(installation);
    index.isComplete = index.isComplete && flatpak.isComplete;
    for (const auto& application : flatpak.applications)
      index.entries.push_back({application.folder, application.id, application.id});
  }
  const auto files = findDesktopEntryFiles(settings);
  index.isComplete = index.isComplete && files.isComplete;
  for (const auto& file : files.files) {
    const std::string id = desktopIDStem(file.id);
    index.entries.push_back({file.path, id, id});
  }
  return index;
}

std::vector<InstallationIndex::Entry> InstallationIndex::withBundleID(
    const std::string& bundleID, const std::string& excludedPath) const {
  std::vector<Entry> found;
  const std::string wanted = lowercasedText(bundleID);
  for (const auto& entry : entries) {
    if (entry.path != excludedPath && entry.bundleID && lowercasedText(*entry.bundleID) == wanted)
      found.push_back(entry);
  }
  return found;
}

}  // namespace brisko
