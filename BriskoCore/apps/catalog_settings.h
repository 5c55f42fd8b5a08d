#pragma once

#include <string>
#include <vector>

namespace brisko {

// Where the catalog looks. System folders (/Applications, /usr/share,
// /var/lib/flatpak, /snap, dpkg's database) are read under `root`, so that a
// test can stand a whole system in a temporary folder; paths in the home
// folder are taken as they are.
struct CatalogSettings {
  std::string root = "/";
  std::string home;
  std::string userName;                  // for /media/$USER and /run/media/$USER
  std::string dataHome;                  // $XDG_DATA_HOME
  std::vector<std::string> dataDirs;     // $XDG_DATA_DIRS, each already under root
  std::string flatpakUserDir;            // $FLATPAK_USER_DIR
  std::string flatpakSystemDir;          // $FLATPAK_SYSTEM_DIR, under root
  std::vector<std::string> programPath;  // $PATH, each already under root
  std::string namingLanguage;            // "de-CH", "" for none
  std::string mountinfoPath = "/proc/self/mountinfo";
  std::string sizeCachePath;     // application-sizes.json
  std::string packageCachePath;  // the system packages' answers
  std::string ownExecutable;     // the running program, resolved

  // From the process environment, with the defaults of the XDG Base
  // Directory and Flatpak conventions.
  static CatalogSettings fromEnvironment(const std::string& home, const std::string& root = "/");

  // `path` of the running system as it lies under `root`; paths in the home
  // folder stay as they are.
  std::string underRoot(const std::string& path) const;
  // The system's own spelling of a path under `root` (the root taken off).
  std::string systemPath(const std::string& path) const;
  bool isInHome(const std::string& path) const;
};

}  // namespace brisko
