#pragma once

// The inventory of command-line tools: every Node runtime's global packages
// in the runtimes' order, then Homebrew's formulae, Cargo's crates and the
// Python tools of uv and pipx. It reads folders and manifests only and
// starts no process, so it is quick and changes nothing.

#include "tools/command_line_tool.h"
#include "tools/tool_environment.h"

namespace brisko {

ToolInventory readToolInventory(const ToolEnvironment& environment);

}  // namespace brisko
