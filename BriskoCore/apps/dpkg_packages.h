#pragma once

// Which Debian package owns a file, with its version and installed size, from
// dpkg's database under the catalog's root. One `dpkg-query --search` for all
// the paths and one `dpkg-query --show` for all their packages; the answers
// are kept in a cache file with the stamp of dpkg's `status` file, so that as
// long as no package changed, asking again starts no process.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace brisko {

struct PackageInfo {
  std::string package;  // as dpkg names it, with ":arch" for a multi-arch one
  std::optional<std::string> version;
  std::optional<std::int64_t> bytes;  // Installed-Size, in bytes

  bool operator==(const PackageInfo&) const = default;
};

class DpkgPackages {
 public:
  // `admindir` is dpkg's database folder (/var/lib/dpkg under the root);
  // `cachePath` where the answers are kept ("" to keep none).
  DpkgPackages(std::string admindir, std::string cachePath);

  // The owner of each path, as the system names it; none for a path no
  // package owns or when dpkg's database can't be read.
  std::map<std::string, std::optional<PackageInfo>> owners(const std::vector<std::string>& paths);

  // How many times dpkg-query ran for this object.
  int processesStarted() const { return processesStarted_; }

  static constexpr const char* kQueryPath = "/usr/bin/dpkg-query";

 private:
  std::string admindir_;
  std::string cachePath_;
  int processesStarted_ = 0;
};

}  // namespace brisko
