// `brisko batteries`: the computer's and each wireless device's battery
// level, from UPower, else the kernel and BlueZ; `--check` runs one
// low-battery check and posts a notice for each device that runs low.

#include "batteries/battery_list.h"
#include "cli/cli_commands.h"
#include "settings/settings_store.h"

namespace brisko::cli {

int runBatteries(CommandCall& call) {
  if (!call.arguments.operands.empty())
    throw UsageError("batteries takes no operands, not \u2018" + call.arguments.operands.front() +
                     "\u2019");
  const bool json = call.arguments.has("json");
  const bool check = call.arguments.has("check");
  if (json && check) throw UsageError("--check prints lines only; leave out --json");
  SettingsStore settings(SettingsStore::defaultPath());
  const std::vector<std::string> lines =
      check ? checkBatteriesOnce(settings) : readBatteryList(settings, json);
  if (lines.empty() && !json) call.console.write("No batteries found.\n");
  for (const std::string& line : lines)
    call.console.write(line + "\n");
  return kExitSuccess;
}

}  // namespace brisko::cli
