#pragma once

// The user's trash folders under the freedesktop.org Trash standard 1.0:
// the home trash, `$XDG_DATA_HOME/Trash`, and on each mounted file system
// `$topdir/.Trash/$uid` (when `.Trash` is a real folder with the sticky bit)
// and `$topdir/.Trash-$uid` (when it is a real folder owned by the user).
//
// Pseudo, in-memory, autofs and network file systems are passed over without
// being looked at: a stalled server must not hang the Trash.

#include <sys/types.h>

#include <string>
#include <vector>

#include "trash/open_folder.h"

namespace brisko {

struct TrashFolderLocation {
  enum class Kind {
    home,                // `base`/Trash, `base` the data home resolved
    sharedTopDirectory,  // `base`/.Trash/$uid
    userTopDirectory,    // `base`/.Trash-$uid
  };
  Kind kind = Kind::home;
  std::string base;

  std::string path(uid_t uid) const;
};

// The home trash first, then the candidates of each eligible mount of
// `mountTable` (text of /proc/self/mountinfo), whether they exist or not.
// `dataHome` is resolved here, once: dotfile managers often link it.
std::vector<TrashFolderLocation> trashFolderLocations(const std::string& dataHome,
                                                      const std::string& mountTable);

// Whether a mount of this type may hold a trash folder worth reading.
bool isTrashableFileSystem(const std::string& type);

// Opens the trash folder of `location`, never following a link from `base`
// down, with the checks of the freedesktop.org Trash standard. Invalid when
// it is missing or fails them; errno then says why (ELOOP for a link, EPERM
// for a failed check).
OpenFolder openTrashFolder(const TrashFolderLocation& location, uid_t uid);

}  // namespace brisko
