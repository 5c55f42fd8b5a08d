#pragma once

// The application's battery section: the list the battery pane and the tray
// show, and the low-battery monitor, which runs while "battery.notifyLow" is
// on. The low-energy readings of BlueZ are followed while
// "battery.readBluetoothLE" is on. Lives on the main executor; the settings
// are read from the settings store at each change, so another window or
// `brisko` changing them is seen at the next `applySettings`.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "batteries/battery_settings.h"
#include "batteries/bluetooth_le_battery_monitor.h"
#include "batteries/low_battery_notification_center.h"
#include "batteries/peripheral_battery_monitor.h"
#include "batteries/system_battery_sources.h"
#include "store/worker_threads.h"

namespace brisko {

// Where the kernel's batteries and the computer's name are read; tests point
// them at fixtures.
struct BatteryPlaces {
  std::string powerSupplyRoot = "/sys/class/power_supply";
  std::string machineInfoPath = "/etc/machine-info";
};

class BatterySection {
 public:
  BatterySection(MainExecutor& executor, SettingsStore& settings, BatteryPlaces places = {},
                 BatteryMonitorTiming timing = {});
  ~BatterySection();
  BatterySection(const BatterySection&) = delete;
  BatterySection& operator=(const BatterySection&) = delete;

  // Starts or stops the monitor and the low-energy readings to match the
  // stored settings. Call once at start, and after the settings changed
  // elsewhere.
  void applySettings();

  // Store the setting, then apply it. A threshold other than 20, 30 or 40
  // is refused with std::invalid_argument. Throw std::system_error when the
  // settings file can't be written.
  void setNotifyLow(bool on);
  void setLowThreshold(int percent);
  void setReadBluetoothLE(bool on);

  // Reads the batteries now (the pane's Refresh) and updates `devices`.
  // While the monitor runs, this is one of its checks and may post notices;
  // otherwise it is a plain read, which marks nothing as notified.
  void refresh();

  const std::vector<PeripheralBattery>& devices() const { return devices_; }
  const BatterySettings& settings() const { return current_; }
  bool isMonitoring() const { return monitor_.isRunning(); }
  LowBatteryNotificationCenter::Authorization notificationAuthorization() const {
    return centre_.authorization();
  }

  // The list, the settings or the authorization changed.
  std::function<void()> onChange;
  // A notice was clicked: show the battery pane.
  std::function<void()> onOpen;

 private:
  void changed();
  void setDevices(std::vector<PeripheralBattery> devices);

  MainExecutor& executor_;
  SettingsStore& settingsStore_;
  SystemBatterySources sources_;
  BatterySettings current_;
  std::vector<PeripheralBattery> devices_;
  LowBatteryNotificationCenter centre_;
  BluetoothLEBatteryMonitor bluetoothLE_;
  bool followsBluetoothLE_ = false;
  bool centreStarted_ = false;
  PeripheralBatteryMonitor monitor_;
  // Last: joined first, before what the reads use goes.
  std::shared_ptr<BatterySection*> self_ = std::make_shared<BatterySection*>(this);
  WorkerThreads readers_;
};

}  // namespace brisko
