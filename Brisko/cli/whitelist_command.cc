// `brisko whitelist`: list, add to and remove from the user's whitelist, with
// the store's own validation.

#include <algorithm>

#include "cli/cli_commands.h"
#include "safety/whitelist_store.h"

namespace brisko::cli {

int runWhitelist(CommandCall& call) {
  const std::vector<std::string>& operands = call.arguments.operands;
  Console& console = call.console;
  const std::string home = homeFolder();

  if (operands.empty()) {
    for (const WhitelistEntry& entry : WhitelistStore::entries(home)) {
      if (call.arguments.has("json"))
        console.write(encodeJsonText(Json{
                          {"pattern", entry.pattern},
                          {"source", entry.source == WhitelistEntrySource::default_ ? "default"
                                                                                    : "custom"}}) +
                      "\n");
      else
        console.write(entry.pattern +
                      (entry.source == WhitelistEntrySource::default_ ? "  (default)" : "") + "\n");
    }
    return kExitSuccess;
  }
  const std::string& action = operands.front();
  if ((action != "add" && action != "remove") || operands.size() != 2)
    throw UsageError(
        "whitelist takes nothing, \u2018add PATTERN\u2019 or \u2018remove PATTERN\u2019");
  const std::string& pattern = operands[1];
  if (action == "add") {
    try {
      WhitelistStore::add(pattern, home);
    } catch (const WhitelistValidationError& refusal) {
      console.error(refusal.what());
      return kExitFailure;
    }
    console.write("Added \u2018" + WhitelistStore::validate(pattern, home) +
                  "\u2019; it counts from the next scan.\n");
    return kExitSuccess;
  }
  const std::string key = WhitelistStore::canonicalKey(pattern, home);
  const auto entries = WhitelistStore::entries(home);
  const bool listed = std::any_of(entries.begin(), entries.end(), [&](const WhitelistEntry& entry) {
    return WhitelistStore::canonicalKey(entry.pattern, home) == key;
  });
  if (!listed) {
    console.error("\u2018" + pattern + "\u2019 is not in the whitelist");
    return kExitFailure;
  }
  WhitelistStore::remove(pattern, home);
  console.write("Removed \u2018" + pattern + "\u2019; it counts from the next scan.\n");
  return kExitSuccess;
}

}  // namespace brisko::cli
