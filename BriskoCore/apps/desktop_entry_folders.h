#pragma once

#include <string>
#include <vector>

#include "apps/catalog_settings.h"

namespace brisko {

struct DesktopEntryFile {
  std::string path;
  std::string id;           // "org.gnome.Foo.desktop"; "kde-foo.desktop" for kde/foo.desktop
  bool isUser = false;      // from $XDG_DATA_HOME/applications
  bool isShadowed = false;  // an earlier folder holds the same id
};

struct DesktopEntryFiles {
  std::vector<DesktopEntryFile> files;  // folder by folder, every id's winner first
  bool isComplete = true;               // false when a folder that exists could not be listed
};

// "org.gnome.Foo" of "org.gnome.Foo.desktop": what stands for a bundle
// identifier and name.
std::string desktopIDStem(const std::string& id);

// The "applications" folders in the order that decides: the user's data
// folder, then each of $XDG_DATA_DIRS, then the Flatpak and snap export
// folders that the list lacks.
std::vector<std::string> desktopEntryFolders(const CatalogSettings& settings);

// Every "*.desktop" file (a file or a link) in those folders and their
// sub-folders. For one id the first folder wins; the others are kept,
// marked as shadowed.
DesktopEntryFiles findDesktopEntryFiles(const CatalogSettings& settings);

}  // namespace brisko
