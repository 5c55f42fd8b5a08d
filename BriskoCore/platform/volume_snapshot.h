#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "protocol/engine_records.h"

namespace brisko {

class VolumeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Capacity and free space of the volume that holds `path`, named by its mount
// point. Available space is what an ordinary user may still write (statvfs's
// f_bavail), which is what a cleanup frees room for. Throws VolumeError with
// the system's words when the path can't be read.
DiskSnapshot volumeSnapshot(const std::string& path);

// The mount point in `mountinfo` (the text of /proc/self/mountinfo) that holds
// `resolvedPath`, an absolute path without links: the longest mount point that
// is the path or one of its ancestors, the later line winning a tie, as later
// mounts cover earlier ones. "/" when nothing else matches.
std::string mountPointHolding(std::string_view mountinfo, const std::string& resolvedPath);

}  // namespace brisko
