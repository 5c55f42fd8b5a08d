#include "batteries/battery_list.h"

#include "batteries/battery_settings.h"
#include "batteries/system_battery_sources.h"

namespace brisko {

std::vector<std::string> readBatteryList(const SettingsStore& settings, bool json,
                                         const std::string& powerSupplyRoot) {
  SystemBatterySources system(powerSupplyRoot);
  std::vector<BluetoothLEBatteryReading> bluetoothLE;
  if (readBatterySettings(settings).readBluetoothLE) {
    if (const auto objects = readBlueZObjects()) bluetoothLE = bluetoothLEReadings(*objects);
  }
  const auto reading = PeripheralBatteryReader::readFull(system.sources(), bluetoothLE);
  if (!json) return batteryListLines(reading.devices);
  Json list = Json::array();
  for (const PeripheralBattery& device : reading.devices)
    list.push_back(encodeBattery(device));
  return {list.dump()};
}

}  // namespace brisko
