#pragma once

// The formulae a user asked Homebrew for, read from each prefix's Cellar and
// the install receipts; their dependencies are not tools of their own, but
// say which formulae a removal would leave unneeded.

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/date.h"
#include "tools/command_line_tool.h"
#include "tools/tool_environment.h"

namespace brisko {

struct HomebrewFormulae {
  struct Keg {
    std::string name;
    std::string path;
    std::string version;
    bool onRequest = false;
    std::optional<Date> installed;
    std::set<std::string> dependencies;
  };

  // Prefixes without an executable bin/brew give nothing. A formula that the
  // login shell (`loginShell`, as getpwuid gives it) runs from is locked.
  static std::vector<CommandLineTool> scan(const std::vector<std::string>& prefixes,
                                           const std::optional<std::string>& loginShell);

  // The keg of each formula in `cellar`: the version that PREFIX/opt/NAME
  // links to, else the highest (numeric order) that holds a receipt.
  static std::vector<Keg> kegs(const std::string& prefix);
};

}  // namespace brisko
