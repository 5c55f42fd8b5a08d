#include "batteries/system_battery_sources.h"

#include <cmath>

#include "batteries/battery_keys.h"

namespace brisko {
namespace {

constexpr const char* kUPower = "org.freedesktop.UPower";
constexpr const char* kUPowerDevice = "org.freedesktop.UPower.Device";
constexpr std::uint32_t kStateCharging = 1;
constexpr std::uint32_t kTypeBattery = 2;

std::optional<std::uint32_t> smallUnsigned(const DBusProperties& properties,
                                           const std::string& name) {
  const auto value = unsignedProperty(properties, name);
  if (!value || *value > UINT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(*value);
}

// A peripheral: not a power supply of the computer, and present.
bool isPeripheral(const DBusProperties& p) {
  return boolProperty(p, "PowerSupply") == false && boolProperty(p, "IsPresent") == true;
}

std::optional<std::string> keyOf(const UPowerDevice& device) {
  return batteryKey(textProperty(device.properties, "Serial").value_or(""),
                    textProperty(device.properties, "NativePath").value_or(device.path));
}

std::optional<int> percentOf(const DBusProperties& p) {
  const auto percentage = doubleProperty(p, "Percentage");
  if (!percentage) return std::nullopt;
  return upowerPercent(*percentage, smallUnsigned(p, "BatteryLevel"), smallUnsigned(p, "State"));
}

}  // namespace

std::optional<std::vector<UPowerDevice>> readUPowerDevices() {
  const auto connection = DBusConnection::open(BusKind::system);
  if (!connection) return std::nullopt;
  const auto paths =
      connection->objectPaths(kUPower, "/org/freedesktop/UPower", kUPower, "EnumerateDevices");
  if (!paths) return std::nullopt;
  std::vector<UPowerDevice> devices;
  for (const std::string& path : *paths) {
    auto properties = connection->allProperties(kUPower, path.c_str(), kUPowerDevice);
    if (properties) devices.push_back({path, std::move(*properties)});
  }
  return devices;
}

std::optional<DBusObjects> readBlueZObjects(DBusFailure* failure) {
  const auto connection = DBusConnection::open(BusKind::system);
  if (!connection) return std::nullopt;
  return connection->managedObjects("org.bluez", "/", failure);
}

std::vector<BluetoothLEBatteryReading> bluetoothLEReadings(const DBusObjects& objects) {
  std::vector<BluetoothLEBatteryReading> readings;
  for (const auto& [path, interfaces] : objects) {
    const auto device = interfaces.find("org.bluez.Device1");
    const auto battery = interfaces.find("org.bluez.Battery1");
    if (device == interfaces.end() || battery == interfaces.end()) continue;
    if (boolProperty(device->second, "Connected") != true) continue;
    const auto address = textProperty(device->second, "Address");
    const auto percent = unsignedProperty(battery->second, "Percentage");
    if (!address || !percent) continue;
    readings.push_back({normalizedAddress(*address),
                        textProperty(device->second, "Alias").value_or(*address),
                        static_cast<int>(std::min<std::uint64_t>(*percent, 100))});
  }
  return readings;
}

SystemBatterySources::SystemBatterySources(std::string powerSupplyRoot, std::string machineInfoPath)
    : kernel_(std::move(powerSupplyRoot)), machineInfoPath_(std::move(machineInfoPath)) {}

std::map<std::string, RegistryReading> SystemBatterySources::readLevels() {
  const auto devices = readUPowerDevices();
  if (!devices) return kernel_.readLevels();
  std::map<std::string, RegistryReading> levels;
  for (const UPowerDevice& device : *devices) {
    if (!isPeripheral(device.properties)) continue;
    const auto key = keyOf(device);
    const auto percent = percentOf(device.properties);
    if (!key || !percent) continue;
    levels[*key] = {*percent, smallUnsigned(device.properties, "State") == kStateCharging};
  }
  return levels;
}

std::vector<ProfileDevice> SystemBatterySources::readDevices() {
  std::vector<ProfileDevice> named;
  const auto add = [&](ProfileDevice device) {
    // A device listed twice (UPower sees some through two drivers) counts once.
    for (const ProfileDevice& seen : named) {
      if (seen.address == device.address) return;
    }
    named.push_back(std::move(device));
  };
  if (const auto devices = readUPowerDevices()) {
    for (const UPowerDevice& device : *devices) {
      if (!isPeripheral(device.properties)) continue;
      const auto key = keyOf(device);
      if (!key) continue;
      const std::string name = textProperty(device.properties, "Model").value_or(*key);
      const auto type = smallUnsigned(device.properties, "Type").value_or(0);
      add({*key, name, decideKind(name, upowerMinorType(type)), percentOf(device.properties)});
    }
    return named;
  }
  const auto objects = readBlueZObjects();
  if (!objects) return named;
  for (const auto& [path, interfaces] : *objects) {
    const auto device = interfaces.find("org.bluez.Device1");
    if (device == interfaces.end() || boolProperty(device->second, "Connected") != true) continue;
    const auto address = textProperty(device->second, "Address");
    if (!address) continue;
    const std::string name = textProperty(device->second, "Alias").value_or(*address);
    std::optional<std::string> icon = textProperty(device->second, "Icon");
    if (icon && icon->empty()) icon.reset();
    std::optional<int> level;
    if (const auto battery = interfaces.find("org.bluez.Battery1"); battery != interfaces.end()) {
      if (const auto percent = unsignedProperty(battery->second, "Percentage"))
        level = static_cast<int>(std::min<std::uint64_t>(*percent, 1000));
    }
    add({normalizedAddress(*address), name, decideKind(name, icon), level});
  }
  return named;
}

std::optional<RegistryReading> SystemBatterySources::readComputerBattery() {
  const auto devices = readUPowerDevices();
  if (!devices) return kernel_.readComputerBattery();
  double energy = 0, full = 0;
  bool charging = false, any = false;
  for (const UPowerDevice& device : *devices) {
    const DBusProperties& p = device.properties;
    if (smallUnsigned(p, "Type") != kTypeBattery || boolProperty(p, "PowerSupply") != true)
      continue;
    const double now = doubleProperty(p, "Energy").value_or(0);
    const double most = doubleProperty(p, "EnergyFull").value_or(0);
    if (!std::isfinite(now) || !std::isfinite(most) || most <= 0 || now < 0) continue;
    any = true;
    energy += now;
    full += most;
    charging = charging || smallUnsigned(p, "State") == kStateCharging;
  }
  if (!any) return std::nullopt;
  return RegistryReading{static_cast<int>(std::lround(std::min(energy / full, 10.0) * 100)),
                         charging};
}

BatterySources SystemBatterySources::sources() {
  return {this, this, this, computerDisplayName(machineInfoPath_)};
}

}  // namespace brisko
