// `brisko space`: the measured tree of the home folder, read from the engine
// client's space stream (or, with --cached, from the stored tree).

#include "cli/cli_commands.h"
#include "cli/cli_render.h"
#include "engine/bundled_engine_client.h"
#include "space/space_cache_store.h"
#include "text/app_texts.h"

namespace brisko::cli {

namespace {

std::string spaceProgressLine(const SpaceScanProgress& progress) {
  std::string line = "Measuring " + std::to_string(progress.completedLocations) + " of " +
                     std::to_string(progress.totalLocations) + " locations";
  if (progress.currentTitle) line += ": " + AppText::engineText(*progress.currentTitle);
  return line;
}

}  // namespace

int runSpace(CommandCall& call) {
  const ParsedArguments& arguments = call.arguments;
  Console& console = call.console;
  if (!arguments.operands.empty())
    throw UsageError("space takes no operands, not \u2018" + arguments.operands.front() + "\u2019");
  const int depth = parseCount("depth", arguments.value("depth").value_or("2"), 1, 10);
  const bool json = arguments.has("json");

  if (arguments.has("cached")) {
    const auto envelope = SpaceCacheStore::forHome(homeFolder()).load();
    if (!envelope) {
      console.error("no stored space tree; \u2018brisko space\u2019 measures one");
      return kExitFailure;
    }
    console.write(json ? encodeJson(envelope->report) + "\n"
                       : spaceText(envelope->report, depth, console));
    return kExitSuccess;
  }

  BundledEngineClient engine;
  EventStream<SpaceEvent> stream = engine.scanSpace(false);
  std::optional<SpaceReport> report;
  // A closed output throws out of the loop; dropping the stream then stops
  // the engine's walk.
  while (auto event = stream.next()) {
    if (event->protocolVersion != EngineProtocol::version)
      throw EngineClientError::protocolMismatch(EngineProtocol::version, event->protocolVersion);
    if (json) console.write(encodeJson(*event) + "\n");
    if (event->progress) console.progress(spaceProgressLine(*event->progress));
    if (event->report) report = std::move(event->report);
  }
  console.clearProgress();
  if (!report) throw std::runtime_error("the space scan ended without its tree");
  if (!json) console.write(spaceText(*report, depth, console));
  return kExitSuccess;
}

}  // namespace brisko::cli
