#pragma once

// Battery levels of connected Bluetooth devices as BlueZ reports them
// (org.bluez.Battery1), kept current while running: BlueZ's property and
// object changes trigger a fresh read, after which `onChange` is called.
// Runs only while "battery.readBluetoothLE" is on (the owner decides). Lives
// on the main executor; a read blocks it for at most the 2-second time-out.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "batteries/peripheral_battery.h"
#include "store/main_executor.h"

namespace brisko {

class BusWatcher;

class BluetoothLEBatteryMonitor {
 public:
  // `denied` once BlueZ refuses with AccessDenied, `allowed` once it answers.
  enum class Authorization { notDetermined, allowed, denied };

  explicit BluetoothLEBatteryMonitor(MainExecutor& executor);
  ~BluetoothLEBatteryMonitor();

  void start();
  void stop();

  // By address.
  const std::map<std::string, BluetoothLEBatteryReading>& readings() const { return readings_; }
  std::vector<BluetoothLEBatteryReading> readingList() const;
  Authorization authorization() const { return authorization_; }

  std::function<void()> onChange;

 private:
  void refresh();

  MainExecutor& executor_;
  std::map<std::string, BluetoothLEBatteryReading> readings_;
  Authorization authorization_ = Authorization::notDetermined;
  std::shared_ptr<BluetoothLEBatteryMonitor*> self_;
  std::unique_ptr<BusWatcher> watcher_;
};

}  // namespace brisko
