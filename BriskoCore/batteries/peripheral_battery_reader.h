#pragma once

// The battery list, merged from what four sources returned:
//
// - levels: a key (a normalised Bluetooth address or serial) to a percentage
//   and a charging state, fast but anonymous;
// - named devices: name, key, minor type and levels, slower;
// - the computer's own battery;
// - low-energy readings, handed in by the caller.
//
// A source that fails answers empty; a device with no level anywhere is not
// listed. The merging here is pure; the sources are thin readers of UPower,
// BlueZ and the kernel (see the application library and
// `KernelPowerSupplies`).

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "batteries/peripheral_battery.h"

namespace brisko {

struct RegistryReading {
  int percent = 0;
  bool isCharging = false;
  bool operator==(const RegistryReading&) const = default;
};

struct ProfileDevice {
  std::string address;  // the device's key, normalised
  std::string name;
  PeripheralBattery::Kind kind = PeripheralBattery::Kind::other;
  std::optional<int> main, left, right, caseLevel;
};

class BatteryLevelSource {
 public:
  virtual ~BatteryLevelSource() = default;
  // Key to reading; a later reading of one key replaces an earlier one.
  virtual std::map<std::string, RegistryReading> readLevels() = 0;
};

class NamedDeviceSource {
 public:
  virtual ~NamedDeviceSource() = default;
  virtual std::vector<ProfileDevice> readDevices() = 0;
};

class ComputerBatterySource {
 public:
  virtual ~ComputerBatterySource() = default;
  // The computer's battery (percent not yet clamped), or none when it has no
  // battery or the source fails.
  virtual std::optional<RegistryReading> readComputerBattery() = 0;
};

struct BatterySources {
  BatteryLevelSource* levels = nullptr;
  NamedDeviceSource* named = nullptr;
  ComputerBatterySource* computer = nullptr;
  std::string computerName;  // the computer's line's name
};

namespace PeripheralBatteryReader {

struct FullReading {
  std::vector<PeripheralBattery> devices;
  PeripheralDirectory directory;
};

struct QuickReading {
  std::vector<PeripheralBattery> devices;
  std::vector<std::string> unknown;  // keys that the directory could not name
};

// Every source asked; the named devices fill the directory.
FullReading readFull(const BatterySources& sources,
                     const std::vector<BluetoothLEBatteryReading>& bluetoothLE);

// The levels source alone, named through `directory`; never asks the named
// source.
QuickReading readQuick(const BatterySources& sources, const PeripheralDirectory& directory,
                       const std::vector<BluetoothLEBatteryReading>& bluetoothLE);

}  // namespace PeripheralBatteryReader

// The computer's name: PRETTY_HOSTNAME of `machineInfoPath` (shell-style
// quotes removed), else "This computer".
std::string computerDisplayName(const std::string& machineInfoPath = "/etc/machine-info");

// A list as the command line shows it, one device a line:
// "Computer  This computer  80%, charging", "Earbuds  Buds  40% (L 40%, R 45%)".
std::vector<std::string> batteryListLines(const std::vector<PeripheralBattery>& devices);

// {"id", "name", "kind", "percent", "detail"?, "isCharging"}
Json encodeBattery(const PeripheralBattery& device);

}  // namespace brisko
