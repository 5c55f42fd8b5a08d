#pragma once

// The crates `cargo install` put in the Cargo home, from its manifest
// .crates2.json: one tool per crate, its binaries as commands.

#include <string>
#include <vector>

#include "tools/command_line_tool.h"
#include "tools/tool_environment.h"

namespace brisko {

struct CargoInstalls {
  // $CARGO_HOME, else ~/.cargo.
  static std::string cargoHome(const ToolEnvironment& environment);
  static std::vector<CommandLineTool> scan(const ToolEnvironment& environment);
};

}  // namespace brisko
