#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rules/running_process.h"

namespace brisko {

// The processes of this machine, for the guards that keep a cleanup away from
// a running application. On Linux: the numeric entries of /proc, each with the
// target of /proc/PID/exe or, where that can't be read (another user's
// process, a kernel thread), the first word of /proc/PID/cmdline.
struct ProcessInventory {
  // None when /proc itself can't be listed: guards then fail closed. A process
  // that vanishes while it is read is left out. A Flatpak process's path gets
  // "/flatpak/app/<application>" in front, a Snap process's "/snap/<name>"
  // (unless it already runs from there); the name stays the executable's. One
  // of our own processes that runs from /app/ without telling its Flatpak
  // application makes the whole list none, since its guard can't be told.
  static RunningProcesses snapshot();

  // The same, from another process table root (tests use a fake /proc).
  static RunningProcesses snapshot(const std::string& procRoot);

  // True when a process's name equals one of `names` exactly or its path
  // contains one of `fragments`; always true when the list is absent, since an
  // unknown process list must block.
  static bool matches(const std::vector<std::string>& names,
                      const std::vector<std::string>& fragments, const RunningProcesses& processes);
};

}  // namespace brisko
