#pragma once

// The lines of /proc/self/mountinfo that Brisko needs: where each file system
// is mounted and of what type.

#include <string>
#include <string_view>
#include <vector>

namespace brisko {

struct MountEntry {
  std::string mountPoint;      // unescaped
  std::string fileSystemType;  // "ext4", "tmpfs", "fuse.sshfs", ...
};

// The mounts of `mountinfo` in its order; malformed lines are left out.
std::vector<MountEntry> parseMountTable(std::string_view mountinfo);

// A mountinfo path field with its \ooo escapes (blank, tab, line feed,
// backslash) turned back into bytes.
std::string unescapedMountPath(std::string_view field);

}  // namespace brisko
