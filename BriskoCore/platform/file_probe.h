#pragma once

// Small questions about one path on disk: what it is and how many bytes it
// holds. Links are never followed.

#include <cstdint>
#include <optional>
#include <string>

#include "platform/bundle_stamp.h"

namespace brisko {

class FileProbe {
 public:
  enum class Kind { missing = 0, fileOrOther = 1, directory = 2, symlink = 3 };

  static Kind kind(const std::string& path);

  // Device, inode and modification time from lstat (a link is stamped itself,
  // not its target); none when lstat fails.
  static std::optional<BundleStamp> stamp(const std::string& path);

  // Allocated bytes under `path`. A directory is walked with the bulk lister,
  // charging one unit of `allowance` per entry; once the allowance runs out the
  // walk stops with what it has. A symlink, a missing path and a directory that
  // can't be listed give 0; any other item its own allocated size.
  static std::int64_t boundedBytes(const std::string& path, std::int64_t& allowance);

  // Allocated bytes under `path`, a directory's walk spread over the processors.
  static std::int64_t allocatedBytes(const std::string& path);

  static constexpr std::int64_t kDefaultAllowance = 300'000;
};

}  // namespace brisko
