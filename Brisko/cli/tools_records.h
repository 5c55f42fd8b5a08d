#pragma once

// How `brisko tools` writes a tool as one JSON object, and reads one back
// for `tools remove --stdin`.

#include <nlohmann/json.hpp>

#include <optional>

#include "cli/cli_commands.h"
#include "tools/command_line_tool.h"

namespace brisko::cli {

const char* toolSourceName(ToolSource::Kind kind);
nlohmann::json toolRecord(const CommandLineTool& tool);

int runToolsRemove(CommandCall& call);

}  // namespace brisko::cli
