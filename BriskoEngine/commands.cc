// The command table of the engine: one row per command word.

#include <iostream>

#include "base/version.h"
#include "cleanup_commands.h"
#include "engine_command.h"
#include "platform/termination_signal.h"
#include "platform/volume_snapshot.h"
#include "protocol/engine_protocol.h"
#include "protocol/engine_records.h"
#include "rules/scan_stream_command.h"
#include "space/space_stream_command.h"

namespace brisko::engine {

namespace {

void capabilities(CommandContext& context) {
  EngineCapabilities answer;
  answer.protocolVersion = EngineProtocol::version;
  answer.engineVersion = kBriskoVersion;
  for (const auto& command : engineCommands())
    answer.commands.emplace_back(command.name);
  context.output.writeDocument(answer);
}

void overview(CommandContext& context) {
  context.output.writeDocument(volumeSnapshot(context.homeDirectory()));
}

void scanStream(CommandContext& context) {
  runScanStream(
      context.homeDirectory(), !context.hasFlag("--exclude-installers"),
      [&](const ScanEvent& event) { context.output.writeLine(event); }, &terminationFlag());
}

// The tree is written node by node rather than built as one JSON value: a
// large home's tree would otherwise be held twice in memory.
void spaceStream(CommandContext& context) {
  SpaceStreamOptions options;
  options.incremental = context.hasFlag("--incremental");
  runSpaceStream(
      context.homeDirectory(), options,
      [&](const SpaceEvent& event) { context.output.writeRaw(encodeSpaceEvent(event) + "\n"); },
      std::cerr);
}

}  // namespace

const std::vector<EngineCommand>& engineCommands() {
  static const std::vector<EngineCommand> commands{
      {"capabilities", {}, capabilities},
      {"overview", {}, overview},
      {"scan-stream", {"--exclude-installers"}, scanStream},
      {"create-plan", {}, createPlan},
      {"execute-plan", {}, executePlan},
      {"space-stream", {"--incremental"}, spaceStream},
  };
  return commands;
}

}  // namespace brisko::engine
