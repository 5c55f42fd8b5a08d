#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "apps/homebrew_cask_index.h"
#include "base/date.h"
#include "platform/bundle_stamp.h"

namespace brisko {

// Where an installed application came from, which also says what would go if
// it were removed. The names are the JSON text.
enum class ApplicationSource {
  bundle,         // a ".app" folder
  flatpakUser,    // a Flatpak application installed for this user
  flatpakSystem,  // a Flatpak application installed system-wide
  appImage,       // a self-contained AppImage file
  webApp,         // a browser-made web application (its desktop entry)
  homeFolder,     // a program unpacked somewhere in the home folder
  brokenEntry,    // a user's desktop entry whose program is gone
  snap,           // a snap package
  system,         // a program of the system's package manager
};

std::string_view applicationSourceName(ApplicationSource source);
std::optional<ApplicationSource> applicationSourceNamed(std::string_view name);

struct InstalledApplication {
  // The path that would go on removal: the bundle, the Flatpak application's
  // folder, the AppImage, the program's folder or the desktop entry (for
  // snaps and system packages, which Brisko never removes, the entry).
  std::string id;
  std::string name;        // display name, without control characters
  std::string bundleName;  // the file name less ".app" (or ".desktop", ".AppImage")
  std::optional<std::string> bundleID;
  std::optional<std::string> version;
  std::optional<std::string> executableName;
  std::optional<std::int64_t> bytes;  // allocated; the only mutable field
  std::optional<Date> lastUsed;       // no service on Linux tells it: always none
  std::optional<HomebrewCaskIndex::Cask> cask;
  std::optional<std::string> officialUninstaller;
  BundleStamp identity;
  std::optional<BundleStamp> infoIdentity;

  ApplicationSource source = ApplicationSource::bundle;
  // Who can remove it ("flatpak", "snap", "dpkg", "root", "the user"), set
  // exactly when Brisko may not.
  std::optional<std::string> managedBy;
  // The dpkg package that owns a system application, when one does.
  std::optional<std::string> package;
  // Where the bytes are measured when that isn't `id` (a Flatpak's active
  // deployment, a snap's image); "-" when nothing is measured (the package
  // manager told the size). Not shown.
  std::string sizePath;

  bool isRemovable() const { return !managedBy.has_value(); }
  const std::string& measuredPath() const { return sizePath.empty() ? id : sizePath; }

  bool operator==(const InstalledApplication&) const = default;
};

// A name fit for display: control and format characters (Cc, Cf) removed,
// ill-formed UTF-8 repaired.
std::string displayableName(std::string_view name);

}  // namespace brisko
