#include "batteries/battery_settings.h"

namespace brisko {

BatterySettings readBatterySettings(const SettingsStore& settings) {
  BatterySettings read;
  read.notifyLow = settings.boolValue(kNotifyLowSetting).value_or(false);
  const auto threshold = settings.integerValue(kLowThresholdSetting);
  if (threshold == 20 || threshold == 30 || threshold == 40)
    read.lowThreshold = static_cast<int>(*threshold);
  read.readBluetoothLE = settings.boolValue(kReadBluetoothLESetting).value_or(false);
  return read;
}

LowBatteryPolicy currentLowBatteryPolicy(const SettingsStore& settings) {
  LowBatteryPolicy policy;
  policy.threshold = readBatterySettings(settings).lowThreshold;
  return policy;
}

PeripheralDirectory loadPeripheralDirectory(const SettingsStore& settings) {
  const auto value = settings.value(kPeripheralDirectorySetting);
  return value ? decodeDirectory(*value) : PeripheralDirectory{};
}

void savePeripheralDirectory(SettingsStore& settings, const PeripheralDirectory& directory) {
  settings.setValue(kPeripheralDirectorySetting, encodeDirectory(directory));
}

LowBatteryLedger loadLowBatteryLedger(const SettingsStore& settings) {
  const auto value = settings.value(kLowLedgerSetting);
  return value ? decodeLedger(*value) : LowBatteryLedger{};
}

void saveLowBatteryLedger(SettingsStore& settings, const LowBatteryLedger& ledger) {
  settings.setValue(kLowLedgerSetting, encodeLedger(ledger));
}

}  // namespace brisko
