#include "batteries/battery_list.h"

#include "batteries/battery_settings.h"
#include "batteries/low_battery_notification_center.h"
#include "batteries/peripheral_battery_monitor.h"
#include "batteries/system_battery_sources.h"
#include "store/manual_executor.h"

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

std::vector<std::string> checkBatteriesOnce(SettingsStore& settings,
                                            const std::string& powerSupplyRoot) {
  SystemBatterySources system(powerSupplyRoot);
  std::vector<BluetoothLEBatteryReading> bluetoothLE;
  if (readBatterySettings(settings).readBluetoothLE) {
    if (const auto objects = readBlueZObjects()) bluetoothLE = bluetoothLEReadings(*objects);
  }
  ManualExecutor executor;
  LowBatteryNotificationCenter centre(executor);
  PeripheralBatteryMonitor::Probes probes{
      [&](const PeripheralDirectory& directory, const std::vector<BluetoothLEBatteryReading>& le) {
        return PeripheralBatteryReader::readQuick(system.sources(), directory, le);
      },
      [&](const std::vector<BluetoothLEBatteryReading>& le) {
        return PeripheralBatteryReader::readFull(system.sources(), le);
      }};
  PeripheralBatteryMonitor monitor(
      executor, probes, [&] { return currentLowBatteryPolicy(settings); },
      [&] { return bluetoothLE; }, [&](const PeripheralBattery& device) { centre.post(device); },
      settings);
  std::optional<std::vector<std::string>> lines;
  executor.post([&] {
    monitor.check(
        [&](const std::vector<PeripheralBattery>& devices) { lines = batteryListLines(devices); });
  });
  executor.runUntil([&] { return lines.has_value(); });
  return lines.value_or(std::vector<std::string>{});
}

}  // namespace brisko
