#pragma once

// What every source of tools does alike once it has found one.

#include <string>
#include <vector>

#include "tools/command_line_tool.h"

namespace brisko {

// Sorts `paths` into the tool's commandPaths and takes their last components
// as its commands.
void setCommands(CommandLineTool& tool, std::vector<std::string> paths);

// A tool in a folder that isn't the user's to change can't be removed
// without administrator rights, which Brisko never asks for.
void lockIfNotWritable(CommandLineTool& tool);

}  // namespace brisko
