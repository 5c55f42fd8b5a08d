#pragma once

// The Node installations whose global packages are tools: fnm's, nvm's,
// mise's and asdf's version folders, then the npm prefixes of the user, of
// Homebrew and of the system. Roots are resolved through links and each is
// listed once, so that version aliases (mise's "20", "latest") add nothing.

#include <vector>

#include "tools/command_line_tool.h"
#include "tools/tool_environment.h"

namespace brisko {

struct NodeRuntimes {
  static std::vector<NodeRuntime> list(const ToolEnvironment& environment);
};

}  // namespace brisko
