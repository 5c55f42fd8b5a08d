#pragma once

// The kernel's view of the batteries: the entries of a power-supply class
// folder (`/sys/class/power_supply`, a parameter so that a fixture tree can
// stand in). Entries of `type` Battery with `scope` Device are peripherals,
// keyed by `batteryKey` from `serial_number` and the entry's name; those of
// scope System, or without a scope, are the computer's own. Each file is read
// to a page at most; what doesn't read or parse counts as absent.

#include <string>

#include "batteries/peripheral_battery_reader.h"

namespace brisko {

class KernelPowerSupplies : public BatteryLevelSource, public ComputerBatterySource {
 public:
  explicit KernelPowerSupplies(std::string root = "/sys/class/power_supply");

  std::map<std::string, RegistryReading> readLevels() override;
  // One line for all system batteries: summed energy (or charge) now over
  // full when every battery tells both, else the mean of their levels;
  // charging when any says "Charging".
  std::optional<RegistryReading> readComputerBattery() override;

 private:
  std::string root_;
};

}  // namespace brisko
