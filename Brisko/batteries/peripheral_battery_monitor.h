#pragma once

// Looks at the batteries from time to time and hands each device that has
// run low to `deliver`, once (see LowBatteryPolicy). A check runs at start,
// then every `loopInterval`, on wake from sleep (logind's
// PrepareForSleep(false)) and after a burst of power-source changes has been
// quiet for `debounce` (UPower's DeviceAdded, DeviceRemoved and
// PropertiesChanged).
//
// Everything but the two probes runs on the main executor; the probes run
// on worker threads and hand back values. The directory and the ledger live
// in the settings store.

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "base/date.h"
#include "batteries/low_battery_policy.h"
#include "batteries/peripheral_battery_reader.h"
#include "settings/settings_store.h"
#include "store/main_executor.h"
#include "store/worker_threads.h"

namespace brisko {

class BusWatcher;

// The monitor's clocks; tests shorten them and fix the date.
struct BatteryMonitorTiming {
  std::chrono::milliseconds loopInterval{std::chrono::seconds(600)};
  std::chrono::milliseconds debounce{std::chrono::seconds(2)};
  std::function<Date()> now = currentDate;
};

class PeripheralBatteryMonitor {
 public:
  struct Probes {
    std::function<PeripheralBatteryReader::QuickReading(
        const PeripheralDirectory&, const std::vector<BluetoothLEBatteryReading>&)>
        quick;
    std::function<PeripheralBatteryReader::FullReading(
        const std::vector<BluetoothLEBatteryReading>&)>
        full;
  };

  using Timing = BatteryMonitorTiming;

  PeripheralBatteryMonitor(MainExecutor& executor, Probes probes,
                           std::function<LowBatteryPolicy()> policy,
                           std::function<std::vector<BluetoothLEBatteryReading>()> bluetoothLE,
                           std::function<void(const PeripheralBattery&)> deliver,
                           SettingsStore& defaults, Timing timing = {});
  ~PeripheralBatteryMonitor();

  // On the executor. `start` does nothing while running.
  void start();
  void stop();
  bool isRunning() const { return running_; }

  // One check now, outside the loop; `done` gets what it saw.
  void check(std::function<void(const std::vector<PeripheralBattery>&)> done = {});

  // Called after each check with the devices it saw.
  std::function<void(const std::vector<PeripheralBattery>&)> onDevices;

 private:
  struct Shared;
  void scheduleLoop(std::uint64_t generation);
  void wokeUp();
  void powerSourceChanged();
  void finish(std::vector<PeripheralBattery> devices, const LowBatteryPolicy& policy,
              const std::function<void(const std::vector<PeripheralBattery>&)>& done);

  MainExecutor& executor_;
  Probes probes_;
  std::function<LowBatteryPolicy()> policy_;
  std::function<std::vector<BluetoothLEBatteryReading>()> bluetoothLE_;
  std::function<void(const PeripheralBattery&)> deliver_;
  SettingsStore& defaults_;
  Timing timing_;

  bool running_ = false;
  std::uint64_t loopGeneration_ = 0;      // a loop task of an older generation ends
  std::uint64_t debounceGeneration_ = 0;  // likewise for the debounce
  std::shared_ptr<PeripheralBatteryMonitor*> self_;
  std::unique_ptr<BusWatcher> watcher_;
  WorkerThreads workers_;  // last: joined first, before anything they report to goes
};

}  // namespace brisko
