#include "batteries/peripheral_battery_monitor.h"

#include <systemd/sd-bus.h>

#include "batteries/battery_settings.h"
#include "batteries/dbus_client.h"

namespace brisko {

PeripheralBatteryMonitor::PeripheralBatteryMonitor(
    MainExecutor& executor, Probes probes, std::function<LowBatteryPolicy()> policy,
    std::function<std::vector<BluetoothLEBatteryReading>()> bluetoothLE,
    std::function<void(const PeripheralBattery&)> deliver, SettingsStore& defaults, Timing timing)
    : executor_(executor),
      probes_(std::move(probes)),
      policy_(std::move(policy)),
      bluetoothLE_(std::move(bluetoothLE)),
      deliver_(std::move(deliver)),
      defaults_(defaults),
      timing_(std::move(timing)),
      self_(std::make_shared<PeripheralBatteryMonitor*>(this)) {}

PeripheralBatteryMonitor::~PeripheralBatteryMonitor() {
  watcher_.reset();
  *self_ = nullptr;
}

void PeripheralBatteryMonitor::start() {
  if (running_) return;
  running_ = true;
  std::weak_ptr<PeripheralBatteryMonitor*> weak = self_;
  MainExecutor* executor = &executor_;
  const auto onExecutor = [weak, executor](void (PeripheralBatteryMonitor::*action)()) {
    executor->post([weak, action] {
      if (const auto self = weak.lock(); self && *self && (*self)->running_) ((*self)->*action)();
    });
  };
  std::vector<std::pair<std::string, BusWatcher::Handler>> matches;
  matches.emplace_back(
      "type='signal',sender='org.freedesktop.login1',interface='org.freedesktop.login1.Manager',"
      "member='PrepareForSleep'",
      [onExecutor](sd_bus_message* message) {
        int sleeping = 1;
        if (sd_bus_message_read_basic(message, 'b', &sleeping) > 0 && !sleeping)
          onExecutor(&PeripheralBatteryMonitor::wokeUp);
      });
  for (const char* rule :
       {"type='signal',sender='org.freedesktop.UPower',interface='org.freedesktop.UPower',"
        "member='DeviceAdded'",
        "type='signal',sender='org.freedesktop.UPower',interface='org.freedesktop.UPower',"
        "member='DeviceRemoved'",
        "type='signal',sender='org.freedesktop.UPower',"
        "interface='org.freedesktop.DBus.Properties',member='PropertiesChanged',"
        "path_namespace='/org/freedesktop/UPower'"}) {
    matches.emplace_back(rule, [onExecutor](sd_bus_message*) {
      onExecutor(&PeripheralBatteryMonitor::powerSourceChanged);
    });
  }
  watcher_ = std::make_unique<BusWatcher>(BusKind::system, std::move(matches));
  scheduleLoop(++loopGeneration_);
}

void PeripheralBatteryMonitor::stop() {
  if (!running_) return;
  running_ = false;
  ++loopGeneration_;
  ++debounceGeneration_;
  watcher_.reset();
}

void PeripheralBatteryMonitor::scheduleLoop(std::uint64_t generation) {
  check();
  std::weak_ptr<PeripheralBatteryMonitor*> weak = self_;
  executor_.postAfter(timing_.loopInterval, [weak, generation] {
    const auto self = weak.lock();
    if (!self || !*self || (*self)->loopGeneration_ != generation) return;
    (*self)->scheduleLoop(generation);
  });
}

void PeripheralBatteryMonitor::wokeUp() {
  check();
}

void PeripheralBatteryMonitor::powerSourceChanged() {
  const std::uint64_t generation = ++debounceGeneration_;
  std::weak_ptr<PeripheralBatteryMonitor*> weak = self_;
  executor_.postAfter(timing_.debounce, [weak, generation] {
    const auto self = weak.lock();
    if (!self || !*self || (*self)->debounceGeneration_ != generation) return;
    (*self)->check();
  });
}

void PeripheralBatteryMonitor::check(
    std::function<void(const std::vector<PeripheralBattery>&)> done) {
  const LowBatteryPolicy policy = policy_();
  const std::vector<BluetoothLEBatteryReading> readings =
      bluetoothLE_ ? bluetoothLE_() : std::vector<BluetoothLEBatteryReading>{};
  const PeripheralDirectory directory = loadPeripheralDirectory(defaults_);
  std::weak_ptr<PeripheralBatteryMonitor*> weak = self_;
  MainExecutor* executor = &executor_;
  workers_.start([weak, executor, probes = probes_, policy, readings, directory,
                  done = std::move(done)]() mutable {
    auto quick = probes.quick(directory, readings);
    std::optional<PeripheralBatteryReader::FullReading> full;
    if (!quick.unknown.empty()) full = probes.full(readings);
    executor->post([weak, quick = std::move(quick), full = std::move(full), policy,
                    done = std::move(done)]() mutable {
      const auto self = weak.lock();
      if (!self || !*self) return;
      PeripheralBatteryMonitor& monitor = **self;
      if (!full) {
        monitor.finish(std::move(quick.devices), policy, done);
        return;
      }
      PeripheralDirectory stored = loadPeripheralDirectory(monitor.defaults_);
      for (auto& [id, entry] : full->directory.entries)
        stored.entries.insert_or_assign(id, entry);
      try {
        savePeripheralDirectory(monitor.defaults_, stored);
      } catch (const std::system_error&) {
        // An unwritable settings file costs a full read at the next check.
      }
      monitor.finish(std::move(full->devices), policy, done);
    });
  });
}

void PeripheralBatteryMonitor::finish(
    std::vector<PeripheralBattery> devices, const LowBatteryPolicy& policy,
    const std::function<void(const std::vector<PeripheralBattery>&)>& done) {
  const LowBatteryLedger ledger = loadLowBatteryLedger(defaults_);
  auto [report, next] = policy.evaluate(devices, ledger, timing_.now());
  if (next != ledger) {
    try {
      saveLowBatteryLedger(defaults_, next);
    } catch (const std::system_error&) {
      // Not kept: a notice may repeat after a restart, never go missing.
    }
  }
  for (const PeripheralBattery& device : report)
    deliver_(device);
  if (onDevices) onDevices(devices);
  if (done) done(devices);
}

}  // namespace brisko
