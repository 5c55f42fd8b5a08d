#pragma once

// Reads and empties the user's trash folders directly (the home trash and
// the per-mount ones, see trash_folders.h).
//
// The inventory lists every entry of each `files/` folder, with or without
// its `.trashinfo`, measured by us (`directorysizes` isn't trusted). Emptying
// removes each entry without ever following a link, then its `.trashinfo`,
// then info files left without an entry and their `directorysizes` lines. A
// failing entry keeps its `.trashinfo` and doesn't stop the others.

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "trash/trash_client.h"

namespace brisko {

class DirectTrashClient : public TrashClient {
 public:
  static constexpr std::int64_t kFileBudget = 250000;

  // `dataHome` holds the home trash; `mountTable` is the text of
  // /proc/self/mountinfo (or a test's own), empty for the home trash alone.
  DirectTrashClient(std::string dataHome, std::string mountTable, uid_t uid,
                    std::int64_t fileBudget = kFileBudget);

  // The current user's: `$XDG_DATA_HOME` (else ~/.local/share) and the mounts
  // of /proc/self/mountinfo, read at each call.
  static DirectTrashClient forCurrentUser();

  FinderTrash::Inventory inventory() override;
  void empty() override;

 private:
  std::string mountTable() const;

  std::string dataHome_;
  std::string mountTable_;
  bool readsMountTable_ = false;
  uid_t uid_;
  std::int64_t fileBudget_;
};

}  // namespace brisko
