#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "apps/installed_application.h"

namespace brisko {

// Reads one ".app" bundle into a record: its Info.plist (or, for a wrapped
// application, that of the ".app" in its "Wrapper" folder), its name and its
// stamps. None when the bundle is gone, lies in a system tree once its links
// are resolved, or its Info.plist is missing, damaged or holds a value of the
// wrong type. `root` is taken off the resolved path before the system trees
// are compared.
std::optional<InstalledApplication> readBundle(const std::string& path,
                                               const std::string& root = "/");

// The file name less a final ".app" in any case.
std::string bundleNameOf(std::string_view path);

// The display name from the candidates: `displayName`, else `name`, else the
// bundle name; an empty or slash-led choice becomes the bundle name, and so
// does a choice that is the bundle name plus only a version-like tail ("Foo
// 2.1" for "Foo").
std::string bundleDisplayName(const std::optional<std::string>& displayName,
                              const std::optional<std::string>& name,
                              const std::string& bundleName);

}  // namespace brisko
