#pragma once

// Python programs installed each in a virtual environment of its own by uv
// (`uv tool install`) or pipx, with the commands linked into the user's bin
// folders.

#include <string>
#include <vector>

#include "tools/command_line_tool.h"
#include "tools/tool_environment.h"

namespace brisko {

struct PythonTools {
  static std::vector<CommandLineTool> scan(const ToolEnvironment& environment);
  // The folders where uv and pipx put commands: each of $UV_TOOL_BIN_DIR,
  // $PIPX_BIN_DIR and $XDG_BIN_HOME that is set, then ~/.local/bin.
  static std::vector<std::string> commandFolders(const ToolEnvironment& environment);
};

}  // namespace brisko
