#pragma once

// What the command line shows for the batteries: one full read of the
// system's sources (low-energy readings too when "battery.readBluetoothLE" is
// on), as lines ("Mouse  Office Mouse  8%") or as one JSON array on one line.
// Blocks for as long as the sources take (a few 2-second time-outs at most).

#include <string>
#include <vector>

#include "settings/settings_store.h"

namespace brisko {

std::vector<std::string> readBatteryList(
    const SettingsStore& settings, bool json,
    const std::string& powerSupplyRoot = "/sys/class/power_supply");

// One check with notices, as `brisko batteries --check` runs it: the
// monitor's check with the stored threshold, ledger and directory, each
// device that is low posted to the notification server. Returns the list it
// saw, as lines. Runs a main executor of its own on the calling thread.
std::vector<std::string> checkBatteriesOnce(
    SettingsStore& settings, const std::string& powerSupplyRoot = "/sys/class/power_supply");

}  // namespace brisko
