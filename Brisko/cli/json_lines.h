#pragma once

// `--json`: the engine's records of the named commands, one object a line on
// standard output, as the records pass through the engine client.

#include <initializer_list>
#include <string_view>

#include "cli/console.h"
#include "cli/recording_engine.h"

namespace brisko::cli {

// A closed output stops the printing; the command sees it on the console.
RecordingEngineClient::Recorder jsonLinePrinter(Console& console,
                                                std::initializer_list<std::string_view> commands);

}  // namespace brisko::cli
