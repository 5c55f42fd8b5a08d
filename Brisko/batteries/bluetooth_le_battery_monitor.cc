#include "batteries/bluetooth_le_battery_monitor.h"

#include "batteries/dbus_client.h"
#include "batteries/system_battery_sources.h"

namespace brisko {

BluetoothLEBatteryMonitor::BluetoothLEBatteryMonitor(MainExecutor& executor)
    : executor_(executor), self_(std::make_shared<BluetoothLEBatteryMonitor*>(this)) {}

BluetoothLEBatteryMonitor::~BluetoothLEBatteryMonitor() {
  watcher_.reset();
  *self_ = nullptr;
}

void BluetoothLEBatteryMonitor::start() {
  if (watcher_) return;
  std::weak_ptr<BluetoothLEBatteryMonitor*> weak = self_;
  MainExecutor* executor = &executor_;
  const auto changed = [weak, executor](sd_bus_message*) {
    executor->post([weak] {
      if (const auto self = weak.lock(); self && *self && (*self)->watcher_) (*self)->refresh();
    });
  };
  std::vector<std::pair<std::string, BusWatcher::Handler>> matches;
  for (const char* rule :
       {"type='signal',sender='org.bluez',interface='org.freedesktop.DBus.Properties',"
        "member='PropertiesChanged'",
        "type='signal',sender='org.bluez',interface='org.freedesktop.DBus.ObjectManager'"})
    matches.emplace_back(rule, changed);
  watcher_ = std::make_unique<BusWatcher>(BusKind::system, std::move(matches));
  refresh();
}

void BluetoothLEBatteryMonitor::stop() {
  watcher_.reset();
}

std::vector<BluetoothLEBatteryReading> BluetoothLEBatteryMonitor::readingList() const {
  std::vector<BluetoothLEBatteryReading> list;
  for (const auto& [address, reading] : readings_)
    list.push_back(reading);
  return list;
}

void BluetoothLEBatteryMonitor::refresh() {
  DBusFailure failure;
  const auto objects = readBlueZObjects(&failure);
  if (!objects) {
    if (failure.name == "org.freedesktop.DBus.Error.AccessDenied")
      authorization_ = Authorization::denied;
    if (readings_.empty()) return;
    readings_.clear();
  } else {
    authorization_ = Authorization::allowed;
    std::map<std::string, BluetoothLEBatteryReading> fresh;
    for (BluetoothLEBatteryReading& reading : bluetoothLEReadings(*objects))
      fresh[reading.peripheralID] = std::move(reading);
    if (fresh == readings_) return;
    readings_ = std::move(fresh);
  }
  if (onChange) onChange();
}

}  // namespace brisko
