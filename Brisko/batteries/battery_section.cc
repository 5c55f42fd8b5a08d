#include "batteries/battery_section.h"

#include <stdexcept>

namespace brisko {

BatterySection::BatterySection(MainExecutor& executor, SettingsStore& settings,
                               BatteryPlaces places, BatteryMonitorTiming timing)
    : executor_(executor),
      settingsStore_(settings),
      sources_(std::move(places.powerSupplyRoot), std::move(places.machineInfoPath)),
      centre_(executor),
      bluetoothLE_(executor),
      monitor_(
          executor,
          {[this](const PeripheralDirectory& directory,
                  const std::vector<BluetoothLEBatteryReading>& le) {
             return PeripheralBatteryReader::readQuick(sources_.sources(), directory, le);
           },
           [this](const std::vector<BluetoothLEBatteryReading>& le) {
             return PeripheralBatteryReader::readFull(sources_.sources(), le);
           }},
          [this] { return currentLowBatteryPolicy(settingsStore_); },
          [this] {
            return followsBluetoothLE_ ? bluetoothLE_.readingList()
                                       : std::vector<BluetoothLEBatteryReading>{};
          },
          [this](const PeripheralBattery& device) {
            // A notice only while notices are wanted: a Refresh with the
            // monitor stopped shows the list and says nothing.
            if (current_.notifyLow) centre_.post(device);
          },
          settings, std::move(timing)) {
  monitor_.onDevices = [this](const std::vector<PeripheralBattery>& devices) {
    setDevices(devices);
  };
  centre_.onOpen = [this] {
    if (onOpen) onOpen();
  };
  centre_.onAuthorizationChange = [this] { changed(); };
  bluetoothLE_.onChange = [this] {
    if (monitor_.isRunning()) monitor_.check();
  };
}

BatterySection::~BatterySection() {
  *self_ = nullptr;
  monitor_.stop();
  bluetoothLE_.stop();
}

void BatterySection::applySettings() {
  const BatterySettings stored = readBatterySettings(settingsStore_);
  const bool settingsChanged = stored.notifyLow != current_.notifyLow ||
                               stored.lowThreshold != current_.lowThreshold ||
                               stored.readBluetoothLE != current_.readBluetoothLE;
  current_ = stored;
  if (current_.readBluetoothLE && !followsBluetoothLE_) {
    followsBluetoothLE_ = true;
    bluetoothLE_.start();
  } else if (!current_.readBluetoothLE && followsBluetoothLE_) {
    followsBluetoothLE_ = false;
    bluetoothLE_.stop();
  }
  if (current_.notifyLow) {
    if (!centreStarted_) {
      centreStarted_ = true;
      centre_.start();
    }
    monitor_.start();
  } else {
    monitor_.stop();
  }
  if (settingsChanged) changed();
}

void BatterySection::setNotifyLow(bool on) {
  settingsStore_.setValue(kNotifyLowSetting, on);
  applySettings();
}

void BatterySection::setLowThreshold(int percent) {
  if (percent != 20 && percent != 30 && percent != 40)
    throw std::invalid_argument("The low-battery level is 20, 30 or 40 percent.");
  settingsStore_.setValue(kLowThresholdSetting, percent);
  applySettings();
}

void BatterySection::setReadBluetoothLE(bool on) {
  settingsStore_.setValue(kReadBluetoothLESetting, on);
  applySettings();
}

void BatterySection::refresh() {
  if (monitor_.isRunning()) {
    monitor_.check();
    return;
  }
  const std::vector<BluetoothLEBatteryReading> readings =
      followsBluetoothLE_ ? bluetoothLE_.readingList() : std::vector<BluetoothLEBatteryReading>{};
  std::weak_ptr<BatterySection*> weak = self_;
  MainExecutor* executor = &executor_;
  readers_.start([this, weak, executor, readings] {
    auto reading = PeripheralBatteryReader::readFull(sources_.sources(), readings);
    executor->post([weak, devices = std::move(reading.devices)]() mutable {
      const auto self = weak.lock();
      if (self && *self) (*self)->setDevices(std::move(devices));
    });
  });
}

void BatterySection::setDevices(std::vector<PeripheralBattery> devices) {
  if (devices == devices_) return;
  devices_ = std::move(devices);
  changed();
}

void BatterySection::changed() {
  if (onChange) onChange();
}

}  // namespace brisko
