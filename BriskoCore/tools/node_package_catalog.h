#pragma once

// The global npm packages of one Node runtime, with the commands its bin
// folder links to them. npm itself and corepack belong to the runtime and
// are never listed.

#include <vector>

#include "tools/command_line_tool.h"

namespace brisko {

struct NodePackageCatalog {
  static std::vector<CommandLineTool> packages(const NodeRuntime& runtime);
};

}  // namespace brisko
