#pragma once

// Allocated sizes of a batch of paths: directories are handed to the system
// `du` in one run, and whatever it leaves unanswered is measured by FileProbe.

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace brisko {

class DiskUsage {
 public:
  // One key for each distinct input path. Symlinks and paths that can't be
  // stated give 0. Never fails as a whole; after a time-out of `du` the
  // remaining directories are walked here, for as long as that takes.
  static std::map<std::string, std::int64_t> allocatedBytes(const std::vector<std::string>& paths,
                                                            std::chrono::seconds timeout);

  // `du -skP -- <directories>`, parsed; may be empty or miss keys, and may
  // hold keys that were not asked for.
  static std::map<std::string, std::int64_t> runDu(const std::vector<std::string>& directories,
                                                   std::chrono::seconds timeout);

  static constexpr const char* kDuPath = "/usr/bin/du";
};

}  // namespace brisko
