#pragma once

// The battery settings in the settings store. The directory and the ledger
// are nested objects; what doesn't decode reads as empty.

#include <string_view>

#include "batteries/low_battery_policy.h"
#include "settings/settings_store.h"

namespace brisko {

inline constexpr std::string_view kNotifyLowSetting = "battery.notifyLow";
inline constexpr std::string_view kLowThresholdSetting = "battery.lowThreshold";
inline constexpr std::string_view kReadBluetoothLESetting = "battery.readBluetoothLE";
inline constexpr std::string_view kPeripheralDirectorySetting = "battery.peripheralDirectory";
inline constexpr std::string_view kLowLedgerSetting = "battery.lowLedger";

struct BatterySettings {
  bool notifyLow = false;
  int lowThreshold = 30;  // 20, 30 or 40; any other stored value reads as 30
  bool readBluetoothLE = false;
};

BatterySettings readBatterySettings(const SettingsStore& settings);

// The policy with the stored threshold.
LowBatteryPolicy currentLowBatteryPolicy(const SettingsStore& settings);

PeripheralDirectory loadPeripheralDirectory(const SettingsStore& settings);
void savePeripheralDirectory(SettingsStore& settings, const PeripheralDirectory& directory);
LowBatteryLedger loadLowBatteryLedger(const SettingsStore& settings);
void saveLowBatteryLedger(SettingsStore& settings, const LowBatteryLedger& ledger);

}  // namespace brisko
