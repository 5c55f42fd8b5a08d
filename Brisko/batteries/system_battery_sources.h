#pragma once

// The battery sources of a Linux desktop. UPower answers all three roles;
// when it can't be reached, the kernel's power-supply folder gives the levels
// and the computer's battery, and BlueZ's connected devices the names. Each
// read opens its own connections and blocks the calling thread for at most
// a few 2-second time-outs.

#include <string>
#include <vector>

#include "batteries/dbus_client.h"
#include "batteries/kernel_power_supplies.h"
#include "batteries/peripheral_battery_reader.h"

namespace brisko {

// One device as UPower lists it.
struct UPowerDevice {
  std::string path;
  DBusProperties properties;
};

// UPower's devices, none when UPower doesn't answer.
std::optional<std::vector<UPowerDevice>> readUPowerDevices();

// BlueZ's objects, none when BlueZ doesn't answer; `failure` says why.
std::optional<DBusObjects> readBlueZObjects(DBusFailure* failure = nullptr);

// The connected BlueZ devices that offer a battery level, as low-energy
// readings (address normalised).
std::vector<BluetoothLEBatteryReading> bluetoothLEReadings(const DBusObjects& objects);

class SystemBatterySources : public BatteryLevelSource,
                             public NamedDeviceSource,
                             public ComputerBatterySource {
 public:
  explicit SystemBatterySources(std::string powerSupplyRoot = "/sys/class/power_supply",
                                std::string machineInfoPath = "/etc/machine-info");

  std::map<std::string, RegistryReading> readLevels() override;
  std::vector<ProfileDevice> readDevices() override;
  std::optional<RegistryReading> readComputerBattery() override;

  BatterySources sources();

 private:
  KernelPowerSupplies kernel_;
  std::string machineInfoPath_;
};

}  // namespace brisko
