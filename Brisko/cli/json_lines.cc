#include "cli/json_lines.h"

#include <set>
#include <string>

namespace brisko::cli {

RecordingEngineClient::Recorder jsonLinePrinter(Console& console,
                                                std::initializer_list<std::string_view> commands) {
  return [&console, printed = std::set<std::string_view>(commands)](std::string_view command,
                                                                    const std::string& json) {
    if (!printed.contains(command)) return;
    try {
      console.write(json + "\n");
    } catch (const OutputClosed&) {
      // The console stays closed; the command reports it once at its end.
    }
  };
}

}  // namespace brisko::cli
