#pragma once

// The bookkeeping beside a trash folder's `files/`: `info/NAME.trashinfo` for
// each entry and the `directorysizes` cache of folder sizes.

#include <string>

namespace brisko {

inline constexpr const char* kTrashInfoSuffix = ".trashinfo";

// Removes every `.trashinfo` of `infoFolder` whose entry is no longer in
// `filesFolder`.
void removeOrphanedTrashInfo(int filesFolder, int infoFolder);

// Drops the `directorysizes` lines of `trashFolder` whose entry is no longer
// in `filesFolder`; the file is replaced atomically, and only when a line
// went. A missing file stays missing.
void pruneDirectorySizes(int trashFolder, int filesFolder);

// "%2F" and the like turned back into bytes; a stray "%" stays as it is.
std::string percentDecoded(const std::string& text);

}  // namespace brisko
