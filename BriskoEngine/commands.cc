// The command table of the engine: one row per command word.

#include "base/version.h"
#include "cleanup_commands.h"
#include "engine_command.h"
#include "platform/volume_snapshot.h"
#include "protocol/engine_protocol.h"
#include "protocol/engine_records.h"

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

}  // namespace

const std::vector<EngineCommand>& engineCommands() {
  static const std::vector<EngineCommand> commands{
      {"capabilities", {}, capabilities},
      {"overview", {}, overview},
      {"create-plan", {}, createPlan},
      {"execute-plan", {}, executePlan},
  };
  return commands;
}

}  // namespace brisko::engine
