#pragma once

#include <optional>
#include <string>

#include "apps/catalog_settings.h"

namespace brisko {

// The folder that holds a program unpacked in the home folder, when it is the
// application's own: the program's folder (its parent when that is "bin"),
// named after the application (a form of `name` or the last part of the
// desktop-file id, a version tail allowed) and not one of the home's base
// folders (the home itself, ~/.local and its children, ~/bin, ~/opt,
// ~/Applications, the XDG user folders). None otherwise: then nothing may be
// removed on the program's behalf.
std::optional<std::string> homeProgramFolder(const std::string& program, const std::string& name,
                                             const std::string& desktopID,
                                             const CatalogSettings& settings);

}  // namespace brisko
