#pragma once

// Measures one entry of a trash folder's `files/` in allocated bytes, as
// `du -sB1 -P` would: every file, folder and link counts its own blocks, a
// link is never followed, and a file with several names inside the entry
// counts once.
//
// `budget` is shared by the whole inventory: each file or folder met takes
// one. When it runs out the entry stops there and is incomplete; so is an
// entry with a part that can't be read. What was counted stands.

#include <cstdint>
#include <string>

namespace brisko {

struct TrashEntrySize {
  std::int64_t bytes = 0;
  bool isComplete = true;
};

TrashEntrySize measureTrashEntry(int filesFolder, const std::string& name, std::int64_t& budget);

}  // namespace brisko
