#include "batteries/peripheral_battery_reader.h"

#include <algorithm>

#include "base/file_contents.h"
#include "base/standard_compare.h"
#include "base/unicode_text.h"

namespace brisko {
namespace {

using Kind = PeripheralBattery::Kind;

int clampedPercent(long long value) {
  return static_cast<int>(std::clamp(value, 0LL, 100LL));
}

std::optional<PeripheralBattery> computerLine(const BatterySources& sources) {
  if (!sources.computer) return std::nullopt;
  const auto reading = sources.computer->readComputerBattery();
  if (!reading) return std::nullopt;
  return PeripheralBattery{std::string(kInternalBatteryID),
                           sources.computerName.empty() ? "This computer" : sources.computerName,
                           Kind::mac,
                           clampedPercent(reading->percent),
                           std::nullopt,
                           reading->isCharging};
}

PeripheralBattery bluetoothLELine(const BluetoothLEBatteryReading& reading,
                                  const PeripheralDirectory& directory) {
  PeripheralBattery line;
  const auto known =
      std::find_if(directory.entries.begin(), directory.entries.end(),
                   [&](const auto& entry) { return entry.second.name == reading.name; });
  if (known != directory.entries.end()) {
    line.id = known->first;
    line.name = known->second.name;
    line.kind = known->second.kind;
  } else {
    line.id = "ble:" + reading.peripheralID;
    line.name = reading.name;
    line.kind = decideKind(reading.name, std::nullopt);
  }
  line.percent = clampedPercent(reading.percent);
  return line;
}

void addBluetoothLE(std::vector<PeripheralBattery>& devices,
                    const std::vector<BluetoothLEBatteryReading>& readings,
                    const PeripheralDirectory& directory) {
  for (const BluetoothLEBatteryReading& reading : readings) {
    PeripheralBattery line = bluetoothLELine(reading, directory);
    const auto same = std::find_if(devices.begin(), devices.end(),
                                   [&](const PeripheralBattery& d) { return d.id == line.id; });
    if (same != devices.end()) {
      same->percent = line.percent;
    } else {
      devices.push_back(std::move(line));
    }
  }
}

// The computer first, then by name as people sort names, then by id.
void sortLines(std::vector<PeripheralBattery>& devices) {
  std::stable_sort(devices.begin(), devices.end(),
                   [](const PeripheralBattery& a, const PeripheralBattery& b) {
                     const bool aComputer = a.id == kInternalBatteryID;
                     const bool bComputer = b.id == kInternalBatteryID;
                     if (aComputer != bComputer) return aComputer;
                     const int order = standardCompare(a.name, b.name);
                     if (order != 0) return order < 0;
                     return a.id < b.id;
                   });
}

std::optional<std::string> detailOf(const ProfileDevice& device) {
  std::string detail;
  const auto add = [&](const char* label, const std::optional<int>& level) {
    if (!level) return;
    if (!detail.empty()) detail += ", ";
    detail += label + std::to_string(*level) + "%";
  };
  add("L ", device.left);
  add("R ", device.right);
  add("Case ", device.caseLevel);
  if (detail.empty()) return std::nullopt;
  return detail;
}

}  // namespace

namespace PeripheralBatteryReader {

FullReading readFull(const BatterySources& sources,
                     const std::vector<BluetoothLEBatteryReading>& bluetoothLE) {
  const auto levels =
      sources.levels ? sources.levels->readLevels() : std::map<std::string, RegistryReading>{};
  const auto named = sources.named ? sources.named->readDevices() : std::vector<ProfileDevice>{};

  FullReading reading;
  for (const ProfileDevice& device : named)
    reading.directory.entries[device.address] = {device.name, device.kind};

  if (auto computer = computerLine(sources)) reading.devices.push_back(std::move(*computer));
  for (const ProfileDevice& device : named) {
    const auto level = levels.find(device.address);
    std::optional<int> percent;
    if (device.left || device.right) {
      percent = std::min(device.left.value_or(100), device.right.value_or(100));
    } else if (level != levels.end()) {
      percent = level->second.percent;
    } else {
      percent = device.main;
    }
    if (!percent) continue;
    // A named source that lists one key twice gives one line.
    if (std::any_of(reading.devices.begin(), reading.devices.end(),
                    [&](const PeripheralBattery& d) { return d.id == device.address; }))
      continue;
    reading.devices.push_back(PeripheralBattery{device.address, device.name, device.kind,
                                                clampedPercent(*percent), detailOf(device),
                                                level != levels.end() && level->second.isCharging});
  }
  addBluetoothLE(reading.devices, bluetoothLE, reading.directory);
  sortLines(reading.devices);
  return reading;
}

QuickReading readQuick(const BatterySources& sources, const PeripheralDirectory& directory,
                       const std::vector<BluetoothLEBatteryReading>& bluetoothLE) {
  QuickReading reading;
  if (auto computer = computerLine(sources)) reading.devices.push_back(std::move(*computer));
  const auto levels =
      sources.levels ? sources.levels->readLevels() : std::map<std::string, RegistryReading>{};
  for (const auto& [key, level] : levels) {
    const auto known = directory.entries.find(key);
    if (known == directory.entries.end()) {
      reading.unknown.push_back(key);
      continue;
    }
    reading.devices.push_back(PeripheralBattery{key, known->second.name, known->second.kind,
                                                clampedPercent(level.percent), std::nullopt,
                                                level.isCharging});
  }
  addBluetoothLE(reading.devices, bluetoothLE, directory);
  sortLines(reading.devices);
  return reading;
}

}  // namespace PeripheralBatteryReader

std::string computerDisplayName(const std::string& machineInfoPath) {
  const auto text = readFileContents(machineInfoPath, 64 * 1024);
  if (text) {
    size_t start = 0;
    while (start < text->size()) {
      size_t end = text->find('\n', start);
      if (end == std::string::npos) end = text->size();
      std::string_view line(text->data() + start, end - start);
      start = end + 1;
      constexpr std::string_view prefix = "PRETTY_HOSTNAME=";
      if (!line.starts_with(prefix)) continue;
      std::string_view value = trimmingWhitespace(line.substr(prefix.size()));
      if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
          value.back() == value.front())
        value = value.substr(1, value.size() - 2);
      if (!value.empty()) return std::string(value);
    }
  }
  return "This computer";
}

std::vector<std::string> batteryListLines(const std::vector<PeripheralBattery>& devices) {
  std::vector<std::string> lines;
  for (const PeripheralBattery& device : devices) {
    std::string line = std::string(kindLabel(device.kind)) + "  " + device.name + "  " +
                       std::to_string(device.percent) + "%";
    if (device.detail) line += " (" + *device.detail + ")";
    if (device.isCharging) line += ", charging";
    lines.push_back(std::move(line));
  }
  return lines;
}

Json encodeBattery(const PeripheralBattery& device) {
  Json json{{"id", device.id},
            {"name", device.name},
            {"kind", enumName(device.kind)},
            {"percent", device.percent},
            {"isCharging", device.isCharging}};
  if (device.detail) json["detail"] = *device.detail;
  return json;
}

}  // namespace brisko
