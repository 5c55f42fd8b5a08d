#pragma once

#include <map>
#include <string>
#include <vector>

namespace brisko {

// Which bundles came from a Homebrew cask. Casks are a macOS affair: on Linux
// there is no Caskroom of applications, so the index is always empty and no
// record carries a cask.
struct HomebrewCaskIndex {
  struct Cask {
    std::string token;
    std::string brewPath;

    bool operator==(const Cask&) const = default;
  };

  std::map<std::string, Cask> byAppName;  // bundle file name → cask
  std::vector<std::string> caskrooms;

  static HomebrewCaskIndex load() { return {}; }
};

}  // namespace brisko
