#pragma once

#include <optional>
#include <string>

namespace brisko {

// The user's home folder: $HOME when it is set and absolute, else the entry of
// the password database. Trailing slashes are dropped ("/" stays "/").
// None when neither source gives an absolute path.
std::optional<std::string> currentHomeDirectory();

// $XDG_DATA_HOME/brisko when that is absolute, else <home>/.local/share/brisko:
// where plans, receipts and the space cache live.
std::string briskoDataDirectory(const std::string& home);

// $XDG_CACHE_HOME/brisko when that is absolute, else <home>/.cache/brisko.
std::string briskoCacheDirectory(const std::string& home);

}  // namespace brisko
