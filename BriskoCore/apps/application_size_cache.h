#pragma once

// Measured sizes of applications, remembered across runs in
// `application-sizes.json` of Brisko's cache folder. A size counts only while
// the application is still the one that was measured: its stamps must match.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "apps/installed_application.h"

namespace brisko {

class ApplicationSizeCache {
 public:
  // JSON keys as named.
  struct Entry {
    std::int64_t device = 0;
    std::uint64_t inode = 0;
    double modified = 0;
    std::optional<double> infoModified;
    std::int64_t bytes = 0;

    bool operator==(const Entry&) const = default;
  };

  // A cache kept in memory only.
  ApplicationSizeCache() = default;
  // The cache at `path`. A missing, unreadable or damaged file reads as an
  // empty cache; the error is dropped.
  explicit ApplicationSizeCache(std::string path);

  // <cache folder>/application-sizes.json for this home.
  static std::string defaultPath(const std::string& home);

  // The stored size, when device, inode, modification time and the info
  // file's modification time all equal the application's stamps.
  std::optional<std::int64_t> bytes(const InstalledApplication& application);

  // Remembers the application's size under its current stamps.
  void store(const InstalledApplication& application, std::int64_t bytes);

  // Writes the file atomically (its folder created, mode 0700). A failure is
  // dropped: the sizes are measured again next time.
  void save();

  std::map<std::string, Entry> entries();

 private:
  std::optional<std::string> path_;
  std::mutex lock_;
  std::map<std::string, Entry> entries_;  // guarded by lock_
};

}  // namespace brisko
