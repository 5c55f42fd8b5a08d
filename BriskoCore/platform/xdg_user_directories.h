#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brisko {

// The XDG user directories (Desktop, Documents, Music, ... in the user's
// language) from `$XDG_CONFIG_HOME/user-dirs.dirs` (default
// `<home>/.config/user-dirs.dirs`), read afresh at each call. Values of the
// form "$HOME/…" are placed under `home`, absolute ones are taken as they
// are; "$HOME/" alone (a directory switched off) and anything else is left
// out. Standardised absolute paths, in file order; none when the file is
// missing or unreadable.
std::vector<std::string> xdgUserDirectories(const std::string& home);

// The same from the file's text.
std::vector<std::string> parseXdgUserDirectories(std::string_view contents,
                                                 const std::string& home);

}  // namespace brisko
