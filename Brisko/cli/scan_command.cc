// `brisko scan`: the findings in words, or the engine's events with --json.

#include "cli/cli_commands.h"
#include "cli/cli_render.h"
#include "cli/cli_session.h"
#include "cli/json_lines.h"

namespace brisko::cli {

int runScan(CommandCall& call) {
  if (!call.arguments.operands.empty())
    throw UsageError("scan takes no operands, not \u2018" + call.arguments.operands.front() +
                     "\u2019");
  const bool json = call.arguments.has("json");
  CliSessionOptions options;
  if (call.arguments.has("exclude-installers")) options.scansInstallers = false;
  if (json) options.recorder = jsonLinePrinter(call.console, {"scan-stream"});
  CliSession session(call.console, std::move(options));
  session.scan();
  if (call.console.isClosed()) throw OutputClosed();
  if (!json) call.console.write(scanText(session.store(), call.console));
  return kExitSuccess;
}

}  // namespace brisko::cli
