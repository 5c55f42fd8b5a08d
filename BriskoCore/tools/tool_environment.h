#pragma once

// Where the package managers keep their things: the home folder, the
// variables that move their folders, the login shell and the root under which
// system prefixes are read. The inventory reads nothing of the process
// directly, so that a test can give it a home of its own and never the
// machine's /usr.

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace brisko {

struct ToolEnvironment {
  std::string home;
  std::map<std::string, std::string> variables;  // an empty value counts as unset
  std::optional<std::string> loginShell;         // pw_shell
  std::string systemRoot = "/";

  // This process's: $HOME's folder, its environment and getpwuid's shell.
  static ToolEnvironment current(const std::string& home);

  std::optional<std::string> variable(const std::string& name) const;
  // The variable when set, else `home` followed by `fallbackBelowHome`.
  std::string folder(const std::string& name, const std::string& fallbackBelowHome) const;
  // $XDG_DATA_HOME (or ~/.local/share) followed by `below`.
  std::string dataFolder(const std::string& below) const;
  std::string configFolder(const std::string& below) const;
  // A system path such as "/usr/local" under systemRoot.
  std::string system(const std::string& path) const;

  // Homebrew's prefixes in the order they are tried: Linux's own before the
  // others.
  std::vector<std::string> homebrewPrefixes() const;
};

}  // namespace brisko
