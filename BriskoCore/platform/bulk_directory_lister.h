#pragma once

// Reads one directory in as few kernel calls as the system allows: every name
// with its kind, allocated size, modification time and whether its blocks may
// be shared with another file. The size walkers sit on this.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/date.h"

namespace brisko {

struct BulkDirectoryEntry {
  enum class Kind { directory, file, symlink, other };

  std::string name;  // leaf name, as the file system holds it (not repaired)
  Kind kind = Kind::other;
  // Allocated bytes; non-zero only for a file.
  std::int64_t allocatedBytes = 0;
  // Whole seconds. Known for files (and for entries whose kind needed a stat);
  // directories and links are typed from the listing alone and carry none.
  std::optional<Date> modificationDate;
  // Files only: the link count is above 1, so the blocks may be counted twice.
  bool mayShareStorage = false;

  bool operator==(const BulkDirectoryEntry&) const = default;
};

class BulkDirectoryLister {
 public:
  struct Failure {
    enum class Kind { failed, permissionDenied };
    Kind kind = Kind::failed;
    int errorNumber = 0;  // errno; EACCES or EPERM for permissionDenied

    bool operator==(const Failure&) const = default;
  };

  using Result = std::variant<std::vector<BulkDirectoryEntry>, Failure>;

  // The entries in the order the kernel gives them, without "." and "..", or a
  // failure: a listing is whole or it is nothing. The path itself is opened
  // without following a symbolic link, and no entry is ever followed. A name
  // that vanishes between the read of the directory and its stat is left out.
  // Safe to call from many threads at once.
  static Result list(const std::string& path);

  // The same listing written over `slots`, whose first `count` entries are the
  // result (0 on failure). Reusing one vector from directory to directory
  // keeps its names' storage, which spares an allocation per name on a walk.
  static std::optional<Failure> listInto(const std::string& path,
                                         std::vector<BulkDirectoryEntry>& slots, size_t& count);
  // The same for the folder open at `folder`, which walks open relative to
  // its parent; the descriptor stays the caller's, read to its end.
  static std::optional<Failure> listOpenInto(int folder, std::vector<BulkDirectoryEntry>& slots,
                                             size_t& count);

  // The same contract through opendir/readdir and one fstatat per name, for
  // when list() fails for a reason other than permission. It cannot see
  // sharing: mayShareStorage is always false.
  static Result listSlowly(const std::string& path);
  static Result listOpenSlowly(int folder);

  static Failure failureFromErrno(int errorNumber);
};

}  // namespace brisko
